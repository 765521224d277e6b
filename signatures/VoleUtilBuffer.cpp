// Reading of descriptors and buffers: whole files, lines, exact numbers of bytes. A file that is to be scanned is read
// straight into its buffer's memory, in one go, together with the rest of its last block, which tells whether it has
// grown since it was measured. One that is too large for that is looked at through a view, and only its end is probed.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <span>

#include "Exception.h"
#include "Text.h"
#include "VoleUtil.h"
#include "io/FileIo.h"
#include "io/IOBuffer.h"
#include "io/SmartBufferBase.h"
#include "util/Diag.h"

using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::SmartBufferBase;

namespace {

constexpr diag::Unit kDiag{"VoleUtil"};

constexpr unsigned kLargestFile = 0x7FFFFFFF;  // Bytes.
constexpr unsigned kTailBlock = 1024;  // A file that grows is noticed when it has more in its last block of this size.

// Reads the file's start into `space`, and what its last block holds beyond that into nowhere. The number of bytes read
// exceeds the space when the file has grown; -1 on an error.
std::int64_t readStart(int fd, std::span<char> space) {
    char beyond[kTailBlock];
    const std::size_t beyondSize = (kTailBlock - space.size() % kTailBlock) % kTailBlock;
    return ZOV_SPACE::transferAll(space.size(), [&](std::size_t done) {
        // cppcheck-suppress legacyUninitvar
        const iovec pieces[] = {{space.data() + done, space.size() - done}, {beyond, beyondSize}};
        return ::preadv(fd, pieces, std::size(pieces), static_cast<off_t>(done));
    });
}

void reportGrowth() { kDiag.at().dbg("Odd! read more than size!"); }

// Fills the buffer with up to `size` bytes; false when the file cannot be read or the buffer cannot take them.
bool fillInPlace(SmartBufferBase& buffer, int fd, long size, std::span<char> space) {
    const std::int64_t count = readStart(fd, space);
    if (count < 0) return false;
    if (count > size) reportGrowth();
    buffer.commitAppend(static_cast<long>(std::min<std::int64_t>(count, size)));
    return true;
}

// The same for storage that gives no access to its memory.
bool fillByCopy(SmartBufferBase& buffer, int fd, long size) {
    char block[8 * kTailBlock];
    for (long position = 0; position < size;) {
        const long left = size - position;
        const auto wanted = static_cast<int>(std::min<long>(left, sizeof block));
        const auto blocks = static_cast<int>(VoleUtil::alignUp(static_cast<std::uint32_t>(wanted), kTailBlock));
        int count = VoleUtil::readnAt(fd, block, blocks, position);
        if (count < 0) return false;
        if (count == 0) break;
        if (count > left) {
            reportGrowth();
            count = wanted;
        }
        if (buffer.append(block, count) != count) {
            kDiag.at().err("Fail to write to bufferbase.");
            return false;
        }
        position += count;
    }
    return true;
}

// How many of the `size` bytes the file has, which exceed the barrier; nothing when it cannot be read.
std::optional<long> probeSize(int fd, unsigned size) {
    char tail[kTailBlock];
    const unsigned tailPosition = VoleUtil::alignDown(size - 1, kTailBlock);
    const int tailSize = static_cast<int>(size - tailPosition);
    const int count = VoleUtil::readnAt(fd, tail, sizeof tail, tailPosition);
    if (count < 0) return std::nullopt;
    if (count > tailSize) reportGrowth();
    if (count >= tailSize) return static_cast<long>(size);

    struct stat status;
    if (::fstat(fd, &status) != 0) return std::nullopt;
    return static_cast<long>(std::min<std::int64_t>(status.st_size, size));
}

// A valid buffer, or null behind a message.
template <class Make>
std::unique_ptr<SmartBufferBase> makeBuffer(Make make) {
    std::unique_ptr<SmartBufferBase> buffer;
    try {
        buffer = make();
    } catch (const ZOV_SPACE::Exception&) {
        buffer.reset();
    } catch (const std::exception&) {
        buffer.reset();
    }
    if (buffer && buffer->isValid()) return buffer;
    kDiag.at().err("Fail to get SmartBufferBase from a File Descriptor.");
    return nullptr;
}

std::unique_ptr<SmartBufferBase> viewFile(int fd, unsigned size) {
    const std::optional<long> actualSize = probeSize(fd, size);
    if (!actualSize) return nullptr;
    return makeBuffer([&] { return SmartBufferBase::viewOf(fd, *actualSize); });
}

std::unique_ptr<SmartBufferBase> copyFile(int fd, long size) {
    auto buffer = makeBuffer([&] { return std::make_unique<SmartBufferBase>(size); });
    if (!buffer || size == 0) return buffer;
    const std::span<char> space = buffer->appendSpace(size);
    const bool filled = space.empty() ? fillByCopy(*buffer, fd, size) : fillInPlace(*buffer, fd, size, space);
    return filled ? std::move(buffer) : nullptr;
}

// Up to `room` bytes at the cursor, in place when they lie contiguously, else read into `buf`.
std::span<const char> nextChunk(IOBuffer& buffer, char* buf, int room) {
    const auto wanted = static_cast<std::size_t>(room);
    const std::span<const char> inPlace = buffer.view();
    if (inPlace.size() >= wanted) return inPlace.first(wanted);
    if (!inPlace.empty() && static_cast<long>(inPlace.size()) == buffer.getSize() - buffer.tell()) return inPlace;
    const int count = buffer.read(buf, room);
    return {buf, static_cast<std::size_t>(std::max(count, 0))};
}

}  // namespace

