#include "platform/core/VYXApplication.h"
#include "service/VYXSaveRestore.h"

#include <malloc.h>

int main(int argc, char **argv)
{
    // Threads come and go with each operation: what they have used goes back to the system with them.
    constexpr int mostArenas = 2;
    constexpr int largeBlock = 512 * 1024;
    mallopt(M_ARENA_MAX, mostArenas);
    mallopt(M_MMAP_THRESHOLD, largeBlock);
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("VYXSaveRestore");
    VYXSaveRestore::instance();
    const int status = VYXApplication::exec();
    delete VYXSaveRestore::instance();
    return status;
}
