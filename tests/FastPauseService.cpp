#include "platform/core/VYXApplication.h"
#include "service/VYXSaveRestore.h"

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("VYXSaveRestore");
    VYXSaveRestore::instance()->setPausePollPeriod(std::chrono::milliseconds(10));
    const int status = VYXApplication::exec();
    delete VYXSaveRestore::instance();
    return status;
}
