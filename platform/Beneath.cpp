#include "platform/Beneath.h"

#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int lookupFlags = O_PATH | O_CLOEXEC;
/// The kernel gives a look-up up when directories move meanwhile.
constexpr int tries = 8;

Beneath::State stateOf(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
        return Beneath::State::Missing;
    case EXDEV:
        return Beneath::State::LeadsOut;
    default:
        return Beneath::State::Unreadable;
    }
}

Beneath::Opened opened(int number)
{
    const int error = errno;
    return {Descriptor(number), number < 0 ? stateOf(error) : Beneath::State::Open};
}

/// Empty when there is no such path; errno says why.
QByteArray canonical(const QByteArray &path)
{
    const std::unique_ptr<char, decltype(&std::free)> found(realpath(path.constData(), nullptr), &std::free);
    return {found.get()};
}

} // namespace

Beneath::Beneath(const QString &path, Lookup lookup) : root(QFile::encodeName(path)), lookup(lookup)
{
    Opened found = opened(open(root.constData(), lookupFlags | O_NOFOLLOW));
    const mode_t mode = found.descriptor.status().st_mode;
    if (found.state == State::Open && !S_ISDIR(mode)) {
        found.state = S_ISLNK(mode) ? State::LeadsOut : State::WrongKind;
    }
    state = found.state;
    directory = std::move(found.descriptor);
}

Beneath::Opened Beneath::openRegular(const QByteArray &path) const
{
    Opened found = find(path);
    if (found.state != State::Open) {
        return found;
    }
    if (!S_ISREG(found.descriptor.status().st_mode)) {
        return {{}, State::WrongKind};
    }
    Opened file = {openedForReading(found.descriptor), State::Open};
    file.state = file.descriptor.isOpen() ? State::Open : State::Unreadable;
    return file;
}

Beneath::Opened Beneath::openDirectory(const QByteArray &path) const
{
    Opened found = find(path);
    if (found.state != State::Open) {
        return found;
    }
    if (!S_ISDIR(found.descriptor.status().st_mode)) {
        return {{}, State::WrongKind};
    }
    return opened(openat(found.descriptor.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Beneath::Opened Beneath::find(const QByteArray &path) const
{
    if (state != State::Open) {
        return {{}, state};
    }
    Opened found = lookup == Lookup::Whole ? findWhole(path.isEmpty() ? "." : path) : findStepwise(path);
    // An absolute link may lead back inside.
    return found.state == State::LeadsOut ? findCanonical(path) : std::move(found);
}

Beneath::Opened Beneath::findWhole(const QByteArray &path) const
{
    open_how how = {};
    how.flags = lookupFlags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    long number = -1;
    for (int left = tries; left > 0; --left) {
        number = syscall(SYS_openat2, directory.number(), path.constData(), &how, sizeof how);
        if (number >= 0 || errno != EAGAIN) {
            break;
        }
    }
    // A kernel without the call, or a filter that refuses it.
    if (number < 0 && (errno == ENOSYS || errno == EPERM)) {
        lookup = Lookup::Stepwise;
        return findStepwise(path);
    }
    return opened(static_cast<int>(number));
}

/// A path with a link in it counts as leading out.
Beneath::Opened Beneath::findStepwise(const QByteArray &path) const
{
    Opened found = opened(openat(directory.number(), ".", lookupFlags | O_NOFOLLOW));
    for (const QByteArray &part : path.split('/')) {
        if (part.isEmpty() || part == ".") {
            continue;
        }
        if (part == "..") {
            return {{}, State::LeadsOut};
        }
        found = opened(openat(found.descriptor.number(), part.constData(), lookupFlags | O_NOFOLLOW));
        if (found.state != State::Open) {
            return found;
        }
        if (S_ISLNK(found.descriptor.status().st_mode)) {
            return {{}, State::LeadsOut};
        }
    }
    return found;
}

Beneath::Opened Beneath::findCanonical(const QByteArray &path) const
{
    const QByteArray inside = canonical(root) + "/";
    const QByteArray target = canonical(root + "/" + path) + "/";
    return target.startsWith(inside) ? findStepwise(target.mid(inside.size())) : Opened{{}, State::LeadsOut};
}