int VoleUtil::readn(int fd, char* buf, int n) {
    return static_cast<int>(ZOV_SPACE::readAll(fd, buf, static_cast<std::size_t>(std::max(n, 0))));
}

int VoleUtil::readnAt(int fd, char* buf, int n, std::int64_t position) {
    return static_cast<int>(ZOV_SPACE::readAllAt(fd, buf, static_cast<std::size_t>(std::max(n, 0)), position));
}

int VoleUtil::readn(IOBuffer* buffer, char* buf, int n) {
    if (!buffer) return -1;
    int total = 0;
    while (total < n) {
        const int count = buffer->read(buf + total, n - total);
        if (count < 1) break;
        total += count;
    }
    return total;
}

std::string_view VoleUtil::takeLine(std::string_view& text, std::size_t room) {
    std::string_view line = text.substr(0, room);
    const auto find = [&](char c) { return static_cast<const char*>(std::memchr(line.data(), c, line.size())); };
    const char* end = find('\n');
    if (!end) end = find('\r');
    if (end) line = line.substr(0, static_cast<std::size_t>(end - line.data()));
    text.remove_prefix(line.size() + (end ? 1 : 0));
    return ZOV_SPACE::text::upTo(line, '\0');
}

char* VoleUtil::readOneLine(char* buf, int size, IOBuffer* buffer) {
    if (!buf || !buffer || size <= 1) return nullptr;
    try {
        const long start = buffer->tell();
        const std::span<const char> chunk = nextChunk(*buffer, buf, size - 1);
        if (chunk.empty()) return nullptr;

        std::string_view rest(chunk.data(), chunk.size());
        const std::string_view line = takeLine(rest, rest.size());
        const std::size_t taken = chunk.size() - rest.size();
        std::memmove(buf, line.data(), line.size());
        buf[line.size()] = '\0';
        buffer->seek(SEEK_SET, start + static_cast<long>(taken));
        return buf;
    } catch (const ZOV_SPACE::Exception&) {
    } catch (const std::exception&) {
    }
    kDiag.at().err("Catch exception in VoleUtil::readOneLine()");
    buffer->seek(SEEK_SET, 0);
    return nullptr;
}

std::unique_ptr<SmartBufferBase> VoleUtil::getSmartBufferBase(int fd, unsigned int size) {
    if (size > kLargestFile) return nullptr;
    try {
        const auto signedSize = static_cast<long>(size);
        return signedSize > SmartBufferBase::_barrier ? viewFile(fd, size) : copyFile(fd, signedSize);
    } catch (const ZOV_SPACE::Exception&) {
    } catch (const std::exception&) {
    }
    return nullptr;  // Memory ran out, or a temporary file's disk did.
}
