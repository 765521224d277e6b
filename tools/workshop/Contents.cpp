#include "Contents.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>

#include "Escape.h"
#include "Exception.h"
#include "Messages.h"
#include "Text.h"

namespace {

// What the library calls, and nothing may be thrown through.
struct Walk {
    ContentVisitor& visitor;
    std::exception_ptr failure = nullptr;

    static int onEvent(void* context, const vole_event* event) noexcept {
        Walk& walk = *static_cast<Walk*>(context);
        if (!walk.failure) {
            try {
                walk.tell(*event);
            } catch (...) {
                walk.failure = std::current_exception();
            }
        }
        return walk.failure ? 1 : 0;
    }

    void tell(const vole_event& event) {
        if (event.content) {
            visitor.onContent({memberOf(event.member), *event.content});
        } else {
            visitor.onOther(event);
        }
    }
};

// `scan(vole_scanner*)` scans what is called `name`.
template <class Scan>
FileReport walk(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags, const std::string& name,
                ContentVisitor& visitor, Scan scan) {
    Walk walk{visitor};
    const ScannerHandle scanner = makeScanner(signatures, limits, flags | VOLE_SCAN_ALL_MATCHES | VOLE_SCAN_CONTENTS);
    vole_scanner_set_events(scanner.get(), Walk::onEvent, &walk);
    const vole_error error = scan(scanner.get());
    if (walk.failure) std::rethrow_exception(walk.failure);
    return reportOf(scanner.get(), name, error);
}

// Leaves the number of the error, if one comes, in the int that it is given.
ptrdiff_t readStandardInput(void* errorNumber, void* buffer, std::size_t size) {
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, buffer, size);
        if (count >= 0) return count;
        if (errno == EAGAIN) {  // Somebody else's pipe may not wait by itself.
            pollfd input{STDIN_FILENO, POLLIN, 0};
            ::poll(&input, 1, -1);
        } else if (errno != EINTR) {
            *static_cast<int*>(errorNumber) = errno;
            return count;
        }
    }
}

vole_error scanStandardInput(vole_scanner* scanner, int& errorNumber) {
    struct stat status;
    const bool isFile = ::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? vole_scan_fd(scanner, STDIN_FILENO, nullptr)
                  : vole_scan_stream(scanner, readStandardInput, &errorNumber, nullptr);
}

}  // namespace

void ContentVisitor::onOther(const vole_event&) {}

FileReport walkContents(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags,
                        const std::string& path, ContentVisitor& visitor) {
    return walk(signatures, limits, flags, path, visitor,
                [&path](vole_scanner* scanner) { return vole_scan_path(scanner, path.c_str(), nullptr); });
}

FileReport walkStandardInput(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags,
                             ContentVisitor& visitor) {
    int readError = 0;
    FileReport report = walk(signatures, limits, flags, "-", visitor,
                             [&readError](vole_scanner* scanner) { return scanStandardInput(scanner, readError); });
    if (readError != 0) report.error = "cannot read it: " + systemText(readError);
    return report;
}

std::size_t contents::readPiece(const vole_content& content, std::uint64_t offset, char* buffer) {
    const std::ptrdiff_t count = vole_content_read(&content, offset, buffer, kPiece);
    if (count <= 0) throw LoadError("the content cannot be read");
    return static_cast<std::size_t>(count);
}

std::unique_ptr<ZOV_SPACE::SmartBufferBase> copyOf(const vole_content& content) {
    constexpr long kMostInMemory = 64L << 20;
    const auto size = static_cast<long>(std::min<std::uint64_t>(content.size, std::numeric_limits<long>::max()));
    auto copy = std::make_unique<ZOV_SPACE::SmartBufferBase>(size, ZOV_SPACE::kMemoryOrFilePolicy, kMostInMemory);
    try {
        readPieces(content, [&copy](const char* piece, std::size_t count) {
            copy->write(copy->getSize(), piece, static_cast<int>(count));
        });
    } catch (ZOV_SPACE::Exception& e) {
        throw LoadError(std::string("the content cannot be kept: ") + e.getMessage());
    }
    return copy;
}

void digestOf(const vole_content& content, unsigned char (&digest)[Md5::kDigestSize]) {
    Md5 md5;
    readPieces(content, [&md5](const char* piece, std::size_t count) { md5.MD5Update(piece, count); });
    md5.MD5Final(digest);
}

std::string md5Of(const vole_content& content) {
    unsigned char digest[Md5::kDigestSize];
    digestOf(content, digest);
    return ZOV_SPACE::text::hexOf(digest);
}

std::string displayName(const std::string& file, const MemberPath& member) {
    std::string name;
    appendEscaped(name, file);
    for (const std::string& component : member) {
        name += '/';
        appendEscaped(name, component);
    }
    return name;
}
