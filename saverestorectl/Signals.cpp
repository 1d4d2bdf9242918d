#include "saverestorectl/Signals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

bool isIgnored(int number)
{
    struct sigaction action = {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

Signals::Signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGWINCH);
    for (const int number : {SIGINT, SIGTERM}) {
        if (!isIgnored(number)) {
            sigaddset(&set, number);
        }
    }
    sigprocmask(SIG_BLOCK, &set, nullptr);
    descriptor = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

Signals::~Signals()
{
    close(descriptor);
}

void Signals::start(QCoreApplication *application)
{
    auto *const notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, application);
    connect(notifier, &QSocketNotifier::activated, this, &Signals::read);
}

void Signals::read()
{
    signalfd_siginfo info = {};
    while (::read(descriptor, &info, sizeof info) == ssize_t(sizeof info)) {
        if (info.ssi_signo == SIGWINCH) {
            Q_EMIT resized();
        } else {
            Q_EMIT interrupted(static_cast<int>(info.ssi_signo));
        }
    }
}
