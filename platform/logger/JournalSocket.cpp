#include "platform/logger/JournalSocket.h"

#include "platform/Descriptor.h"

#include <QtEndian>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

/// A value with a line feed comes behind its length, so that none can look like a field of its own.
QByteArray encoded(const JournalSocket::Fields &fields)
{
    QByteArray entry;
    for (const auto &[name, value] : fields) {
        entry += name;
        if (value.contains('\n')) {
            const quint64 size = qToLittleEndian(static_cast<quint64>(value.size()));
            entry += '\n';
            entry.append(reinterpret_cast<const char *>(&size), sizeof(size));
        } else {
            entry += '=';
        }
        entry += value + '\n';
    }
    return entry;
}

} // namespace

JournalSocket::JournalSocket(QByteArray path)
    : path(std::move(path)), number(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const timeval patience = {.tv_sec = 1, .tv_usec = 0};
    setsockopt(number, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
}

JournalSocket::~JournalSocket()
{
    if (number >= 0) {
        close(number);
    }
}

bool JournalSocket::send(const Fields &fields) const
{
    const QByteArray entry = encoded(fields);
    return sendMessage(entry, -1) || ((errno == EMSGSIZE || errno == ENOBUFS) && sendFile(entry));
}

bool JournalSocket::sendFile(const QByteArray &entry) const
{
    const Descriptor file(memfd_create("journal-entry", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
    return file.isOpen() && writeAll(file, entry) && fcntl(file.number(), F_ADD_SEALS, seals) == 0 &&
           sendMessage({}, file.number());
}

/// The journal may have been started anew since the last one: the address goes with each.
bool JournalSocket::sendMessage(const QByteArray &entry, int file) const
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= static_cast<qsizetype>(sizeof(address.sun_path))) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    iovec part = {const_cast<char *>(entry.constData()), static_cast<size_t>(entry.size())};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = entry.isEmpty() ? 0 : 1;
    if (file >= 0) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(header), &file, sizeof(file));
    }
    ssize_t sent = -1;
    do {
        sent = sendmsg(number, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}
