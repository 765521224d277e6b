#include "LibraryScanner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <exception>
#include <string>
#include <vector>

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

FileReport LibraryScanner::scan(const Target& target) {
    if (target.standardInput) return scanStandardInput(target.path);
    return reportOn(target.path, vole_scan_path(_scanner.get(), target.path.c_str(), nullptr));
}

void LibraryScanner::scanAll(std::span<const Target> targets, const Told& told) {
    if (targets.size() == 1) return FileScanner::scanAll(targets, told);
    struct Turn {
        const LibraryScanner& scanner;
        std::span<const Target> targets;
        const Told& told;
        std::exception_ptr failure = nullptr;  // Which must not get into the library.
    } turn{*this, targets, told};
    const auto onScanned = [](void* context, std::size_t index, vole_error error, vole_outcome) {
        Turn& of = *static_cast<Turn*>(context);
        try {
            return of.told(of.scanner.reportOn(of.targets[index].path, error)) ? 0 : 1;
        } catch (...) {
            of.failure = std::current_exception();
            return 1;
        }
    };
    std::vector<const char*> paths;
    for (const Target& target : targets) paths.push_back(target.path.c_str());
    vole_scan_paths(_scanner.get(), paths.data(), paths.size(), onScanned, &turn);
    if (turn.failure) std::rethrow_exception(turn.failure);
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
