// Socket.h: messages with descriptors on a socket that keeps messages apart.
#ifndef ENGINE_ISOLATION_SOCKET_H
#define ENGINE_ISOLATION_SOCKET_H

#include <cstddef>
#include <optional>
#include <span>

#include "io/OwnFd.h"

namespace isolation {

// Sends one message, with a descriptor unless `fd` is negative. False, with errno set, when it did not go; there is no
// signal. With kNoWait it fails with EAGAIN rather than wait for the other one to read.
enum class Waiting { yes, no };
bool sendMessage(int socket, std::span<const std::byte> message, int fd, Waiting waiting);

struct Received {
    std::size_t size = 0;  // 0: the other one has closed the socket.
    ZOV_SPACE::OwnFd fd = {};
};

// Waits for a message of at most `room` bytes; a longer one and more than one descriptor are errors. Nothing, with
// errno set, on an error.
std::optional<Received> receiveMessage(int socket, std::span<std::byte> room, Waiting waiting);

template <class Message>
bool sendMessage(int socket, const Message& message, int fd, Waiting waiting) {
    return sendMessage(socket, std::as_bytes(std::span(&message, 1)), fd, waiting);
}

}  // namespace isolation

#endif  // ENGINE_ISOLATION_SOCKET_H
