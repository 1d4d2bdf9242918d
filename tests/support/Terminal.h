#pragma once

#include "tests/support/TestDevice.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

/// A program in a terminal of its own.
class Terminal
{
public:
    explicit Terminal(const QProcessEnvironment &environment, ushort columns = 80)
        : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
    {
        grantpt(master);
        unlockpt(master);
        resize(columns);
        process.setProcessEnvironment(environment);
        process.setChildProcessModifier([name = QByteArray(ptsname(master))] {
            setsid();
            const int slave = open(name.constData(), O_RDWR);
            ioctl(slave, TIOCSCTTY, 0);
            for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                dup2(slave, number);
            }
        });
    }
    ~Terminal()
    {
        process.kill();
        process.waitForFinished();
        close(master);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    void start(const QStringList &arguments)
    {
        process.start(QString(PROGRAMS) + "/saverestorectl", arguments);
    }
    void resize(ushort columns) const
    {
        const winsize size = {24, columns, 0, 0};
        ioctl(master, TIOCSWINSZ, &size);
    }
    void type(const QByteArray &keys) const
    {
        if (write(master, keys.constData(), size_t(keys.size())) != keys.size()) {
            qFatal("the terminal takes no keys");
        }
    }
    bool shows(const QByteArray &text)
    {
        return TestDevice::waitUntil([&] { return shown().contains(text); });
    }
    /// What was written so far.
    QByteArray shown()
    {
        char bytes[4096];
        for (ssize_t count = 0; (count = read(master, bytes, sizeof bytes)) > 0;) {
            text.append(bytes, count);
        }
        return text;
    }
    /// The exit status in the end; -1 when it does not come.
    int end()
    {
        const auto hasEnded = [this] { return !shown().isNull() && process.state() == QProcess::NotRunning; };
        return TestDevice::waitUntil(hasEnded) && process.exitStatus() == QProcess::NormalExit
                   ? process.exitCode()
                   : -1;
    }

    QProcess process;

private:
    int master;
    QByteArray text = "";
};
