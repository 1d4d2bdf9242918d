#include "commands/FileCopy.h"

#include "commands/Portions.h"
#include "platform/Descriptor.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

using namespace std::chrono_literals;

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
    QByteArray portion(qsizetype{1024} * 1024, Qt::Uninitialized);
    const bool whole = runInPortions(waiter, 30min, [&] {
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
