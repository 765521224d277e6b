#include "CleanFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <tuple>

#include "Descriptor.h"
#include "Messages.h"

namespace {

constexpr std::uint32_t kApplicationId = 0x564F4C45;  // "VOLE"
constexpr int kVersion = 1;

// In one transaction, so that nobody ever sees a database of ours that does not say so.
constexpr char kSchema[] = R"(
    PRAGMA application_id = 0x564F4C45;
    PRAGMA user_version = 1;
    CREATE TABLE setting(id INTEGER PRIMARY KEY, signatures TEXT, limits TEXT, used INTEGER, UNIQUE(signatures, limits));
    CREATE TABLE clean(setting INTEGER, device INTEGER, inode INTEGER, size INTEGER, mtime_s INTEGER, mtime_ns INTEGER,
                       ctime_s INTEGER, ctime_ns INTEGER, seen INTEGER, PRIMARY KEY(setting, device, inode))
        WITHOUT ROWID;
)";

// SQLite's file header: what it begins with, and where the number stands that tells whose database it is; behind it the
// page with the list of tables: its kind and the number of its rows.
constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::size_t kApplicationIdOffset = 68;
constexpr std::size_t kTablesOffset = 100;
constexpr std::string_view kNoTables("\x0d\0\0\0\0", 5);
using Header = std::array<char, kTablesOffset + kNoTables.size()>;

// An empty database is nobody's: makeEmpty() leaves it when it is interrupted.
bool mayBeUsed(const Header& header) {
    const std::string_view bytes(header.data(), header.size());
    if (!bytes.starts_with(kMagic)) return false;
    std::uint32_t id = 0;
    for (const char c : bytes.substr(kApplicationIdOffset, 4)) id = id << 8 | static_cast<unsigned char>(c);
    return id == kApplicationId || (id == 0 && bytes.ends_with(kNoTables));
}

// Whoever can write to the file can have any file taken for clean.
bool isOpenToOthers(const struct stat& status) {
    const bool ownedByTrusted = status.st_uid == ::geteuid() || status.st_uid == 0;
    return !ownedByTrusted || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// SQLite plays back a journal that lies beside the file, behind all links, whoever wrote it.
std::string folderRefusal(const std::string& path) {
    std::error_code error;
    const auto folder = std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error).parent_path();
    struct stat status;
    if (error || ::stat(folder.c_str(), &status) != 0) return systemText(error ? error.value() : errno);
    return isOpenToOthers(status) ? "others can write to its folder" : "";
}

// 0, or an error number.
int makeMissing(const std::string& path) {
    const Descriptor made(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    return made.number() >= 0 || errno == EEXIST ? 0 : errno;
}

std::int64_t numberFrom(SqliteDatabase& database, std::string_view sql) {
    SqliteStatement statement(database, sql);
    return statement.step() ? statement.integer(0) : 0;
}

void makeTables(SqliteDatabase& database) {
    SqliteTransaction transaction(database);
    // Another process may have been faster.
    if (numberFrom(database, "PRAGMA user_version") == 0) database.execute(kSchema);
    transaction.commit();
}

auto orderOf(const CleanFile& file) { return std::tie(file.stamp.device, file.stamp.inode); }

}  // namespace

FileStamp FileStamp::of(const struct stat& file) {
    return {static_cast<std::int64_t>(file.st_dev),         static_cast<std::int64_t>(file.st_ino),
            static_cast<std::int64_t>(file.st_size),        static_cast<std::int64_t>(file.st_mtim.tv_sec),
            static_cast<std::int64_t>(file.st_ctim.tv_sec), static_cast<std::int32_t>(file.st_mtim.tv_nsec),
            static_cast<std::int32_t>(file.st_ctim.tv_nsec)};
}

