#include "device/settings/SettingsManager.h"
#include "platform/core/VYXApplication.h"

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    QCoreApplication::setApplicationName("SettingsManager");
    SettingsManager manager;
    return QCoreApplication::exec();
}
