#include "ScanCache.h"

#include <algorithm>
#include <new>
#include <tuple>
#include <utility>

namespace {

// A transaction costs a few disk accesses; what is not written yet is lost when the process is killed.
constexpr std::size_t kBatchFiles = 4096;
constexpr std::chrono::seconds kBatchTime{10};

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::int32_t daysSince1970() { return static_cast<std::int32_t>(std::time(nullptr) / (24 * 60 * 60)); }

// How far apart two changes have to be for their times to differ, at least. A file system that has fractions of a
// second takes them from a clock that ticks every few milliseconds; others count in steps of up to two seconds.
std::int64_t granularityNanoseconds(const timespec& time) {
    return time.tv_nsec != 0 ? kNanosecondsPerSecond / 10 : 2 * kNanosecondsPerSecond + kNanosecondsPerSecond / 10;
}

// Whether any change from `start` on would have another time than this. Times to come may be anybody's choice.
bool isSettled(const timespec& time, const timespec& start) {
    if (time.tv_sec > start.tv_sec) return false;
    if (time.tv_sec < start.tv_sec - 60) return true;  // Any time may stand there: no subtraction before this.
    return std::int64_t{start.tv_sec - time.tv_sec} * kNanosecondsPerSecond + start.tv_nsec - time.tv_nsec >
           granularityNanoseconds(time);
}

// Rows are written anew long before they would be dropped for age, spread over days so that no run has to write all.
bool wantsRefresh(const CleanFile& file, std::int32_t today) {
    const std::int64_t age = std::int64_t{today} - file.seen;
    return age < 0 || age > CleanFiles::kDaysKept / 4 + (file.stamp.inode & 31);
}

}  // namespace

ScanCache::ScanCache(std::string path, std::string setId, std::string limits, Warn warn)
    : _path(std::move(path)),
      _setId(std::move(setId)),
      _limits(std::move(limits)),
      _warn(std::move(warn)),
      _today(daysSince1970()) {
    const std::string refusal = CleanFiles::refusal(_path);
    if (!refusal.empty()) {
        this->warn(refusal, "going on without it");
        return;
    }
    const std::lock_guard lock(_mutex);
    const auto open = [this] {
        _collected.reserve(kBatchFiles);
        _files = std::make_unique<CleanFiles>(_path, _setId, _limits, _today);
        _known = _files->load();
    };
    guarded(open, "going on without it");
    if (_files) static_cast<void>(::stat(_path.c_str(), &_own));
}

std::unique_lock<std::mutex> ScanCache::holdIfOwn(const struct stat& file) {
    const bool own = file.st_dev == _own.st_dev && file.st_ino == _own.st_ino;
    return own ? std::unique_lock(_mutex) : std::unique_lock<std::mutex>();
}

bool ScanCache::isKnownClean(const struct stat& file) {
    if (!S_ISREG(file.st_mode)) return false;
    const FileStamp stamp = FileStamp::of(file);
    const auto key = std::tie(stamp.device, stamp.inode);
    const auto found =
        std::lower_bound(_known.begin(), _known.end(), key, [](const CleanFile& known, const auto& wanted) {
            return std::tie(known.stamp.device, known.stamp.inode) < wanted;
        });
    if (found == _known.end() || found->stamp != stamp) return false;
    if (wantsRefresh(*found, _today)) {
        const std::lock_guard lock(_mutex);
        collect(stamp);
    }
    return true;
}

void ScanCache::rememberClean(const struct stat& before, const struct stat& after, const timespec& scanStart) {
    const FileStamp stamp = FileStamp::of(before);
    if (!S_ISREG(before.st_mode) || stamp != FileStamp::of(after)) return;
    if (!isSettled(before.st_mtim, scanStart) || !isSettled(before.st_ctim, scanStart)) return;
    const std::lock_guard lock(_mutex);
    if (_known.size() + _added >= CleanFiles::kMaxFiles) return;
    ++_added;
    collect(stamp);
}

void ScanCache::finish() {
    const std::lock_guard lock(_mutex);
    if (_files && (!_collected.empty() || _files->isStale())) writeCollected();
    _files.reset();
}

void ScanCache::collect(const FileStamp& file) {
    if (!_files) return;
    _collected.push_back(file);
    if (_collected.size() >= kBatchFiles || Clock::now() - _lastWrite > kBatchTime) writeCollected();
}

void ScanCache::writeCollected() {
    guarded([this] { _files->write(_collected); }, "nothing more is remembered");
    _collected.clear();
    _lastWrite = Clock::now();
}

// Runs what uses the database, a second time after damage, with an empty one. What is known by then stays: others may
// be looking at it, and it is right.
template <class Action>
void ScanCache::guarded(Action action, const char* consequence) {
    try {
        try {
            return action();
        } catch (const SqliteError& error) {
            if (!error.isDamage() || std::exchange(_rebuilt, true)) throw;
            warn(error.what(), "begun anew");
        }
        _files.reset();
        CleanFiles::makeEmpty(_path);
        _files = std::make_unique<CleanFiles>(_path, _setId, _limits, _today);
        return action();
    } catch (const SqliteError& error) {
        warn(error.what(), consequence);
    } catch (const std::bad_alloc&) {
        warn("not enough memory", consequence);
    }
    _files.reset();
}

void ScanCache::warn(std::string_view text, std::string_view consequence) const {
    _warn("cache " + _path + ": " + std::string(text) + "; " + std::string(consequence));
}
