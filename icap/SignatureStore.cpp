#include "SignatureStore.h"

#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <system_error>

#define XXH_INLINE_ALL
#include <malloc.h>
#include <xxhash.h>

namespace icap {
namespace {

// What a change of the file changes: a line of its name, number, size and time; nothing where there is none.
std::string lineFor(const std::filesystem::path& path) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) return {};
    return path.filename().string() + '/' + std::to_string(status.st_ino) + '/' + std::to_string(status.st_size) + '/' +
           std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec) + '\n';
}

// What a change of the folder's files changes, or of the compiled set.
std::string filesOf(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error)) return lineFor(path);
    std::set<std::string> lines;
    for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        const bool counts = name.ends_with(".hdb") || name.ends_with(".chk") || name == "pattern_assistant.xml";
        if (counts) lines.insert(lineFor(entry->path()));
    }
    std::string all;
    for (const std::string& line : lines) all += line;
    return all;
}

std::string tagOf(const vole_signatures* signatures, const Settings& settings) {
    constexpr std::size_t kTagDigits = 26;  // As many as the server keeps.
    constexpr char kDigits[] = "0123456789abcdef";
    const std::string key =
        std::string(vole_version()) + ' ' + vole_signatures_id(signatures) + ' ' + policyKey(settings);
    XXH128_canonical_t digest;
    XXH128_canonicalFromHash(&digest, XXH3_128bits(key.data(), key.size()));
    std::string tag;
    for (const unsigned char byte : digest.digest) tag += {kDigits[byte >> 4], kDigits[byte & 0xF]};
    return tag.substr(0, kTagDigits);
}

}  // namespace

std::shared_ptr<const SignatureSet> SignatureStore::current() const {
    const std::lock_guard lock(_mutex);
    return _current;
}

std::shared_ptr<const SignatureSet> SignatureStore::load(const Settings& settings, const NoteProblem& note) {
    const std::lock_guard loading(_loading);
    // Looked at before they are read: what changes meanwhile counts as a change.
    _loadedFiles = _seenFiles = filesOf(settings.patternDir);
    auto signatures = loadSignatures(settings.patternDir, settings.strictLoad ? VOLE_LOAD_STRICT : 0, note);
    std::string tag = tagOf(signatures.get(), settings);
    auto scanners = std::make_unique<ScannerPool>(signatures.get(), settings, _warn);
    auto next =
        std::make_shared<const SignatureSet>(SignatureSet{std::move(signatures), std::move(tag), std::move(scanners)});
    std::shared_ptr<const SignatureSet> last;
    {
        const std::lock_guard lock(_mutex);
        last = std::exchange(_current, next);
    }
    last.reset();
    // What the old set and loading used goes back to the system, not to the next load.
    ::malloc_trim(0);
    return next;
}

void SignatureStore::drop() {
    std::shared_ptr<const SignatureSet> last;
    {
        const std::lock_guard lock(_mutex);
        last.swap(_current);
    }
    last.reset();
    ::malloc_trim(0);
}

bool SignatureStore::hasSettledChange(const Settings& settings) {
    const std::lock_guard loading(_loading);
    const std::string files = filesOf(settings.patternDir);
    const bool isSettled = files == std::exchange(_seenFiles, files);
    return isSettled && files != _loadedFiles;
}

}  // namespace icap
