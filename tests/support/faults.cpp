#include "tests/support/FaultControl.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

// Preloaded into the service and its children. Stands in for the library's calls, counts them, strikes the
// one that the control block names, and records what they change. Nothing is synced in fact: what a power cut
// would leave follows from the record.

namespace {

using Text = std::string;
using enum FaultControl::Class;

long raw(long number, auto... arguments)
{
    static const auto real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    return real(number, arguments...);
}

FaultControl *shared()
{
    static auto *const block = [] {
        const long file = raw(SYS_openat, AT_FDCWD, getenv("FAULT_CONTROL"), O_RDWR | O_CLOEXEC);
        void *mapped = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, int(file), 0);
        raw(SYS_close, file);
        return mapped == MAP_FAILED ? nullptr : static_cast<FaultControl *>(mapped);
    }();
    return block;
}

[[gnu::constructor]] void begin()
{
    if (Text(program_invocation_short_name) == "FastService") {
        shared()->service = getpid();
    }
}

Text targetOf(const Text &link)
{
    char target[PATH_MAX];
    const ssize_t size = readlink(link.c_str(), target, sizeof target);
    return {target, size_t(size < 0 ? 0 : size)};
}

Text pathOf(int file)
{
    return targetOf(file == AT_FDCWD ? Text("/proc/self/cwd") : "/proc/self/fd/" + std::to_string(file));
}

Text pathOf(int directory, const char *name)
{
    const Text path = *name == '/' ? Text(name) : pathOf(directory) + "/" + name;
    return path.starts_with("/proc/self/fd/") ? targetOf(path)
                                              : std::filesystem::path(path).lexically_normal().string();
}

bool concerns(const Text &path)
{
    return path.starts_with(shared()->root.data()) && !path.ends_with(".log");
}

/// True when the call has to fail.
bool strikes(FaultControl::Class kind)
{
    const int count = ++shared()->counts[kind];
    const bool reached =
        shared()->at > 0 && (shared()->error < 0 ? count >= shared()->at : count == shared()->at);
    if (!reached || kind != shared()->kind) {
        return false;
    }
    if (shared()->error == FaultControl::stops) {
        raw(SYS_kill, shared()->service.load(), SIGSTOP);
        return false;
    }
    if (shared()->error == 0) {
        raw(SYS_kill, shared()->service.load(), SIGKILL);
    }
    errno = std::abs(shared()->error);
    return errno != 0;
}

long act(FaultControl::Class kind, const Text &path, long number, auto... arguments)
{
    return concerns(path) && strikes(kind) ? -1 : raw(number, arguments...);
}

/// Record a change of a file: an open one, or what has the path.
void note(FaultEvent::Kind kind, const Text &path, const Text &second = {}, int file = -1, off_t offset = 0)
{
    if (shared()->journal.front() == 0 || !concerns(path)) {
        return;
    }
    const int error = errno;
    struct stat status = {};
    file < 0 ? lstat(path.c_str(), &status) : fstat(file, &status);
    FaultEvent event = {kind, uint32_t(path.size()), uint32_t(second.size()), status.st_ino, offset};
    const long journal = raw(SYS_openat, AT_FDCWD, shared()->journal.data(), O_WRONLY | O_APPEND | O_CLOEXEC);
    const iovec parts[] = {{&event, sizeof event},
                           {const_cast<char *>(path.data()), path.size()},
                           {const_cast<char *>(second.data()), second.size()}};
    raw(SYS_writev, journal, parts, 3);
    raw(SYS_close, journal);
    errno = error;
}

int change(FaultControl::Class kind, FaultEvent::Kind event, const Text &path, const Text &second,
           long number, auto... arguments)
{
    const long done = act(kind, path, number, arguments...);
    if (done == 0) {
        note(event, path, second);
    }
    return int(done);
}

int openFile(int at, const char *name, int flags, long third, long number = SYS_openat, long fourth = 0)
{
    const Text path = pathOf(at, name);
    const auto kind = (flags & O_ACCMODE) == O_RDONLY ? OpenForReading : OpenForWriting;
    const bool openat2 = number == SYS_openat2;
    const int file =
        int(act(kind, path, number, at, name, openat2 ? third : flags, openat2 ? fourth : third));
    const bool unnamed = (flags & O_TMPFILE) == O_TMPFILE;
    if (file >= 0 && (unnamed || (flags & O_CREAT) != 0)) {
        note(FaultEvent::Created, path, unnamed ? "unnamed" : "", file);
    }
    if (file >= 0 && (flags & O_TRUNC) != 0) {
        note(FaultEvent::Cut, path, {}, file);
    }
    return file;
}

long call(long number, long first, long second, long third, long fourth, long fifth, long sixth)
{
    if (number != SYS_openat2) {
        return raw(number, first, second, third, fourth, fifth, sixth);
    }
    const int flags = int(reinterpret_cast<const open_how *>(third)->flags);
    return openFile(int(first), reinterpret_cast<const char *>(second), flags, third, number, fourth);
}

