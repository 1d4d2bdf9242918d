#pragma once

#include "tests/support/TestDevice.h"

#include <QMap>

/// The stand-in device's repository server: a real nginx below a temporary directory, with its own PKI.
class NginxServer
{
public:
    /// `certificate` is the name of the server's certificate in the PKI; empty for plain HTTP. `protocol` is
    /// "http2", "http1", or "tls1.1"; `directives` stand among those of the whole configuration; one that
    /// `lists` tells which entries it has.
    explicit NginxServer(const QString &certificate = {}, const QString &protocol = "http2",
                         const QByteArray &directives = {}, bool lists = false);
    ~NginxServer() { TestDevice::end(process); }

    NginxServer(const NginxServer &) = delete;
    NginxServer &operator=(const NginxServer &) = delete;

    /// True when it answers.
    bool isRunning() const { return running; }
    QString url() const;
    QString store(const QString &entry = {}) const { return directory.path() + "/server/store/" + entry; }

    /// A file of the PKI that all servers of a test share, made on first use.
    static QString pki(const QString &name);
    /// Install the stand-in for the device's tool below a device root; all that it names is in order. The PKI
    /// is another directory's when one is given.
    static void installTool(const QString &deviceRoot, const QString &otherPki = {});

private:
    QTemporaryDir directory;
    QProcess process;
    quint16 port = 0;
    bool secure;
    bool running = false;
};
