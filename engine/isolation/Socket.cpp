#include "Socket.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace isolation {
namespace {

// Room for one descriptor, aligned as the system wants it.
union Control {
    cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
};

// The descriptor of a message; the system has no way to send half of one.
ZOV_SPACE::OwnFd descriptorOf(const msghdr& message) {
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) return {};
    int fd;
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return ZOV_SPACE::OwnFd(fd);
}

}  // namespace

// The calls themselves: 32-bit C libraries may take the way that all socket calls share, which a worker may not.
bool sendMessage(int socket, std::span<const std::byte> message, int fd, Waiting waiting) {
    iovec bytes{const_cast<std::byte*>(message.data()), message.size()};
    msghdr header{};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    Control control{};
    if (fd >= 0) {
        header.msg_control = &control;
        header.msg_controllen = sizeof control.bytes;
        cmsghdr* const rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof fd);
        std::memcpy(CMSG_DATA(rights), &fd, sizeof fd);
    }
    const int flags = MSG_NOSIGNAL | (waiting == Waiting::no ? MSG_DONTWAIT : 0);
    long sent;
    do {
        sent = ::syscall(SYS_sendmsg, socket, &header, flags);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

std::optional<Received> receiveMessage(int socket, std::span<std::byte> room, Waiting waiting) {
    iovec bytes{room.data(), room.size()};
    Control control{};
    msghdr header{};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    header.msg_control = &control;
    header.msg_controllen = CMSG_LEN(sizeof(int));  // In what follows for alignment another one would have room.
    const int flags = MSG_CMSG_CLOEXEC | (waiting == Waiting::no ? MSG_DONTWAIT : 0);
    long size;
    do {
        size = ::syscall(SYS_recvmsg, socket, &header, flags);
    } while (size < 0 && errno == EINTR);
    if (size < 0) return std::nullopt;
    Received received{static_cast<std::size_t>(size), descriptorOf(header)};
    if (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) {
        errno = EPROTO;
        return std::nullopt;
    }
    return received;
}

}  // namespace isolation
