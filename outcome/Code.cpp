#include "outcome/Code.h"

#include <QMetaEnum>

#include <array>

namespace {

/// In the order of the codes.
constexpr std::array texts = {
    "",
    "Some items failed, all others were done",
    "Another save, restore or reset is running",
    "Saving and restoring are disabled",
    "No repository was chosen",
    "The repository's URL is not secure",
    "The device's trust list is not deployed",
    "The repository does not answer",
    "The repository has no list of saved modules",
    "The modules are not known",
    "A module did not pause in time",
    "Data could not be staged",
    "The repository has no room",
    "Another repository was chosen meanwhile",
    "The operation was cancelled",
    "The service was asked to end",
    "What the repository holds is damaged",
    "A reset cannot be cancelled",
    "An option is not known, or of another type",
    "The repository is of a newer format than this service knows",
    "The operation failed",
};
static_assert(texts.size() == static_cast<size_t>(Outcome::Code::Failed) + 1);

} // namespace

namespace Outcome {

QString name(Code code)
{
    return QString::fromLatin1(QMetaEnum::fromType<Code>().valueToKey(static_cast<int>(code)));
}

Code codeOf(const QString &name)
{
    bool known = false;
    const int value = QMetaEnum::fromType<Code>().keyToValue(name.toLatin1().constData(), &known);
    return known ? static_cast<Code>(value) : Code::Failed;
}

QString errorName(Code code)
{
    return "com.corvane.Pelorin.Error." + name(code);
}

QString text(Code code)
{
    return texts.at(static_cast<size_t>(code));
}

} // namespace Outcome
