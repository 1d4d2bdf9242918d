#include "platform/WholeFile.h"

#include <QSaveFile>

/// What is still in the file's buffer has to be written first: `commit` does not tell when that fails, and
/// puts what there is in place.
bool writeWholeFile(const QString &path, const QByteArray &content)
{
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush() &&
           file.commit();
}
