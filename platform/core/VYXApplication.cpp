#include "platform/core/VYXApplication.h"

#include <QSocketNotifier>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::atomic<bool> ending = false;
std::atomic<int> status = EXIT_SUCCESS;
std::array<int, 2> wakePipe = {-1, -1};

void handleSignal(int)
{
    VYXApplication::requestEnd();
}

} // namespace

VYXApplication::VYXApplication(int &argc, char **argv) : QCoreApplication(argc, argv)
{
    if (pipe2(wakePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        qFatal("no pipe for signals");
    }
    notifier = new QSocketNotifier(wakePipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &VYXApplication::endRequested);
    struct sigaction action = {};
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

VYXApplication::~VYXApplication()
{
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    close(wakePipe[0]);
    close(wakePipe[1]);
}

bool VYXApplication::isEnding()
{
    return ending;
}

void VYXApplication::requestEnd(int exitStatus)
{
    const int savedError = errno;
    if (!ending) {
        status = exitStatus;
    }
    ending = true;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(wakePipe[1], &byte, 1);
    errno = savedError;
}

void VYXApplication::endRequested()
{
    notifier->setEnabled(false);
    Q_EMIT aboutToStop();
    QCoreApplication::exit(status);
}
