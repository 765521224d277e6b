// FileWindow: one cached, aligned block of a file, so that small reads and writes do not cost a system call each.
// Large ones pass it by. The descriptor stays the caller's and is given to every call.
//
// Written bytes may wait in the window until flush(), or until another block is needed. When writing them out fails,
// they stay in the window, readable, and the operation that needed them written throws; the next one tries again.
//   Throws:  IOException with the system error text.
//   Threads: one at a time; the buffers above hold their mutex.
#ifndef COMMON_STL_IO_FILEWINDOW_H
#define COMMON_STL_IO_FILEWINDOW_H

#include <memory>

namespace ZOV_SPACE {

class FileWindow {
public:
    static constexpr int kBytes = 16384;

    // Copies the bytes [pos, pos + n) and returns their number: fewer than `n` when the file itself ends early.
    // REQUIRES: 0 <= pos, n >= 0, pos + n <= contentEnd.
    int read(int fd, long pos, char* buf, int n, long contentEnd);
    // REQUIRES: 0 <= pos <= contentEnd, n >= 0. When the file cannot grow, nothing before contentEnd changes.
    void write(int fd, long pos, const char* buf, int n, long contentEnd);
    void flush(int fd);
    // Bytes from contentEnd on are no longer content.
    void truncate(long contentEnd);
    // Forgets the block. REQUIRES: flushed, or its unwritten bytes are no longer content.
    void drop();

private:
    bool holds(long pos) const { return _filled > 0 && pos >= _start && pos - _start < _filled; }
    void select(int fd, long pos, long contentEnd);

    std::unique_ptr<char[]> _bytes;  // kBytes, made at the first use.
    long _start = 0;                 // A multiple of kBytes.
    int _filled = 0;                 // Bytes that mirror the file, or will once flushed.
    int _dirtyBegin = 0;
    int _dirtyEnd = 0;  // Bytes [_dirtyBegin, _dirtyEnd) are not in the file yet.
    bool _selected = false;
};

// The whole range; IOException otherwise. The read returns fewer bytes only at the file's end.
long readFile(int fd, char* buf, long n, long pos);
void writeFile(int fd, const char* buf, long n, long pos);

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FILEWINDOW_H
