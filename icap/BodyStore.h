// BodyStore: keeps the bytes of one body: the first in memory, and all of them in a file without a name once there are
// more than that. Nothing of it is left behind, however the process ends.
//   Throws:  std::system_error when the file cannot be made or written (a full disk), std::bad_alloc.
//   Threads: one at a time.
#ifndef VOLE_ICAP_BODY_STORE_H
#define VOLE_ICAP_BODY_STORE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace icap {

// Bytes that are in memory, or mapped into it while this lives.
class BodyBytes {
public:
    explicit BodyBytes(std::span<const char> inMemory) : _bytes(inMemory) {}
    BodyBytes(int fd, std::size_t size);
    BodyBytes(const BodyBytes&) = delete;
    BodyBytes& operator=(const BodyBytes&) = delete;
    ~BodyBytes();

    std::span<const char> get() const { return _bytes; }

private:
    std::span<const char> _bytes;
    bool _isMapped = false;
};

class BodyStore {
public:
    BodyStore(std::uint64_t memory, std::string tempDir) : _memoryLimit(memory), _tempDir(std::move(tempDir)) {}
    BodyStore(const BodyStore&) = delete;
    BodyStore& operator=(const BodyStore&) = delete;
    ~BodyStore();

    void write(std::span<const char> bytes);
    std::uint64_t size() const { return _size; }

    // The file that all bytes are in, at any position, or -1: they are in memory. Nothing may be written afterwards.
    int file();

    // All bytes, as long as this object is not changed.
    BodyBytes bytes();

    // Copies the next bytes, from the first on; 0 at the end.
    std::size_t read(std::span<char> buffer);

private:
    void openFile();
    void flush();

    const std::uint64_t _memoryLimit;
    const std::string _tempDir;
    std::vector<char> _memory;  // all bytes, or those that are not yet, or already, on their way to or from the file
    int _fd = -1;
    std::uint64_t _size = 0;
    std::uint64_t _readPos = 0;
    std::uint64_t _windowPos = 0;  // of what _memory holds when it is read from the file
    bool _isReading = false;
};

}  // namespace icap

#endif  // VOLE_ICAP_BODY_STORE_H
