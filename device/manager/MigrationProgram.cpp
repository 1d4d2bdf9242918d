#include "device/manager/MigrationProgram.h"

#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QFileInfo>
#include <QProcess>
#include <QTimer>

namespace {

constexpr int migrationLimitMs = 60000;

void reportEnd(const QString &module, int exitCode, QProcess::ExitStatus status)
{
    if (status == QProcess::CrashExit) {
        logError("Migration of module '%1' was ended by a signal", module);
    } else if (exitCode != 0) {
        logError("Migration of module '%1' failed with status %2", module, exitCode);
    } else {
        logInfo("Migration of module '%1' done", module);
    }
}

} // namespace

bool startMigration(const QString &module, const QStringList &arguments, QObject *owner)
{
    const QFileInfo program(DevicePaths::migrationProgram(module));
    if (!program.isFile() || !program.isExecutable()) {
        logError("Module '%1' has no migration program", module);
        return false;
    }
    auto *process = new QProcess(owner);
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    process->setStandardInputFile(QProcess::nullDevice());
    QObject::connect(process, &QProcess::finished, process,
                     [process, module](int exitCode, QProcess::ExitStatus status) {
                         reportEnd(module, exitCode, status);
                         process->deleteLater();
                     });
    QObject::connect(
        process, &QProcess::errorOccurred, process, [process, module](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart) {
                logError("Migration of module '%1' could not be started: %2", module, process->errorString());
                process->deleteLater();
            }
        });
    QTimer::singleShot(migrationLimitMs, process, &QProcess::kill);
    logInfo("Migration of module '%1' starts: %2", module, arguments.join(", "));
    process->start(program.filePath(), arguments);
    return true;
}
