#include "platform/logger/VYXLogger.h"

#include "platform/logger/LogFields.h"

#include <QCoreApplication>
#include <QHash>
#include <QMutex>

#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

int levelFromEnvironment()
{
    bool valid = false;
    const int level = qEnvironmentVariableIntValue("VYX_LOG_LEVEL", &valid);
    return valid ? level : static_cast<int>(VYXLogger::Info);
}

/// systemd names the device and inode of the journal's socket in JOURNAL_STREAM.
bool standardErrorIsJournal()
{
    struct stat status = {};
    if (fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    const QString stream = QString::number(status.st_dev) + ":" + QString::number(status.st_ino);
    return qEnvironmentVariable("JOURNAL_STREAM") == stream;
}

const char *levelName(VYXLogger::Level level)
{
    switch (level) {
    case VYXLogger::Error:
        return "error";
    case VYXLogger::Warning:
        return "warning";
    case VYXLogger::Info:
        return "info";
    case VYXLogger::Debug:
        break;
    }
    return "debug";
}

void writeWhole(const QByteArray &line)
{
    qsizetype done = 0;
    while (done < line.size()) {
        const ssize_t count = ::write(STDERR_FILENO, line.constData() + done, size_t(line.size() - done));
        if (count < 0 && errno != EINTR) {
            return;
        }
        done += count > 0 ? count : 0;
    }
}

/// False when the journal does not take it by its socket.
bool sendToJournal(const QByteArray &module, VYXLogger::Level level, const QString &message)
{
    static const JournalSocket socket;
    const JournalSocket::Fields fields = {{"MESSAGE", message.toUtf8()},
                                          {"PRIORITY", QByteArray::number(static_cast<int>(level))},
                                          {"SYSLOG_IDENTIFIER", module}};
    return socket.send(fields + LogFields::current());
}

} // namespace

VYXLogger::VYXLogger(QString category)
    : category(std::move(category)), configuredLevel(levelFromEnvironment()),
      journal(standardErrorIsJournal())
{
}

void VYXLogger::write(Level level, const QString &message) const
{
    if (configuredLevel < level) {
        return;
    }
    const QByteArray module = (category.isEmpty() ? QCoreApplication::applicationName() : category).toUtf8();
    if (journal && sendToJournal(module, level, message)) {
        return;
    }
    QString text = message;
    text.replace('\n', "\\n");
    QByteArray line = journal ? "<" + QByteArray::number(static_cast<int>(level)) + ">" : QByteArray();
    line += levelName(level);
    line += " " + module + ": " + text.toUtf8() + "\n";
    writeWhole(line);
}

VYXLogger &logger(const QString &category)
{
    static QHash<QString, std::shared_ptr<VYXLogger>> loggers;
    static QMutex mutex; // threads beside log, too
    const QMutexLocker locker(&mutex);
    std::shared_ptr<VYXLogger> &entry = loggers[category];
    if (!entry) {
        entry = std::make_shared<VYXLogger>(category);
    }
    return *entry;
}
