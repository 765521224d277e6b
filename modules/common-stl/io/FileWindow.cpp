// A file seen through one block of 16 KiB, whose start is a multiple of its size. A small read or write selects the
// block it lies in: what waits in the old one is written out, then the new one is read as far as there is content.
// Written bytes are remembered as one range, from the first to the last of them; what lies between was read, so that
// writing all of the range changes nothing else. What does not fit into one block goes to the file at once.
//
// When the file cannot be written, the block stays as it is: its bytes can be read, and the next flush tries again.
#include "io/FileWindow.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "BufferSupport.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {

long readFile(int fd, char* buf, long n, long pos) {
    const std::int64_t count = readAllAt(fd, buf, static_cast<std::size_t>(n), pos);
    if (count < 0) kBufferUnit.raise<IOException>(systemErrorText());
    return static_cast<long>(count);
}

void writeFile(int fd, const char* buf, long n, long pos) {
    if (!writeAllAt(fd, buf, static_cast<std::size_t>(n), pos)) kBufferUnit.raise<IOException>(systemErrorText());
}

int FileWindow::read(int fd, long pos, char* buf, int n, long contentEnd) {
    int done = 0;
    while (done < n) {
        if (!holds(pos + done)) {
            if (n - done >= kBytes) {
                flush(fd);
                return done + static_cast<int>(readFile(fd, buf + done, n - done, pos + done));
            }
            select(fd, pos + done, contentEnd);
            if (!holds(pos + done)) break;
        }
        const int offset = static_cast<int>(pos + done - _start);
        const int piece = std::min(n - done, _filled - offset);
        std::memcpy(buf + done, _bytes.get() + offset, static_cast<std::size_t>(piece));
        done += piece;
    }
    return done;
}

void FileWindow::write(int fd, long pos, const char* buf, int n, long contentEnd) {
    if (n < 1) return;
    const int offset = static_cast<int>(pos % kBytes);
    if (n > kBytes - offset) {
        flush(fd);
        drop();
        // What makes the file longer first: on a full disk that fails, and nothing is overwritten yet.
        const int inside = static_cast<int>(std::clamp<long>(contentEnd - pos, 0, n));
        writeFile(fd, buf + inside, n - inside, pos + inside);
        writeFile(fd, buf, inside, pos);
        return;
    }
    select(fd, pos, contentEnd);
    if (offset > _filled) kBufferUnit.raise<IOException>(systemErrorText(EIO));  // Somebody shortened the file.
    std::memcpy(_bytes.get() + offset, buf, static_cast<std::size_t>(n));
    _filled = std::max(_filled, offset + n);
    _dirtyBegin = _dirtyEnd > 0 ? std::min(_dirtyBegin, offset) : offset;
    _dirtyEnd = std::max(_dirtyEnd, offset + n);
}

void FileWindow::flush(int fd) {
    if (_dirtyEnd == 0) return;
    writeFile(fd, _bytes.get() + _dirtyBegin, _dirtyEnd - _dirtyBegin, _start + _dirtyBegin);
    _dirtyBegin = _dirtyEnd = 0;
}

void FileWindow::truncate(long contentEnd) {
    const int kept = static_cast<int>(std::clamp<long>(contentEnd - _start, 0, kBytes));
    _filled = std::min(_filled, kept);
    _dirtyEnd = std::min(_dirtyEnd, kept);
    if (_dirtyBegin >= _dirtyEnd) _dirtyBegin = _dirtyEnd = 0;
}

void FileWindow::drop() {
    _selected = false;
    _filled = _dirtyBegin = _dirtyEnd = 0;
}

// Makes the window the block that `pos` lies in.
void FileWindow::select(int fd, long pos, long contentEnd) {
    const long start = pos - pos % kBytes;
    if (_selected && _start == start) return;
    flush(fd);
    drop();
    if (!_bytes) _bytes.reset(new (std::nothrow) char[kBytes]);
    if (!_bytes) kBufferUnit.raise<IOException>(systemErrorText(ENOMEM));
    const long wanted = std::clamp<long>(contentEnd - start, 0, kBytes);
    _filled = static_cast<int>(readFile(fd, _bytes.get(), wanted, start));
    _start = start;
    _selected = true;
}

}  // namespace ZOV_SPACE
