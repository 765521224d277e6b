#include "Census.h"

#include <sys/stat.h>

#include <cstdint>
#include <exception>
#include <system_error>

#include "FileWalker.h"
#include "Interruption.h"

namespace {

std::uint64_t sizeOf(const std::string& path) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

Census::Census(const std::vector<std::string>& paths, const WalkRules& rules, Progress& progress)
    : _paths(paths), _rules(rules), _progress(progress) {
    const SignalsBlocked blocked;
    try {
        _thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // No thread to be had: nothing to compare with.
    }
}

Census::~Census() {
    _stopping = true;
    if (_thread.joinable()) _thread.join();
}

void Census::run() {
    try {
        for (const std::string& path : _paths) countBelow(path);
    } catch (const std::exception&) {
        // The scan will meet with the same, and tell.
    }
}

void Census::countBelow(const std::string& path) {
    if (path == "-") return _progress.known(1, 0);
    FileWalker walker(path, _rules);
    while (!_stopping && walker.next()) _progress.known(1, walker.error().empty() ? sizeOf(walker.path()) : 0);
}
