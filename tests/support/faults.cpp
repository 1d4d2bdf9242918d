#include "tests/support/FaultControl.h"

#include <algorithm>
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

template <typename... Arguments> long raw(long number, Arguments... arguments)
{
    static const auto real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    return real(number, arguments...);
}

FaultControl *mapControl()
{
    const char *const file = getenv("FAULT_CONTROL");
    const long opened = file != nullptr ? raw(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC) : -1;
    void *mapped = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, int(opened), 0);
    if (mapped == MAP_FAILED) {
        abort();
    }
    raw(SYS_close, opened);
    auto *control = static_cast<FaultControl *>(mapped);
    if (Text(program_invocation_short_name) == "FastService") {
        control->service = getpid();
    }
    return control;
}

FaultControl &control()
{
    static FaultControl *const shared = mapControl();
    return *shared;
}

[[gnu::constructor]] void begin()
{
    control();
}

Text targetOf(const Text &link)
{
    char target[PATH_MAX];
    const ssize_t size = readlink(link.c_str(), target, sizeof target);
    return {target, size_t(std::max<ssize_t>(size, 0))};
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
    return path.starts_with(control().root.data()) && !path.ends_with(".log");
}

/// True when the call has to fail.
bool strikes(FaultControl::Class kind)
{
    FaultControl &shared = control();
    if (++shared.counts[kind] != shared.at || kind != shared.struckClass) {
        return false;
    }
    if (shared.error == 0) {
        raw(SYS_kill, shared.service.load(), SIGKILL);
    }
    errno = shared.error;
    return shared.error != 0;
}

template <typename... Arguments>
long act(FaultControl::Class kind, const Text &place, long number, Arguments... arguments)
{
    return concerns(place) && strikes(kind) ? -1 : raw(number, arguments...);
}

