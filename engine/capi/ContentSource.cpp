#include "ContentSource.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <span>
#include <vector>

#include "Boundary.h"
#include "Raise.h"
#include "VoleUtil.h"
#include "io/ForeignMemBufferBase.h"
#include "io/RegularFile.h"
#include "io/SmartBufferBase.h"

namespace {

using ZOV_SPACE::SmartBufferBase;

constexpr std::uint64_t kLargestContent = 0x7FFFFFFF;  // Bytes; positions have 31 bits where long has 32.
constexpr long kStreamInMemory = 16L << 20;
constexpr std::size_t kStreamPiece = std::size_t{256} << 10;

ContentSource failed(vole_error error, std::string text) { return {nullptr, error, std::move(text)}; }

// The size in bytes of what can be read at any position; nothing, with errno set, where there is no such thing.
std::optional<std::uint64_t> seekableSize(int fd) {
    struct stat status;
    if (::fstat(fd, &status) != 0) return std::nullopt;
    if (S_ISREG(status.st_mode)) return static_cast<std::uint64_t>(status.st_size);
    std::uint64_t size = 0;
    if (S_ISBLK(status.st_mode) && ::ioctl(fd, BLKGETSIZE64, &size) == 0) return size;
    errno = S_ISDIR(status.st_mode) ? EISDIR : ESPIPE;
    return std::nullopt;
}

// Reads a file from its start.
struct FromStart {
    int fd;
    std::int64_t position = 0;

    static std::ptrdiff_t read(void* context, void* buffer, std::size_t size) {
        auto& file = *static_cast<FromStart*>(context);
        const int count = VoleUtil::readnAt(file.fd, static_cast<char*>(buffer), static_cast<int>(size), file.position);
        file.position += std::max(count, 0);
        return count;
    }
};

ContentSource contentOfFile(int fd, std::uint64_t size, std::uint64_t most, ReportingScan& scan) {
    char first;
    if (size == 0 && VoleUtil::readnAt(fd, &first, 1, 0) != 0) {  // Some file systems know no sizes.
        FromStart file{fd};
        return contentOfStream(FromStart::read, &file, most, scan);
    }
    if (!fits(size, most, scan)) return {};
    ContentSource source;
    source.content = VoleUtil::getSmartBufferBase(fd, static_cast<unsigned int>(size));
    if (!source.content) return failed(VOLE_E_IO, kUnreadableFile);
    if (static_cast<std::uint64_t>(source.content->getSize()) < size) {
        scan.refuse(Unseen::io, "the file became shorter while it was read");
    }
    return source;
}

ContentSource notAFile() { return failed(VOLE_E_NOT_FILE, vole_error_text(VOLE_E_NOT_FILE)); }

}  // namespace

bool fits(std::uint64_t size, std::uint64_t most, ReportingScan& scan) {
    if (most != 0 && size > most) {
        scan.refuse(Unseen::sizeLimit, "the content is larger than the limit");
        return false;
    }
    if (size > kLargestContent) {
        scan.refuse(Unseen::sizeLimit, "the content is larger than 2^31 - 1 bytes");
        return false;
    }
    return true;
}

OpenedContent openContent(const char* path) {
    ZOV_SPACE::OwnFd file = ZOV_SPACE::openForReading(path);
    // A socket, and a device without its driver, cannot even be opened.
    const bool isNoFile = !file && (errno == ENXIO || errno == ENODEV);
    if (!file && !isNoFile) return {{}, 0, capi::errorOfPath(errno), ZOV_SPACE::systemErrorText()};
    const auto size = file ? ZOV_SPACE::regularFileSize(file.get()) : std::nullopt;
    if (!size) return {{}, 0, VOLE_E_NOT_FILE, vole_error_text(VOLE_E_NOT_FILE)};
    return {std::move(file), *size};
}

std::optional<ContentSource> whyNotSeekable(int fd) {
    if (seekableSize(fd)) return std::nullopt;
    return errno == EBADF ? failed(VOLE_E_ARGUMENT, ZOV_SPACE::systemErrorText(errno)) : notAFile();
}

ContentSource contentOfPath(const char* path, std::uint64_t most, ReportingScan& scan) {
    OpenedContent opened = openContent(path);
    if (opened.error != VOLE_OK) return failed(opened.error, std::move(opened.errorText));
    return contentOfFile(opened.file.get(), opened.size, most, scan);
}

ContentSource contentOfDescriptor(int fd, std::uint64_t most, ReportingScan& scan) {
    const auto size = seekableSize(fd);
    if (size) return contentOfFile(fd, *size, most, scan);
    return std::move(*whyNotSeekable(fd));
}

ContentSource contentOfMemory(const void* data, std::size_t size, std::uint64_t most, ReportingScan& scan) {
    if (!fits(size, most, scan)) return {};
    ContentSource source;
    source.content = std::make_unique<ZOV_SPACE::ForeignMemBufferBase>(std::span(static_cast<const char*>(data), size));
    return source;
}

ContentSource contentOfStream(vole_read_fn read, void* context, std::uint64_t most, ReportingScan& scan) {
    auto spool = std::make_unique<SmartBufferBase>(0, ZOV_SPACE::kMemoryOrFilePolicy, kStreamInMemory);
    std::vector<char> piece(kStreamPiece);
    std::uint64_t size = 0;
    for (;;) {
        scan.checkpoint();
        const std::ptrdiff_t count = read(context, piece.data(), piece.size());
        if (count < 0 || static_cast<std::size_t>(count) > piece.size()) {
            return failed(VOLE_E_IO, kUnreadableStream);
        }
        if (count == 0) break;
        size += static_cast<std::uint64_t>(count);
        if (!fits(size, most, scan)) return {};
        try {
            spool->write(spool->getSize(), piece.data(), static_cast<int>(count));
        } catch (ZOV_SPACE::IOException& e) {
            return failed(VOLE_E_IO, e.toString());
        }
    }
    ContentSource source;
    source.content = std::move(spool);
    return source;
}
