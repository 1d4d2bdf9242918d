#include "tests/support/TestDevice.h"

#include "platform/core/VYXEventSubscription.h"
#include "platform/core/VYXModule.h"
#include "platform/records/ApplicationConfig.h"
#include "platform/records/Capability.h"
#include "platform/records/Setting.h"
#include "platform/records/TimePattern.h"
#include "platform/records/UpdateReport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QTest>
#include <QTimer>

namespace {

constexpr int callLimitMs = 120000;

int connections = 0;

QDBusMessage methodCall(const QString &module, const QString &method)
{
    return QDBusMessage::createMethodCall(VYXModule::busName(module), VYXModule::objectPath(module),
                                          VYXModule::interfaceName(), method);
}

} // namespace

TestDevice::TestDevice() : connectionName(QString("test%1").arg(++connections))
{
    registerDBusApplicationConfig();
    registerDBusCapability();
    registerDBusSetting();
    registerDBusTimePattern();
    registerDBusUpdateReport();
    for (const char *part : {"data/VYXApplication", "etc/VYXApplication/module", "media/repository", "tmp"}) {
        QDir(directory.path()).mkpath(part);
    }
    write("data/dev_mode", {});
    writeSettings();
    address = "unix:path=" + path("bus");
    busProcess =
        launch("dbus-daemon",
               {"--nofork", QString("--config-file=%1/device/bus.conf").arg(SOURCES), "--address=" + address},
               "bus.log");
    // The socket exists a moment before the bus listens on it.
    waitUntil([this] {
        QDBusConnection::disconnectFromBus(connectionName);
        return QFile::exists(path("bus")) &&
               QDBusConnection::connectToBus(address, connectionName).isConnected();
    });
}

TestDevice::~TestDevice()
{
    if (QTest::currentTestFailed()) {
        qDebug().noquote() << wholeLog();
    }
    if (serviceProcess) {
        end(*serviceProcess);
    }
    for (const auto &manager : managers) {
        end(*manager);
    }
    QDBusConnection::disconnectFromBus(connectionName);
    end(*busProcess);
}

void TestDevice::killBus() const
{
    busProcess->kill();
    busProcess->waitForFinished();
}

void TestDevice::listen(const QStringList &events, QObject *receiver,
                        const std::function<void(const VYXEvent &)> &handler) const
{
    auto *subscription = new VYXEventSubscription(receiver, handler);
    for (const QString &event : events) {
        bus().connect({}, {}, "com.corvane.Pelorin.VYXEvent", event, subscription,
                      SLOT(received(QDBusMessage)));
    }
}

QString TestDevice::dataPath(const QString &module, const QString &item) const
{
    return path("data/VYXApplication/" + module + "/" + item);
}

void TestDevice::writeData(const QString &module, const QString &item, const QByteArray &content) const
{
    writeFile(dataPath(module, item), content);
}

QByteArray TestDevice::readData(const QString &module, const QString &item) const
{
    return readFile(dataPath(module, item));
}

void TestDevice::describe(const QString &name, const QString &description) const
{
    write("etc/VYXApplication/module/" + name + "/restorable.xml",
          ("<restorable>" + description + "</restorable>").toUtf8());
}

void TestDevice::addModule(const QString &name, const QString &description, const QString &arguments)
{
    if (!description.isEmpty()) {
        describe(name, description);
    }
    QDir().mkpath(path("data/VYXApplication/" + name));
    modulesConfiguration +=
        QString("%1\t1.0\t2026\tSampleModule %1%2\n").arg(name, arguments.isEmpty() ? "" : " " + arguments);
    modules << name;
}

void TestDevice::addProgram(const QString &name, const QString &directory)
{
    write("etc/VYXApplication/module/" + name + "/restorable.xml",
          readFile(QString(SOURCES) + "/" + directory + "/restorable.xml"));
    modulesConfiguration += QString("%1\t1.0\t2026\t%1\n").arg(name);
    modules << name;
}

void TestDevice::writeSettings(const QString &level, const QString &url) const
{
    const QString lines = QString("SaveRestoreUrl=%1\nSaveRestoreLevel=%2\nSaveRestoreSchedule=3\n"
                                  "SaveRestoreScheduleType=0\n")
                              .arg(url.isEmpty() ? repositoryPath().chopped(1) : url, level);
    write("etc/VYXApplication/settings.conf", lines.toUtf8());
}

QByteArray TestDevice::shell(const QString &line)
{
    QProcess process;
    process.start("/bin/sh", {"-c", line});
    process.waitForFinished();
    return process.readAllStandardOutput();
}

QByteArray TestDevice::sqlOnFile(const QString &file, const QString &statements)
{
    QProcess process;
    process.start("sqlite3", {"-cmd", ".timeout 5000", file, statements});
    process.waitForFinished();
    const QByteArray errors = process.readAllStandardError();
    return errors.isEmpty() ? process.readAllStandardOutput() : errors;
}