void note(FaultEvent::Kind kind, const Text &first, const Text &second = {}, ino_t inode = 0,
          off_t offset = 0)
{
    if (control().journal.front() == 0 || !concerns(first)) {
        return;
    }
    const int saved = errno;
    FaultEvent event = {inode, offset, kind, uint32_t(first.size()), uint32_t(second.size()), 0};
    const long journal =
        raw(SYS_openat, AT_FDCWD, control().journal.data(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    const iovec parts[] = {{&event, sizeof event},
                           {const_cast<char *>(first.data()), first.size()},
                           {const_cast<char *>(second.data()), second.size()}};
    raw(SYS_writev, journal, parts, 3);
    raw(SYS_close, journal);
    errno = saved;
}

ino_t inodeOf(int file)
{
    struct stat status = {};
    fstat(file, &status);
    return status.st_ino;
}

int openFile(int directory, const char *name, int flags, long number, auto third, auto fourth)
{
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    const Text path = pathOf(directory, name);
    const auto kind = writes ? FaultControl::OpenForWriting : FaultControl::OpenForReading;
    const int file = int(act(kind, path, number, directory, name, third, fourth));
    const bool unnamed = (flags & O_TMPFILE) == O_TMPFILE;
    if (file >= 0 && (unnamed || (flags & O_CREAT) != 0)) {
        note(FaultEvent::Created, path, unnamed ? "unnamed" : "", inodeOf(file));
    }
    if (file >= 0 && (flags & O_TRUNC) != 0) {
        note(FaultEvent::Cut, path, {}, inodeOf(file), 0);
    }
    return file;
}

int openFile(int directory, const char *name, int flags, mode_t mode)
{
    return openFile(directory, name, flags, SYS_openat, flags, mode);
}

long anyCall(long number, long first, long second, long third, long fourth, long fifth, long sixth)
{
    if (number != SYS_openat2) {
        return raw(number, first, second, third, fourth, fifth, sixth);
    }
    const auto flags = int(reinterpret_cast<const open_how *>(third)->flags);
    return openFile(int(first), reinterpret_cast<const char *>(second), flags, number, third, fourth);
}

ssize_t writeFile(int file, const void *bytes, long number, auto... rest)
{
    const Text path = pathOf(file);
    const ssize_t count = act(FaultControl::Write, path, number, file, bytes, rest...);
    if (count > 0 && concerns(path)) {
        off_t offset = 0;
        if constexpr (sizeof...(rest) == 2) {
            ((offset = off_t(rest)), ...);
        } else {
            offset = lseek(file, 0, SEEK_CUR) - count;
        }
        note(FaultEvent::Written, path, {static_cast<const char *>(bytes), size_t(count)}, inodeOf(file),
             offset);
    }
    return count;
}

int syncFile(int file, bool all)
{
    const Text path = pathOf(file);
    struct stat status = {};
    if (!concerns(path) || fstat(file, &status) != 0) {
        return 0;
    }
    if (strikes(FaultControl::Sync)) {
        return -1;
    }
    note(all                       ? FaultEvent::AllSynced
         : S_ISDIR(status.st_mode) ? FaultEvent::DirectorySynced
                                   : FaultEvent::FileSynced,
         path, {}, status.st_ino);
    return 0;
}

int moveFile(int fromDirectory, const char *from, int toDirectory, const char *to, unsigned flags)
{
    const Text path = pathOf(fromDirectory, from);
    const long done =
        act(FaultControl::Rename, path, SYS_renameat2, fromDirectory, from, toDirectory, to, flags);
    if (done == 0) {
        note((flags & RENAME_EXCHANGE) != 0 ? FaultEvent::Exchanged : FaultEvent::Moved, path,
             pathOf(toDirectory, to));
    }
    return int(done);
}

int removeFile(int directory, const char *name, int flags)
{
    const Text path = pathOf(directory, name);
    const long done = act(FaultControl::Remove, path, SYS_unlinkat, directory, name, flags);
    if (done == 0) {
        note(FaultEvent::Removed, path);
    }
    return int(done);
}

int cutFile(int file, off_t length)
{
    const Text path = pathOf(file);
    const long done = act(FaultControl::Write, path, SYS_ftruncate, file, length);
    if (done == 0) {
        note(FaultEvent::Cut, path, {}, inodeOf(file), length);
    }
    return int(done);
}

int linkFile(int fromDirectory, const char *from, int toDirectory, const char *to, int flags)
{
    const Text path = pathOf(toDirectory, to);
    const long done =
        act(FaultControl::Rename, path, SYS_linkat, fromDirectory, from, toDirectory, to, flags);
    struct stat status = {};
    if (done == 0 && lstat(path.c_str(), &status) == 0) {
        note(FaultEvent::Linked, path, {}, status.st_ino);
    }
    return int(done);
}

int removeAnything(const char *name)
{
    const int done = removeFile(AT_FDCWD, name, 0);
    return done != 0 && errno == EISDIR ? removeFile(AT_FDCWD, name, AT_REMOVEDIR) : done;
}

int makeDirectory(int directory, const char *name, mode_t mode)
{
    return int(act(FaultControl::MakeDirectory, pathOf(directory, name), SYS_mkdirat, directory, name, mode));
}

int connectTo(int socket, const sockaddr *address, socklen_t size)
{
    const bool internet = address->sa_family == AF_INET || address->sa_family == AF_INET6;
    return internet && strikes(FaultControl::Connect) ? -1 : int(raw(SYS_connect, socket, address, size));
}

} // namespace

// Arguments that are left out where the real function takes any number are not looked at.
#define STANDS_IN(type, name, parameters, ...)                                                               \
    extern "C" type standIn_##name parameters asm(#name);                                                    \
    type standIn_##name parameters                                                                           \
    {                                                                                                        \
        return __VA_ARGS__;                                                                                  \
    }

STANDS_IN(int, open, (const char *path, int flags, mode_t mode), openFile(AT_FDCWD, path, flags, mode))
STANDS_IN(int, open64, (const char *path, int flags, mode_t mode), openFile(AT_FDCWD, path, flags, mode))
STANDS_IN(int, openat, (int at, const char *path, int flags, mode_t mode), openFile(at, path, flags, mode))
STANDS_IN(int, openat64, (int at, const char *path, int flags, mode_t mode), openFile(at, path, flags, mode))
STANDS_IN(int, __open_2, (const char *path, int flags), openFile(AT_FDCWD, path, flags, 0))
STANDS_IN(int, __openat_2, (int at, const char *path, int flags), openFile(at, path, flags, 0))
STANDS_IN(int, creat, (const char *path, mode_t mode),
          openFile(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode))
STANDS_IN(long, syscall, (long number, long a, long b, long c, long d, long e, long f),
          anyCall(number, a, b, c, d, e, f))
STANDS_IN(ssize_t, read, (int file, void *to, size_t size),
          act(FaultControl::Read, pathOf(file), SYS_read, file, to, size))
STANDS_IN(ssize_t, pread, (int file, void *to, size_t size, off_t at),
          act(FaultControl::Read, pathOf(file), SYS_pread64, file, to, size, at))
STANDS_IN(ssize_t, pread64, (int file, void *to, size_t size, off_t at),
          act(FaultControl::Read, pathOf(file), SYS_pread64, file, to, size, at))
STANDS_IN(ssize_t, write, (int file, const void *from, size_t size), writeFile(file, from, SYS_write, size))
STANDS_IN(ssize_t, pwrite, (int file, const void *from, size_t size, off_t at),
          writeFile(file, from, SYS_pwrite64, size, at))
STANDS_IN(ssize_t, pwrite64, (int file, const void *from, size_t size, off_t at),
          writeFile(file, from, SYS_pwrite64, size, at))
STANDS_IN(int, ftruncate, (int file, off_t length), cutFile(file, length))
STANDS_IN(int, ftruncate64, (int file, off_t length), cutFile(file, length))
STANDS_IN(int, fsync, (int file), syncFile(file, false))
STANDS_IN(int, fdatasync, (int file), syncFile(file, false))
STANDS_IN(int, syncfs, (int file), syncFile(file, true))
STANDS_IN(int, rename, (const char *from, const char *to), moveFile(AT_FDCWD, from, AT_FDCWD, to, 0))
STANDS_IN(int, renameat, (int at, const char *from, int below, const char *to),
          moveFile(at, from, below, to, 0))
STANDS_IN(int, renameat2, (int at, const char *from, int below, const char *to, unsigned flags),
          moveFile(at, from, below, to, flags))
STANDS_IN(int, linkat, (int at, const char *from, int below, const char *to, int flags),
          linkFile(at, from, below, to, flags))
STANDS_IN(int, unlink, (const char *path), removeFile(AT_FDCWD, path, 0))
STANDS_IN(int, unlinkat, (int at, const char *path, int flags), removeFile(at, path, flags))
STANDS_IN(int, rmdir, (const char *path), removeFile(AT_FDCWD, path, AT_REMOVEDIR))
STANDS_IN(int, remove, (const char *path), removeAnything(path))
STANDS_IN(int, mkdir, (const char *path, mode_t mode), makeDirectory(AT_FDCWD, path, mode))
STANDS_IN(int, mkdirat, (int at, const char *path, mode_t mode), makeDirectory(at, path, mode))
STANDS_IN(int, connect, (int socket, const sockaddr *address, socklen_t size),
          connectTo(socket, address, size))
