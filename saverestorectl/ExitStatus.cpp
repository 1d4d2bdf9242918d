#include "saverestorectl/ExitStatus.h"

#include <algorithm>
#include <array>

namespace ExitStatus {

int ofCode(const QString &code)
{
    static constexpr std::array codes = {
        "Partial",     "Busy",           "Disabled",          "NoRepository",   "Insecure",
        "NotTrusted",  "Unreachable",    "NothingSaved",      "ModulesUnknown", "PauseFailed",
        "StagingFull", "RepositoryFull", "RepositoryChanged", "Cancelled",      "Stopped",
        "Damaged",     "NotCancellable", "InvalidOption",     "NewerFormat"};
    if (code == "Success") {
        return Success;
    }
    const auto *const found =
        std::find_if(codes.cbegin(), codes.cend(), [&](const char *known) { return code == known; });
    return found == codes.cend() ? Failed : FirstCode + static_cast<int>(found - codes.cbegin());
}

} // namespace ExitStatus
