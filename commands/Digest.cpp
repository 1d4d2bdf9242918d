#include "commands/Digest.h"

#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>

#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr qsizetype portionSize = qsizetype{256} * 1024;

} // namespace

QString fileDigest(const Waiter &waiter, const Descriptor &file)
{
    if (!file.isOpen()) {
        return {};
    }
    const QDeadlineTimer deadline(30s);
    QCryptographicHash hash(QCryptographicHash::Md5);
    QByteArray portion(portionSize, Qt::Uninitialized);
    while (!waiter.mustEnd() && !deadline.hasExpired()) {
        const ssize_t count = TEMP_FAILURE_RETRY(read(file.number(), portion.data(), portion.size()));
        if (count <= 0) {
            return count == 0 ? QString::fromLatin1(hash.result().toHex()) : QString();
        }
        hash.addData(QByteArrayView(portion.constData(), count));
    }
    return {};
}

QString fileDigest(Waiter &waiter, const QString &path)
{
    const Descriptor file = openedRegular(path);
    QString digest;
    waiter.runBeside([&] { digest = fileDigest(std::as_const(waiter), file); });
    return digest;
}
