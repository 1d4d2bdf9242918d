#include "platform/core/VYXApplication.h"
#include "service/VYXSaveRestore.h"

using namespace std::chrono_literals;

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("VYXSaveRestore");
    VYXSaveRestore::instance(
        {.pause = {.pollPeriod = 10ms, .patience = 2s}, .defaultReset = 1s, .factoryReset = 2s});
    const int status = VYXApplication::exec();
    delete VYXSaveRestore::instance();
    return status;
}
