// The lists of the loader say what it takes: the file's lines are read into one as a load does it, then the new ones.
#include "RecordAppender.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <unordered_set>

#include "Exception.h"
#include "Messages.h"
#include "PatternLineReader.h"
#include "RecordWriter.h"
#include "SignalsHeld.h"
#include "io/NewFile.h"
#include "io/RegularFile.h"

namespace {

using ZOV_SPACE::OwnFd;

// The locked file. One that was missing is there for the lock's sake, and is gone unless it was replaced.
class FileAtHand {
public:
    explicit FileAtHand(std::string name) : _name(std::move(name)) {
        do {
            open();
            if (!ZOV_SPACE::regularFileSize(_file.get())) throw LoadError(_name + ": not a regular file");
            if (::flock(_file.get(), LOCK_EX) != 0) fail();
        } while (!hasName());
    }
    FileAtHand(const FileAtHand&) = delete;
    FileAtHand& operator=(const FileAtHand&) = delete;
    ~FileAtHand() {
        struct stat named;
        const bool isLeft = _new && ::stat(_path.c_str(), &named) == 0 && isThis(named) && named.st_size == 0;
        if (isLeft) ::unlink(_path.c_str());
    }

    int fd() const { return _file.get(); }
    const std::string& name() const { return _name; }
    const std::string& path() const { return _path; }  // Without links.
    const struct stat& status() const { return _status; }

    [[noreturn]] void fail() const { throw LoadError(_name + ": " + systemText(errno)); }

private:
    void open() {
        constexpr int kFlags = O_RDWR | O_NONBLOCK | O_NOCTTY;
        constexpr mode_t kUsual = 0666;
        _new.reset();
        _file = ZOV_SPACE::openFile(_name.c_str(), kFlags);
        if (!_file && errno == ENOENT) {
            _new.emplace();
            _file = ZOV_SPACE::openFile(_name.c_str(), kFlags | O_CREAT, kUsual);
        }
        if (!_file) fail();
    }

    bool isThis(const struct stat& named) const {
        return named.st_dev == _status.st_dev && named.st_ino == _status.st_ino;
    }

    // False when somebody put another file in its place before the lock was ours.
    bool hasName() {
        const std::unique_ptr<char, void (*)(void*)> real(::realpath(_name.c_str(), nullptr), std::free);
        struct stat named;
        if (!real || ::stat(real.get(), &named) != 0) return false;
        if (::fstat(_file.get(), &_status) != 0) fail();
        _path = real.get();
        return isThis(named);
    }

    std::optional<ZOV_SPACE::SignalsHeld> _new;  // It was missing, at a first look.
    std::string _name;
    std::string _path;
    OwnFd _file;
    struct stat _status {};
};

// What a load makes of the file's lines, and would make of further ones.
class Loading {
public:
    Loading(RecordKind kind, const std::vector<std::string>& lines)
        : _kind(kind), _missing(lines.begin(), lines.end()) {}

    void read(const FileAtHand& file) {
        OwnFd same(::fcntl(file.fd(), F_DUPFD_CLOEXEC, 0));
        if (!same) file.fail();
        PatternLineReader lines(std::move(same));
        PatternLine line;
        while (lines.next(line)) take(line);
        _isCutOff = lines.rest(line);
        if (_isCutOff) take(line);
    }

    bool isCutOff() const { return _isCutOff; }
    bool isMissing(const std::string& line) const { return _missing.count(line) != 0; }
    // 0: as many as there are.
    int announced() const { return _announced; }

    bool append(std::string_view text) {
        return !(_kind == RecordKind::md5 ? _md5s.append(text) : _checkSums.append(text));
    }

private:
    void take(const PatternLine& line) {
        if (line.kind == PatternLine::Kind::count && !_hasRecords && _kind == RecordKind::md5) {
            _md5s.allocate(line.count, 1);
            if (line.count > 0) _announced = line.count;
        }
        if (line.kind != PatternLine::Kind::data) return;
        _hasRecords = true;
        Record record{};
        if (append(line.text) && !parseRecord(_kind, line.text, record)) _missing.erase(recordLine(record));
    }

    RecordKind _kind;
    BmList _md5s;
    CheckSumList _checkSums;
    bool _hasRecords = false;
    bool _isCutOff = false;
    int _announced = 0;
    std::unordered_set<std::string> _missing;  // Of the new lines.
};

class Replacement {
public:
    explicit Replacement(const FileAtHand& old) : _old(old), _file(old.path(), S_IRUSR | S_IWUSR) {
        if (!_file) _old.fail();
    }

    void write(std::string_view text) const {
        if (!ZOV_SPACE::writeAll(_file.fd(), text.data(), text.size())) _old.fail();
    }

    void copyOld() const {
        constexpr std::size_t kPiece = std::size_t{256} << 10;
        const auto piece = std::make_unique_for_overwrite<char[]>(kPiece);
        std::int64_t count;
        for (std::int64_t at = 0; (count = ZOV_SPACE::readAllAt(_old.fd(), piece.get(), kPiece, at)) > 0; at += count) {
            write({piece.get(), static_cast<std::size_t>(count)});
        }
        if (count < 0) _old.fail();
    }

    void takeName() {
        // The owner first: changing it takes bits off the mode. Only the superuser may give files away.
        const bool isGiven = ::fchown(_file.fd(), _old.status().st_uid, _old.status().st_gid) == 0;
        if (!isGiven && errno != EPERM) _old.fail();
        if (::fchmod(_file.fd(), _old.status().st_mode & 07777) != 0 || !_file.takeName()) _old.fail();
    }

private:
    const FileAtHand& _old;
    ZOV_SPACE::NewFile _file;
};

std::vector<std::string> missingOf(const std::vector<std::string>& lines, const FileAtHand& file, Loading& loading,
                                   const NoteProblem& note) {
    std::vector<std::string> missing;
    for (const std::string& line : lines) {
        if (!loading.isMissing(line)) {
            note(file.name() + ": has it already: " + line);
        } else if (loading.append(line)) {
            missing.push_back(line);
        } else {
            throw LoadError(file.name() + ": its \"#count:" + std::to_string(loading.announced()) +
                            "\" keeps more records from being loaded; raise it first");
        }
    }
    return missing;
}

void append(const FileAtHand& file, RecordKind kind, const std::vector<std::string>& lines, const NoteProblem& note) {
    Loading loading(kind, lines);
    loading.read(file);
    const std::vector<std::string> missing = missingOf(lines, file, loading, note);
    if (missing.empty()) return;
    Replacement replacement(file);
    replacement.copyOld();
    if (loading.isCutOff()) {
        note(file.name() + ": its last line had no line feed");
        replacement.write("\n");
    }
    std::string text;
    for (const std::string& line : missing) text += line + '\n';
    replacement.write(text);
    replacement.takeName();
}

}  // namespace

void appendRecords(const std::string& file, RecordKind kind, const std::vector<std::string>& lines,
                   const NoteProblem& note) {
    const char* const suffix = kind == RecordKind::md5 ? kMd5FileSuffix : kCheckSumFileSuffix;
    if (!file.ends_with(suffix)) throw LoadError(file + ": such records are loaded from files named *" + suffix);
    if (lines.empty()) return;
    try {
        append(FileAtHand(file), kind, lines, note);
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (ZOV_SPACE::Exception& e) {
        throw LoadError(file + ": " + e.getMessage());
    }
}
