#include "device/manager/ApplicationManager.h"
#include "platform/core/VYXApplication.h"

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    QCoreApplication::setApplicationName("ApplicationManager");
    ApplicationManager manager;
    return QCoreApplication::exec();
}
