#include "CompiledSet.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Boundary.h"
#include "LargePages.h"
#include "Raise.h"
#include "TableFile.h"
#include "io/FileIo.h"
#include "io/NewFile.h"
#include "io/RegularFile.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace compiled {
namespace {

constexpr std::string_view kMagic("VoleSet\n");
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kWordOrder = 0x01020304;

using Bytes = std::span<const std::byte>;

[[noreturn]] void refuse(const std::string& reason) { ZOV_SPACE::raise<ZOV_SPACE::Exception>(reason); }

Checksum canonical(XXH128_hash_t hash) {
    XXH128_canonical_t result;
    XXH128_canonicalFromHash(&result, hash);
    return std::to_array(result.digest);
}

Checksum checksumOf(Bytes bytes) { return canonical(XXH3_128bits(bytes.data(), bytes.size())); }

// A file that is mapped, table by table.
class FileSource final : public TableSource {
public:
    explicit FileSource(Bytes file) : _file(file) {}

    const Header& checkedHeader() {
        if (_file.size() < sizeof(Header)) refuse("The file is cut off in its header");
        std::memcpy(&_header, _file.data(), sizeof _header);
        if (_header.version != kVersion) {
            refuse("The file has format " + std::to_string(_header.version) + ", and this engine reads format " +
                   std::to_string(kVersion));
        }
        if (_header.wordOrder != kWordOrder) refuse("The file is for another kind of processor");
        if (_header.fileSize != _file.size()) refuse("The file is not as long as its header says");
        readDirectory();
        return _header;
    }

    Bytes nextTable(std::size_t elementSize) override {
        require(_next < _header.tableCount);
        const DirectoryEntry entry = entryOf(_next++);
        require(entry.elementSize == elementSize && entry.bytes % elementSize == 0);
        return bytesOf(entry);
    }

    void requireEnd() const { require(_next == _header.tableCount); }

    void compareAll() const {
        for (std::uint32_t i = 0; i < _header.tableCount; ++i) {
            const DirectoryEntry entry = entryOf(i);
            if (checksumOf(bytesOf(entry)) != entry.checksum) {
                refuse("The file is damaged: the checksum of table " + std::to_string(i + 1) + " is another one");
            }
        }
    }

private:
    void readDirectory() {
        const std::uint64_t length = std::uint64_t{_header.tableCount} * sizeof(DirectoryEntry);
        const bool fits = _header.directory >= sizeof(Header) && _header.directory <= _file.size() &&
                          _file.size() - _header.directory == length;
        if (!fits) refuse("The file is damaged: its directory does not end it");
        _directory = _file.last(static_cast<std::size_t>(length));
        if (headerChecksum(_header, _directory) != _header.checksum) {
            refuse("The file is damaged: the checksum of its header is another one");
        }
    }

    DirectoryEntry entryOf(std::uint32_t i) const {
        DirectoryEntry entry{};
        std::memcpy(&entry, _directory.data() + std::size_t{i} * sizeof entry, sizeof entry);
        return entry;
    }

    Bytes bytesOf(const DirectoryEntry& entry) const {
        require(entry.offset >= sizeof(Header) && entry.offset % kAlignment == 0);
        require(entry.offset <= _header.directory && entry.bytes <= _header.directory - entry.offset);
        return _file.subspan(static_cast<std::size_t>(entry.offset), static_cast<std::size_t>(entry.bytes));
    }

    Bytes _file;
    Bytes _directory;
    Header _header{};
    std::uint32_t _next = 0;
};

void readFalseAlarms(TableSource& source, FalseAlarms& falseAlarms) {
    const auto names = source.table<char>();
    TableSource::require(names.empty() || names.back() == '\0');
    for (std::size_t at = 0; at < names.size();) {
        const std::string name(&names[at]);
        falseAlarms.add(name);
        at += name.size() + 1;
    }
}

}  // namespace

Checksum headerChecksum(const Header& header, Bytes directory) {
    struct State {
        XXH3_state_t xxh;
    };
    const auto state = std::make_unique<State>();
    XXH3_128bits_reset(&state->xxh);
    XXH3_128bits_update(&state->xxh, &header, offsetof(Header, checksum));
    XXH3_128bits_update(&state->xxh, directory.data(), directory.size());
    return canonical(XXH3_128bits_digest(&state->xxh));
}

bool isCompiledSet(int fd) {
    char magic[kMagic.size()];
    return ZOV_SPACE::readAllAt(fd, magic, sizeof magic, 0) == std::ssize(magic) &&
           std::string_view(magic, sizeof magic) == kMagic;
}