/// At the file's own position when the offset is negative.
ssize_t writeFile(int file, const void *bytes, size_t size, off_t offset = -1)
{
    const Text path = pathOf(file);
    const ssize_t count = offset < 0 ? act(Write, path, SYS_write, file, bytes, size)
                                     : act(Write, path, SYS_pwrite64, file, bytes, size, offset);
    if (count > 0) {
        note(FaultEvent::Written, path, {static_cast<const char *>(bytes), size_t(count)}, file,
             offset < 0 ? lseek(file, 0, SEEK_CUR) - count : offset);
    }
    return count;
}

int cutFile(int file, off_t length)
{
    const long done = act(Write, pathOf(file), SYS_ftruncate, file, length);
    if (done == 0) {
        note(FaultEvent::Cut, pathOf(file), {}, file, length);
    }
    return int(done);
}

int syncFile(int file, FaultEvent::Kind kind)
{
    const Text path = pathOf(file);
    if (concerns(path) && strikes(Sync)) {
        return -1;
    }
    const bool directory = kind == FaultEvent::FileSynced && std::filesystem::is_directory(path);
    note(directory ? FaultEvent::DirectorySynced : kind, path, {}, file);
    return 0;
}

int moveFile(int at, const char *from, int below, const char *to, unsigned flags)
{
    return change(Rename, (flags & RENAME_EXCHANGE) != 0 ? FaultEvent::Exchanged : FaultEvent::Moved,
                  pathOf(at, from), pathOf(below, to), SYS_renameat2, at, from, below, to, flags);
}

int removeFile(int at, const char *name, int flags)
{
    return change(Remove, FaultEvent::Removed, pathOf(at, name), {}, SYS_unlinkat, at, name, flags);
}

int makeDirectory(int at, const char *name, mode_t mode)
{
    return int(act(MakeDirectory, pathOf(at, name), SYS_mkdirat, at, name, mode));
}

int connectTo(int socket, const sockaddr *to, socklen_t size)
{
    return to->sa_family == AF_INET && strikes(Connect) ? -1 : int(raw(SYS_connect, socket, to, size));
}

} // namespace

// A mode or argument that a caller has left out is not looked at.
#define STANDS_IN(type, name, parameters, ...)                                                               \
    extern "C" type standIn_##name parameters asm(#name);                                                    \
    type standIn_##name parameters                                                                           \
    {                                                                                                        \
        return __VA_ARGS__;                                                                                  \
    }

STANDS_IN(int, open, (const char *path, int flags, mode_t mode), openFile(AT_FDCWD, path, flags, mode))
STANDS_IN(int, openat, (int at, const char *path, int flags, mode_t mode), openFile(at, path, flags, mode))
STANDS_IN(int, creat, (const char *path, mode_t mode),
          openFile(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode))
STANDS_IN(long, syscall, (long n, long a, long b, long c, long d, long e, long f), call(n, a, b, c, d, e, f))
STANDS_IN(ssize_t, read, (int file, void *to, size_t size), act(Read, pathOf(file), SYS_read, file, to, size))
STANDS_IN(ssize_t, pread, (int file, void *to, size_t size, off_t offset),
          act(Read, pathOf(file), SYS_pread64, file, to, size, offset))
STANDS_IN(ssize_t, write, (int file, const void *from, size_t size), writeFile(file, from, size))
STANDS_IN(ssize_t, pwrite, (int file, const void *from, size_t size, off_t offset),
          writeFile(file, from, size, offset))
STANDS_IN(int, ftruncate, (int file, off_t length), cutFile(file, length))
STANDS_IN(int, fsync, (int file), syncFile(file, FaultEvent::FileSynced))
STANDS_IN(int, syncfs, (int file), syncFile(file, FaultEvent::AllSynced))
STANDS_IN(int, rename, (const char *from, const char *to), moveFile(AT_FDCWD, from, AT_FDCWD, to, 0))
STANDS_IN(int, renameat, (int at, const char *from, int below, const char *to),
          moveFile(at, from, below, to, 0))
STANDS_IN(int, renameat2, (int at, const char *from, int below, const char *to, unsigned flags),
          moveFile(at, from, below, to, flags))
STANDS_IN(int, linkat, (int at, const char *from, int below, const char *to, int flags),
          change(Rename, FaultEvent::Linked, pathOf(below, to), {}, SYS_linkat, at, from, below, to, flags))
STANDS_IN(int, unlink, (const char *path), removeFile(AT_FDCWD, path, 0))
STANDS_IN(int, unlinkat, (int at, const char *path, int flags), removeFile(at, path, flags))
STANDS_IN(int, rmdir, (const char *path), removeFile(AT_FDCWD, path, AT_REMOVEDIR))
STANDS_IN(int, remove, (const char *path),
          removeFile(AT_FDCWD, path, std::filesystem::is_directory(path) ? AT_REMOVEDIR : 0))
STANDS_IN(int, mkdir, (const char *path, mode_t mode), makeDirectory(AT_FDCWD, path, mode))
STANDS_IN(int, mkdirat, (int at, const char *path, mode_t mode), makeDirectory(at, path, mode))
STANDS_IN(int, connect, (int socket, const sockaddr *to, socklen_t size), connectTo(socket, to, size))
