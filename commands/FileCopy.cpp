#include "commands/FileCopy.h"

#include "commands/Portions.h"
#include "platform/Descriptor.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr size_t portionSize = size_t{1024} * 1024;

/// By the kernel alone, which may let both files share the content; nothing when it cannot for these files.
std::optional<Portion> copiedByKernel(const Descriptor &source, const QFile &target)
{
    const ssize_t count = TEMP_FAILURE_RETRY(
        copy_file_range(source.number(), nullptr, target.handle(), nullptr, 4 * portionSize, 0));
    if (count < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
        return std::nullopt;
    }
    if (count == 0) { // the end, unless the file system does not say so
        return std::nullopt;
    }
    return count > 0 ? Portion::More : Portion::Failed;
}

} // namespace

bool copyContent(Waiter &waiter, const Descriptor &source, const QString &target)
{
    if (!source.isOpen()) {
        return false;
    }
    QFile written(target);
    if (!written.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered,
                      QFile::ReadOwner | QFile::WriteOwner)) {
        return false;
    }
    QByteArray portion;
    const bool whole = runInPortions(waiter, 30min, [&] {
        const auto byKernel = portion.isEmpty() ? copiedByKernel(source, written) : std::nullopt;
        if (byKernel) {
            return *byKernel;
        }
        portion.resize(portionSize);
        const ssize_t count = TEMP_FAILURE_RETRY(read(source.number(), portion.data(), portion.size()));
        if (count <= 0) {
            return count == 0 ? Portion::Last : Portion::Failed;
        }
        return written.write(portion.constData(), count) == count ? Portion::More : Portion::Failed;
    });
    written.close();
    if (!whole || written.error() != QFile::NoError) {
        written.remove();
        return false;
    }
    return true;
}
