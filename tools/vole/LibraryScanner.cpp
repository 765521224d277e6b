#include "LibraryScanner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include "Messages.h"

namespace {

// Leaves the number of the error, if one comes, in the int that it is given.
ptrdiff_t readStandardInput(void* errorNumber, void* buffer, std::size_t size) {
    for (;;) {
        if (!waitReadable(STDIN_FILENO)) return 0;  // The scanner is cancelled by now, and says so.
        const ssize_t bytes = ::read(STDIN_FILENO, buffer, size);
        if (bytes >= 0) return bytes;
        if (errno == EINTR || errno == EAGAIN) continue;
        *static_cast<int*>(errorNumber) = errno;
        return bytes;
    }
}

}  // namespace

LibraryScanner::LibraryScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags)
    : _scanner(makeScanner(signatures, limits, flags)), _cancelling(_scanner.get()) {}

FileReport LibraryScanner::scan(const Target& target) {
    if (target.standardInput) return scanStandardInput(target.path);
    return reportOn(target.path, vole_scan_path(_scanner.get(), target.path.c_str(), nullptr));
}

FileReport LibraryScanner::scanOpen(const std::string& path, int fd) {
    return reportOn(path, vole_scan_fd(_scanner.get(), fd, nullptr));
}

FileReport LibraryScanner::scanStandardInput(const std::string& name) {
    struct stat status;
    if (::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) return scanOpen(name, STDIN_FILENO);
    int readError = 0;
    FileReport report = reportOn(name, vole_scan_stream(_scanner.get(), readStandardInput, &readError, nullptr));
    if (readError != 0) report.error = "cannot read it: " + systemText(readError);
    return report;
}

FileReport LibraryScanner::reportOn(const std::string& path, vole_error error) const {
    return reportOf(_scanner.get(), path, error);
}