void mapSet(int fd, bool compareAll, vole_signatures& set) {
    struct stat status;
    if (::fstat(fd, &status) != 0) refuse(ZOV_SPACE::systemErrorText());
    // Cutting the file off would end every process that has mapped it.
    if (status.st_mode & S_IWOTH) refuse("Anybody may write to the file");
    set.file.map(fd, static_cast<std::uint64_t>(status.st_size));
    FileSource source(set.file.bytes());
    const Header& header = source.checkedHeader();
    set.patterns.map(source);
    readFalseAlarms(source, set.falseAlarms);
    source.requireEnd();
    TableSource::require(header.records == static_cast<std::uint64_t>(set.patterns.loadedCount()));
    set.id.assign(header.id, sizeof header.id);
    TableSource::require(set.id.find_first_not_of("0123456789abcdef") == std::string::npos);
    if (compareAll) source.compareAll();
}

namespace {

// Writes tables to a file. What could not be written is an error number, for good.
class FileSink final : public TableSink {
public:
    explicit FileSink(int fd) : _fd(fd), _digest(std::make_unique<Digest>()) { _buffer.reserve(kBufferSize); }

    void beginTable(std::size_t elementSize) override {
        endTable();
        pad();
        _directory.push_back({_written + _buffer.size(), 0, static_cast<std::uint32_t>(elementSize), 0, {}});
        XXH3_128bits_reset(&_digest->xxh);
    }

    void append(Bytes bytes) override {
        _directory.back().bytes += bytes.size();
        XXH3_128bits_update(&_digest->xxh, bytes.data(), bytes.size());
        put(bytes);
    }

    // Completes the header, and puts the directory behind all tables. The error number, or 0.
    int finish(Header header) {
        endTable();
        pad();
        const auto directory = std::as_bytes(std::span(_directory));
        header.directory = _written + _buffer.size();
        header.fileSize = header.directory + directory.size();
        header.tableCount = static_cast<std::uint32_t>(_directory.size());
        header.checksum = headerChecksum(header, directory);
        put(directory);
        flush();
        if (_error == 0 && !ZOV_SPACE::writeAllAt(_fd, &header, sizeof header, 0)) _error = errno;
        return _error;
    }

private:
    // What is written in whole large pages lies so in the system's cache, and is mapped so from there.
    static constexpr std::size_t kBufferSize = ZOV_SPACE::kLargePage;

    struct Digest {
        XXH3_state_t xxh;
    };

    void endTable() {
        if (!_directory.empty()) _directory.back().checksum = canonical(XXH3_128bits_digest(&_digest->xxh));
    }

    // To where a table may begin; the header comes to stand in the first of these gaps.
    void pad() {
        constexpr std::byte kNothing[2 * TableSource::kAlignment] = {};
        const std::size_t position = static_cast<std::size_t>((_written + _buffer.size()) % TableSource::kAlignment);
        const bool atBegin = _written + _buffer.size() == 0;
        put(std::span(kNothing).first(atBegin ? std::size(kNothing) : -position % TableSource::kAlignment));
    }

    void put(Bytes bytes) {
        while (!bytes.empty()) {
            const std::size_t count = std::min(bytes.size(), kBufferSize - _buffer.size());
            _buffer.insert(_buffer.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
            bytes = bytes.subspan(count);
            if (_buffer.size() == kBufferSize) flush();
        }
    }

    void flush() {
        if (_error == 0 && !ZOV_SPACE::writeAll(_fd, _buffer.data(), _buffer.size())) _error = errno;
        _written += _buffer.size();
        _buffer.clear();
    }

    int _fd;
    int _error = 0;
    std::unique_ptr<Digest> _digest;
    std::vector<std::byte> _buffer;
    std::uint64_t _written = 0;
    std::vector<DirectoryEntry> _directory;
};

// Of a failed system call, for whoever asked for the file.
vole_error errorOf(int systemError) { return systemError == EISDIR ? VOLE_E_NOT_FILE : capi::errorOfPath(systemError); }

void saveFalseAlarms(const FalseAlarms& falseAlarms, TableSink& sink) {
    std::string names;
    falseAlarms.forEach([&](const std::string& name) { names.append(name.c_str(), name.size() + 1); });
    sink.table(std::span<const char>(names));
}

}  // namespace

int writeSet(const vole_signatures& set, int fd) {
    FileSink sink(fd);
    set.patterns.save(sink);
    saveFalseAlarms(set.falseAlarms, sink);
    Header header{};
    kMagic.copy(header.magic, sizeof header.magic);
    header.version = kVersion;
    header.wordOrder = kWordOrder;
    header.records = static_cast<std::uint64_t>(set.patterns.loadedCount());
    set.id.copy(header.id, sizeof header.id);
    return sink.finish(header);
}

vole_error saveSet(const vole_signatures& set, const char* path) {
    struct stat status;
    if (::stat(path, &status) == 0 && !S_ISREG(status.st_mode)) return VOLE_E_NOT_FILE;
    ZOV_SPACE::NewFile file(path);
    if (!file) return errorOf(errno);
    if (const int error = writeSet(set, file.fd())) return errorOf(error);
    return file.takeName() ? VOLE_OK : errorOf(errno);
}

}  // namespace compiled