QByteArray TestDevice::sql(const QString &module, const QString &database, const QString &statements) const
{
    return sqlOnFile(dataPath(module, database + ".data"), statements);
}

std::unique_ptr<QProcess> TestDevice::launch(const QString &program, const QStringList &arguments,
                                             const QString &log) const
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("VYX_DEVICE_ROOT", directory.path());
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    environment.insert("VYX_LOG_LEVEL", qEnvironmentVariable("VYX_LOG_LEVEL", "7"));
    process->setProcessEnvironment(environment);
    process->setStandardErrorFile(path(log));
    process->setStandardOutputFile(QProcess::nullDevice());
    process->start(program, arguments);
    return process;
}

void TestDevice::end(QProcess &process)
{
    process.terminate();
    if (!process.waitForFinished(15000)) {
        process.kill();
        process.waitForFinished();
    }
}

bool TestDevice::startManagers()
{
    write("etc/VYXApplication/modules.conf", modulesConfiguration.toUtf8());
    for (const char *program : {"SettingsManager", "Scheduler", "ApplicationManager"}) {
        managers.push_back(launch(QString(PROGRAMS) + "/" + program, {}, QString(program) + ".log"));
        if (!waitForName(program)) {
            return false;
        }
    }
    return std::all_of(modules.cbegin(), modules.cend(),
                       [this](const QString &name) { return waitForName(name); });
}

bool TestDevice::startService(const QString &program)
{
    // The bus may still know the name of a service that was killed a moment ago.
    waitUntil([this] {
        return !bus().interface()->isServiceRegistered(VYXModule::busName("VYXSaveRestore")).value();
    });
    serviceProcess = launch(QString(PROGRAMS) + "/" + program, {}, "service.log");
    return waitForName("VYXSaveRestore");
}

int TestDevice::stopService()
{
    if (!serviceProcess || serviceProcess->state() == QProcess::NotRunning) {
        return serviceProcess ? serviceProcess->exitCode() : 0;
    }
    serviceProcess->terminate();
    if (!serviceProcess->waitForFinished(20000) || serviceProcess->exitStatus() != QProcess::NormalExit) {
        return -1;
    }
    return serviceProcess->exitCode();
}

bool TestDevice::waitForName(const QString &module) const
{
    return waitUntil(
        [&] { return bus().interface()->isServiceRegistered(VYXModule::busName(module)).value(); });
}

QString TestDevice::retire(std::unique_ptr<TestDevice> &device)
{
    const bool clean = !device || (device->stopService() == 0 && !device->wholeLog().contains("s3cret"));
    const QString log = clean ? QString() : device->wholeLog() + "\n(not ended cleanly, or shows a password)";
    device.reset();
    return log;
}

QDBusPendingCall TestDevice::callLater(const QString &method) const
{
    return bus().asyncCall(methodCall("VYXSaveRestore", method), callLimitMs);
}

QVariant TestDevice::resultOf(const QDBusPendingCall &call)
{
    waitUntil([&] { return call.isFinished(); }, callLimitMs);
    return call.reply().arguments().value(0);
}

QDBusMessage TestDevice::call(const QString &method, const QVariantList &arguments,
                              const QString &module) const
{
    QDBusMessage message = methodCall(module, method);
    message.setArguments(arguments);
    return bus().call(message, QDBus::Block, callLimitMs);
}

QVariant TestDevice::result(const QString &method, const QVariantList &arguments, const QString &module) const
{
    return call(method, arguments, module).arguments().value(0);
}

int TestDevice::capability() const
{
    return qdbus_cast<Capability>(result("getCapability", {"SAVE_RESTORE_ENABLE"})).getState();
}

QStringList TestDevice::entries() const
{
    return QDir(repositoryPath()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

qint64 TestDevice::modulePid(const QString &module) const
{
    const QVariant list = result("getModulesList", {}, "ApplicationManager");
    for (const ApplicationConfig &config : qdbus_cast<ListApplicationConfig>(list)) {
        if (config.getName() == module) {
            return config.getID().toLongLong();
        }
    }
    return 0;
}

QString TestDevice::processState(qint64 pid)
{
    return QString::fromUtf8(readFile(QString("/proc/%1/stat").arg(pid))).split(' ').value(2);
}

bool TestDevice::allRun(const QStringList &names) const
{
    return waitUntil([&] {
        return std::all_of(names.cbegin(), names.cend(),
                           [&](const QString &name) { return moduleState(name) == "S"; });
    });
}

bool TestDevice::waitUntil(const std::function<bool()> &condition, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    QTimer look;
    look.start(10);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}