std::string CleanFiles::refusal(const std::string& path) {
    struct stat file;
    const bool exists = ::stat(path.c_str(), &file) == 0;
    if (!exists && errno != ENOENT) return systemText(errno);
    if (exists && !S_ISREG(file.st_mode)) return "not a regular file";
    if (exists && isOpenToOthers(file)) return "others can write to it";
    std::string problem = folderRefusal(path);
    if (!problem.empty()) return problem;
    if (!exists) {
        const int error = makeMissing(path);
        return error == 0 ? "" : systemText(error);
    }
    const Descriptor opened(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (opened.number() < 0) return systemText(errno);
    Header header{};
    const ssize_t length = ::pread(opened.number(), header.data(), header.size(), 0);
    if (length < 0) return systemText(errno);
    return length == 0 || mayBeUsed(header) ? "" : "not a cache made by this program, so it stays as it is";
}

CleanFiles::CleanFiles(const std::string& path, std::string setId, std::string limits, std::int32_t today)
    : _setId(std::move(setId)), _limits(std::move(limits)), _today(today), _database(path) {
    // Transactions survive a crash of the machine except for the latest ones, which a cache can do without.
    _database.execute("PRAGMA synchronous = NORMAL");
    if (numberFrom(_database, "PRAGMA user_version") == 0) makeTables(_database);
    if (numberFrom(_database, "PRAGMA user_version") != kVersion)
        throw SqliteError(SqliteError::Kind::damage, "made by another version of this program");
}

void CleanFiles::makeEmpty(const std::string& path) {
    SqliteDatabase database(path);
    database.makeEmpty();
}

std::vector<CleanFile> CleanFiles::load() {
    std::vector<CleanFile> files;
    // Growing step by step would take twice the memory.
    SqliteStatement count(_database,
                          "SELECT count(*) FROM setting JOIN clean ON setting = id"
                          " WHERE signatures = ?1 AND limits = ?2");
    if (count.with(_setId, _limits).step())
        files.reserve(std::min(kMaxFiles, static_cast<std::size_t>(count.integer(0))));
    SqliteStatement rows(_database,
                         "SELECT device, inode, size, mtime_s, ctime_s, mtime_ns, ctime_ns, seen, used"
                         " FROM setting JOIN clean ON setting = id WHERE signatures = ?1 AND limits = ?2"
                         " ORDER BY device, inode LIMIT ?3");
    rows.with(_setId, _limits, std::int64_t{kMaxFiles});
    while (rows.step()) {
        files.push_back({{rows.integer(0), rows.integer(1), rows.integer(2), rows.integer(3), rows.integer(4),
                          static_cast<std::int32_t>(rows.integer(5)), static_cast<std::int32_t>(rows.integer(6))},
                         static_cast<std::int32_t>(rows.integer(7))});
        _used = static_cast<std::int32_t>(rows.integer(8));
    }
    const bool ordered = std::is_sorted(files.begin(), files.end(),
                                        [](const auto& a, const auto& b) { return orderOf(a) < orderOf(b); });
    if (!ordered) throw SqliteError(SqliteError::Kind::damage, "rows out of order");
    return files;
}

void CleanFiles::write(std::span<const FileStamp> files) {
    SqliteTransaction transaction(_database);
    const std::int64_t setting = settingForWriting();
    SqliteStatement row(_database, "INSERT OR REPLACE INTO clean VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)");
    for (const FileStamp& file : files)
        row.with(setting, file.device, file.inode, file.size, file.mtimeSeconds, file.mtimeNanoseconds,
                 file.ctimeSeconds, file.ctimeNanoseconds, _today)
            .step();
    if (_used / 7 != _today / 7) dropUnseen(setting);
    transaction.commit();
    _used = _today;
}

// Found anew for each transaction: another process may have dropped the setting, or emptied the database, and its
// number may stand for other signatures by now.
std::int64_t CleanFiles::settingForWriting() {
    SqliteStatement find(_database, "SELECT id FROM setting WHERE signatures = ?1 AND limits = ?2");
    SqliteStatement(_database, "INSERT OR IGNORE INTO setting(signatures, limits, used) VALUES(?1, ?2, ?3)")
        .with(_setId, _limits, _today)
        .step();
    const std::int64_t setting = find.with(_setId, _limits).step() ? find.integer(0) : 0;
    if (_used == _today) return setting;
    SqliteStatement(_database, "UPDATE setting SET used = ?2 WHERE id = ?1").with(setting, _today).step();
    dropExcessSettings(setting);
    return setting;
}

// The own setting comes first: a clock that was wrong must not make it the oldest one.
void CleanFiles::dropExcessSettings(std::int64_t own) {
    SqliteStatement excess(_database,
                           "SELECT id FROM setting ORDER BY id = ?1 DESC, used DESC, id DESC LIMIT -1 OFFSET 4");
    std::vector<std::int64_t> dropped;
    for (excess.with(own); excess.step();) dropped.push_back(excess.integer(0));
    for (const std::int64_t setting : dropped) {
        SqliteStatement(_database, "DELETE FROM clean WHERE setting = ?1").with(setting).step();
        SqliteStatement(_database, "DELETE FROM setting WHERE id = ?1").with(setting).step();
    }
}

void CleanFiles::dropUnseen(std::int64_t setting) {
    SqliteStatement(_database, "DELETE FROM clean WHERE setting = ?1 AND seen NOT BETWEEN ?2 AND ?3")
        .with(setting, std::int64_t{_today} - kDaysKept, std::int64_t{_today} + 1)
        .step();
}
