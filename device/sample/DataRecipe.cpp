#include "device/sample/DataRecipe.h"

#include "platform/logger/VYXLogger.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>

#include <sys/stat.h>

namespace {

constexpr int databaseLimitMs = 30000;
constexpr qint64 largestNoise = 64LL * 1024 * 1024;

bool failed(const QString &reason)
{
    logError("Could not create the module's data: %1", reason);
    return false;
}

bool staysBelow(const QString &path)
{
    const QStringList parts = path.split('/');
    return !path.isEmpty() && !parts.contains("") && !parts.contains(".") && !parts.contains("..");
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush()) {
        return failed(path + ": " + file.errorString());
    }
    return true;
}

QByteArray noise(const QString &path, qint64 size)
{
    QByteArray content(static_cast<qsizetype>(size), '\0');
    QRandomGenerator generator(qChecksum(path.toUtf8()));
    for (char &byte : content) {
        byte = static_cast<char>(generator.bounded(256));
    }
    return content;
}

bool createEntry(const QStringList &fields, const QDir &recipe, const QDir &data)
{
    const QString &kind = fields.at(0);
    const QString path = data.absoluteFilePath(fields.at(1));
    const QString value = fields.value(2);
    if (!QDir().mkpath(kind == "directory" ? path : QFileInfo(path).path())) {
        return failed(path + " is no directory");
    }
    if (kind == "directory") {
        return true;
    }
    if (kind == "text") {
        return writeFile(path, QString(value).replace("\\n", "\n").toUtf8());
    }
    if (kind == "copy" && staysBelow(value)) {
        QFile::remove(path);
        return QFile::copy(recipe.absoluteFilePath(value), path) || failed(value + " cannot be copied");
    }
    if (kind == "noise" && value.toLongLong() > 0 && value.toLongLong() <= largestNoise) {
        return writeFile(path, noise(fields.at(1), value.toLongLong()));
    }
    if (kind == "pipe") {
        return mkfifo(QFile::encodeName(path).constData(), S_IRUSR | S_IWUSR) == 0 ||
               failed(path + " cannot be made a pipe");
    }
    return failed("no such kind of entry: " + fields.join(' '));
}

bool createEntries(const QDir &recipe, const QDir &data, const QStringList &kinds = {})
{
    QFile list(recipe.absoluteFilePath("content.tsv"));
    if (!list.exists()) {
        return true;
    }
    if (!list.open(QIODevice::ReadOnly)) {
        return failed(list.fileName() + ": " + list.errorString());
    }
    const QStringList lines = QString::fromUtf8(list.readAll()).split('\n');
    for (const QString &line : lines) {
        if (line.isEmpty() || line.startsWith('#')) {
            continue;
        }
        const QStringList fields = line.split('\t');
        if (fields.size() < 2 || !staysBelow(fields.at(1))) {
            return failed("not an entry: " + line);
        }
        if ((kinds.isEmpty() || kinds.contains(fields.at(0))) && !createEntry(fields, recipe, data)) {
            return false;
        }
    }
    return true;
}

bool createDatabase(const QString &script, const QString &database)
{
    QProcess shell;
    shell.setStandardInputFile(script);
    shell.start("sqlite3", {"-batch", "-bail", database});
    if (!shell.waitForFinished(databaseLimitMs)) {
        shell.kill();
        shell.waitForFinished(1000);
        return failed(script + ": " + shell.errorString());
    }
    const bool done = shell.exitStatus() == QProcess::NormalExit && shell.exitCode() == 0;
    return done || failed(script + ": " + QString::fromUtf8(shell.readAllStandardError()).trimmed());
}

bool createDatabases(const QDir &recipe, const QDir &data)
{
    for (const QFileInfo &script : recipe.entryInfoList({"*.sql"}, QDir::Files, QDir::Name)) {
        const QString database = data.absoluteFilePath(script.completeBaseName() + ".data");
        if (!createDatabase(script.absoluteFilePath(), database)) {
            return false;
        }
    }
    return true;
}

bool removeFiles(const QDir &data)
{
    for (const QFileInfo &entry :
         data.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        const bool isDirectory = entry.isDir() && !entry.isSymLink();
        const bool isDatabase = !isDirectory && entry.fileName().contains(".data");
        const bool removed = isDirectory ? QDir(entry.filePath()).removeRecursively()
                                         : isDatabase || QFile::remove(entry.filePath());
        if (!removed) {
            return failed(entry.filePath() + " cannot be removed");
        }
    }
    return true;
}

} // namespace

bool createModuleData(const QString &recipe, const QString &dataDirectory)
{
    const QFileInfo target(dataDirectory);
    if (target.exists()) {
        return true;
    }
    const QString unfinished = target.path() + "/." + target.fileName() + ".unfinished";
    if (!QDir(unfinished).removeRecursively() || !QDir().mkpath(unfinished)) {
        return failed(unfinished + " cannot be made");
    }
    const bool created =
        createDatabases(QDir(recipe), QDir(unfinished)) && createEntries(QDir(recipe), QDir(unfinished));
    if (!created || !QDir().rename(unfinished, dataDirectory)) {
        QDir(unfinished).removeRecursively();
        return created ? failed(dataDirectory + " cannot be made") : false;
    }
    return true;
}

bool resetModuleFiles(const QString &recipe, const QString &dataDirectory, AddedFiles addedFiles)
{
    const QDir data(dataDirectory);
    if (addedFiles == RemoveAddedFiles) {
        return removeFiles(data) && createEntries(QDir(recipe), data);
    }
    return createEntries(QDir(recipe), data, {"text", "copy"});
}
