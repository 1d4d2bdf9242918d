#include "device/scheduler/Scheduler.h"
#include "platform/core/VYXApplication.h"

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    QCoreApplication::setApplicationName("Scheduler");
    Scheduler scheduler;
    return QCoreApplication::exec();
}
