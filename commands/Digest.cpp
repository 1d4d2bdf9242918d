#include "commands/Digest.h"

#include "commands/Portions.h"
#include "platform/Descriptor.h"

#include <QCryptographicHash>
#include <QFile>

#include <fcntl.h>
#include <unistd.h>

using namespace std::chrono_literals;

QString fileDigest(Waiter &waiter, const Descriptor &file)
{
    if (!file.isOpen()) {
        return {};
    }
    QCryptographicHash hash(QCryptographicHash::Md5);
    QByteArray portion(qsizetype{1024} * 1024, Qt::Uninitialized);
    const bool whole = runInPortions(waiter, 30s, [&] {
        const ssize_t count = TEMP_FAILURE_RETRY(read(file.number(), portion.data(), portion.size()));
        if (count <= 0) {
            return count == 0 ? Portion::Last : Portion::Failed;
        }
        hash.addData(QByteArrayView(portion.constData(), count));
        return Portion::More;
    });
    return whole ? QString::fromLatin1(hash.result().toHex()) : QString();
}

QString fileDigest(Waiter &waiter, const QString &path)
{
    const Descriptor found(open(QFile::encodeName(path).constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return fileDigest(waiter, openedForReading(found));
}
