#include "Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "Messages.h"

namespace {

constexpr std::size_t kBlockBytes = 64 * 1024;

// 0, or the error number of the write that failed.
int writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0) {
            return EIO;
        } else if (errno == EAGAIN) {
            // Others may have made it so: a pipe or terminal is shared with whoever has it open.
            pollfd writable{fd, POLLOUT, 0};
            ::poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

Output::Output(int fd) : _fd(fd), _isTerminal(::isatty(fd) == 1) {}

void Output::writeLine(std::string_view line, Urgency urgency) {
    if (failed()) return;
    _pending += line;
    _pending += '\n';
    if (urgency == Urgency::now || _isTerminal || _pending.size() >= kBlockBytes) flush();
}

bool Output::flush() {
    if (!failed()) _errorNumber = writeAll(_fd, _pending);
    _pending.clear();
    return !failed();
}

std::string Output::errorText() const { return systemText(_errorNumber); }
