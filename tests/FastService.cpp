#include "platform/core/VYXApplication.h"
#include "service/VYXSaveRestore.h"

using namespace std::chrono_literals;

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("VYXSaveRestore");
    ServiceLimits limits = {
        .pause = {.pollPeriod = 10ms, .patience = 2s}, .defaultReset = 1s, .factoryReset = 2s};
    if (const int silence = qEnvironmentVariableIntValue("SERVER_SILENCE_MS"); silence > 0) {
        limits.serverSilence = std::chrono::milliseconds(silence);
    }
    VYXSaveRestore::instance(limits);
    const int status = VYXApplication::exec();
    delete VYXSaveRestore::instance();
    return status;
}
