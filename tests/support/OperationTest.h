#pragma once

#include "tests/support/DataTable.h"
#include "tests/support/PreviewCheck.h"
#include "tests/support/StoreServer.h"
#include "tests/support/TestDevice.h"

#include <QCryptographicHash>
#include <QRegularExpression>

/// What tests of whole operations share: a device with its repository on a server or in a directory, requests
/// that the server treats in a way of its own, and what the service publishes meanwhile.
class OperationTest : public QObject
{
    Q_OBJECT

protected:
    using Entries = QMap<QString, QByteArray>;

    std::unique_ptr<TestDevice> device;
    std::unique_ptr<StoreServer> store;
    QMap<QString, StoreServer::Behaviour> treated; ///< by "METHOD entry", as long as it stands here
    QList<VYXEvent> popUps;
    QList<int> states; ///< that the capability has taken
    bool onServer = true;

    void startAfresh()
    {
        device = std::make_unique<TestDevice>();
        previewed = Previewed::No;
        store = std::make_unique<StoreServer>();
        treated.clear();
        store->behaviour = [this](int, const QString &method, const QString &entry) {
            return treated.value(method + " " + entry, StoreServer::Proper);
        };
    }

    bool start(bool server = true)
    {
        onServer = server;
        device->writeSettings("2", url());
        device->listen({"show_popup"}, store.get(), [this](const VYXEvent &event) { popUps << event; });
        device->listen({"capability_changed"}, store.get(),
                       [this](const VYXEvent &event) { states << event.getArgument("State").toInt(); });
        const bool started = device->start();
        forgetEvents();
        return started;
    }

    /// With a password, which no log may show.
    QString url() const
    {
        return onServer ? store->url().replace("//", "//user:s3cret@") : device->repositoryPath().chopped(1);
    }

    void forgetEvents()
    {
        QCoreApplication::processEvents();
        popUps.clear();
        states.clear();
    }

    /// True when a pop-up has this text, and a detail that matches.
    bool isShown(const QString &text, const QString &detail = {}) const
    {
        return std::any_of(popUps.cbegin(), popUps.cend(), [&](const VYXEvent &event) {
            return event.getArgument("Text").toString() == text &&
                   event.getArgument("Detail").toString().contains(QRegularExpression(detail));
        });
    }

    /// The value that an operation returns; what it published has arrived.
    static QVariant end(const QDBusPendingCall &call)
    {
        const QVariant value = TestDevice::resultOf(call);
        QCoreApplication::processEvents();
        return value;
    }

    QVariant run(const QString &method)
    {
        forgetEvents();
        return end(device->callLater(method));
    }
    bool save() { return run("startSaveOnRepository").toBool(); }

    enum class Previewed {
        No,
        Exactly,
        ButForDamage, ///< contents are damaged on the way
    };
    Previewed previewed = Previewed::No; ///< whether restores are held against their previews

    void restore()
    {
        if (previewed == Previewed::No) {
            run("startRestoreFromRepository");
            return;
        }
        PreviewCheck check(*device);
        run("startRestoreFromRepository");
        QCOMPARE(check.fault(previewed == Previewed::ButForDamage), QString());
    }

    /// Call a method and wait until the server holds that request of it.
    QDBusPendingCall beginAndHold(const QString &request, const QString &method = "startSaveOnRepository")
    {
        forgetEvents();
        treated = {{request, StoreServer::Held}};
        QDBusPendingCall call = device->callLater(method);
        if (!TestDevice::waitUntil([this] { return store->isHolding(); })) {
            QTest::qFail(qPrintable("no request " + request), __FILE__, __LINE__);
        }
        treated.clear();
        return call;
    }

    QVariant releaseAndEnd(const QDBusPendingCall &call)
    {
        store->release();
        return end(call);
    }

    void write(const QString &module, const QStringList &items, const QByteArray &content) const
    {
        for (const QString &item : items) {
            device->writeData(module, item, content);
        }
    }

    Entries repository() const
    {
        Entries entries = store->entries;
        for (const QString &entry : device->entries()) {
            entries.insert(entry, device->entry(entry));
        }
        return entries;
    }

    /// The digest that the repository's checksum file gives for an item; empty when there is none.
    QString digest(const QString &module, const QString &key) const
    {
        for (const QByteArray &line : repository().value(module + ".cksum").split('\n')) {
            if (line.startsWith(key.toUtf8() + '\t')) {
                return QString::fromUtf8(line.split('\t').value(1));
            }
        }
        return {};
    }

    static QString md5(const QByteArray &content)
    {
        return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    }

    /// True when the repository holds this content of a plain file and its line says the same.
    bool holds(const QString &module, const QString &item, const QByteArray &content) const
    {
        return repository().value(item) == content && digest(module, item) == md5(content);
    }

protected Q_SLOTS:
    void init() { startAfresh(); }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }
};
