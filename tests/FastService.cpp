#include "platform/core/VYXApplication.h"
#include "service/VYXSaveRestore.h"

using namespace std::chrono_literals;

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("VYXSaveRestore");
    VYXSaveRestore::instance()->setPausePollPeriod(10ms);
    VYXSaveRestore::instance()->setResetLimits(1s, 2s);
    const int status = VYXApplication::exec();
    delete VYXSaveRestore::instance();
    return status;
}
