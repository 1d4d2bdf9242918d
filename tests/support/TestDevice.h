#pragma once

#include "platform/core/VYXEvent.h"
#include "tests/support/Files.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QProcess>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <vector>

/// A device below a temporary root with a bus of its own: the managers, sample modules and the service run as
/// real processes. Whatever runs is ended with the object.
class TestDevice
{
public:
    TestDevice();
    ~TestDevice();

    TestDevice(const TestDevice &) = delete;
    TestDevice &operator=(const TestDevice &) = delete;

    QString path(const QString &relative) const { return directory.path() + "/" + relative; }
    QString dataPath(const QString &module, const QString &item) const;
    QString repositoryPath(const QString &entry = {}) const { return path("media/repository/" + entry); }

    void write(const QString &relative, const QByteArray &content) const
    {
        writeFile(path(relative), content);
    }
    void writeData(const QString &module, const QString &item, const QByteArray &content) const;
    QByteArray readData(const QString &module, const QString &item) const;

    /// Install a module: the inside of its restorable.xml (none when empty), the arguments of its process.
    void addModule(const QString &name, const QString &description, const QString &arguments = {});
    /// Install a module of release 2026 that is a program of its own, with the description in a directory of
    /// the tree.
    void addProgram(const QString &name, const QString &directory);
    void describe(const QString &name, const QString &description) const;
    void writeSettings(const QString &level = "2", const QString &url = {}) const;

    /// Run SQL on a database of a module with the sqlite3 shell.
    QByteArray sql(const QString &module, const QString &database, const QString &statements) const;
    static QByteArray sqlOnFile(const QString &file, const QString &statements);
    static QByteArray shell(const QString &line);

    bool startManagers();
    bool startService(const QString &program = "VYXSaveRestore");
    bool start(const QString &program = "FastService") { return startManagers() && startService(program); }
    bool startAndSave() { return start() && save(); }
    /// True once the service has ended, also when it has long since.
    bool serviceEnds()
    {
        return serviceProcess->state() == QProcess::NotRunning || serviceProcess->waitForFinished();
    }
    /// End the service as the system does; its exit status, -1 when it had to be killed.
    int stopService();
    QProcess &service() { return *serviceProcess; }
    /// End everything; the service's log when it did not end cleanly or the log shows a password, else
    /// nothing.
    static QString retire(std::unique_ptr<TestDevice> &device);

    QDBusMessage call(const QString &method, const QVariantList &arguments = {},
                      const QString &module = "VYXSaveRestore") const;
    /// The value that a method returns.
    QVariant result(const QString &method, const QVariantList &arguments = {},
                    const QString &module = "VYXSaveRestore") const;
    /// Call a method of the service without waiting for its reply.
    QDBusPendingCall callLater(const QString &method) const;
    /// The value that such a call returns in the end; events of this process go on meanwhile.
    static QVariant resultOf(const QDBusPendingCall &call);
    /// True when the service says that the save ran to its end.
    bool save() const { return result("startSaveOnRepository").toBool(); }
    /// The state of the service's capability.
    int capability() const;
    QDBusConnection bus() const { return QDBusConnection(connectionName); }
    /// End the bus under everything that is on it.
    void killBus() const;
    /// Hand each event of these names to the handler, as long as the receiver lives.
    void listen(const QStringList &events, QObject *receiver,
                const std::function<void(const VYXEvent &)> &handler) const;
    bool waitForName(const QString &module) const;

    QStringList entries() const;
    QByteArray entry(const QString &name) const { return readFile(repositoryPath(name)); }

    /// True when the service has logged the text since the last mark.
    bool hasLogged(const QString &text) const { return wholeLog().mid(logMark).contains(text); }
    bool waitForLog(const QString &text) const
    {
        return waitUntil([&] { return hasLogged(text); });
    }
    void markLog() { logMark = wholeLog().size(); }
    QString wholeLog() const { return QString::fromUtf8(readFile(path("service.log"))); }

    /// The state letter of a process; empty when there is none.
    static QString processState(qint64 pid);
    QString moduleState(const QString &module) const { return processState(modulePid(module)); }
    /// True when the modules run, in a while at the latest.
    bool allRun(const QStringList &names) const;
    qint64 modulePid(const QString &module) const;

    static void end(QProcess &process);
    static bool waitUntil(const std::function<bool()> &condition, int limitMs = 20000);

private:
    std::unique_ptr<QProcess> launch(const QString &program, const QStringList &arguments,
                                     const QString &log) const;

    QTemporaryDir directory;
    QString address;
    QString connectionName;
    std::unique_ptr<QProcess> busProcess;
    std::vector<std::unique_ptr<QProcess>> managers;
    std::unique_ptr<QProcess> serviceProcess;
    QString modulesConfiguration;
    QStringList modules;
    qsizetype logMark = 0;
};
