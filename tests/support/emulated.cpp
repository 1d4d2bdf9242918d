// Preloaded into programs that run under qemu's user emulation. It passes the kernel's descriptors of
// processes on when they are waited for, and refuses to make them; Qt, which asks for the one, relies on the
// other and starts no child. So the kernel seems to have neither, and Qt starts children as on an older one.
// A child gets none of this.

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

__attribute__((constructor)) void leaveChildrenAlone()
{
    unsetenv("LD_PRELOAD");
}

} // namespace

extern "C" long syscall(long number, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, number);
    long values[6];
    for (long &value : values) {
        value = va_arg(arguments, long);
    }
    va_end(arguments);
    constexpr long byDescriptor = 3; // P_PIDFD
    if (number == SYS_waitid && values[0] == byDescriptor) {
        errno = EINVAL;
        return -1;
    }
    static const auto real = reinterpret_cast<decltype(&syscall)>(dlsym(RTLD_NEXT, "syscall"));
    return real(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}
