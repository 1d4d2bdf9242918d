#include "examples/thermometer/Thermometer.h"
#include "platform/core/VYXApplication.h"

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("Thermometer");
    Thermometer module;
    return VYXApplication::exec();
}
