// CleanFiles: the file that ScanCache keeps: a SQLite database with a row for each file that was clean, and when it was
// last seen, for each pair of signature set and limits ("setting").
//   Throws:  SqliteError.
//   Threads: one at a time. Other processes may use the same file.
//   Bounds:  the four settings used last are kept, with at most kMaxFiles files each; a file that was not seen for
//            kDaysKept days is dropped, sooner or later.
#ifndef VOLE_TOOL_CLEAN_FILES_H
#define VOLE_TOOL_CLEAN_FILES_H

#include <sys/stat.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "Sqlite.h"

// What tells one state of a file from every other. Numbers are as SQLite has them, signed, which loses nothing.
struct FileStamp {
    std::int64_t device, inode, size, mtimeSeconds, ctimeSeconds;
    std::int32_t mtimeNanoseconds, ctimeNanoseconds;

    static FileStamp of(const struct stat& file);
    bool operator==(const FileStamp&) const = default;
};

struct CleanFile {
    FileStamp stamp;
    std::int32_t seen;  // days since 1970
};

class CleanFiles {
public:
    static constexpr std::size_t kMaxFiles = 2'000'000;
    static constexpr int kDaysKept = 100;

    // Why the file must not be used as it is, and must not be changed: not ours, or others can write to it or to its
    // folder. Empty when it may be used; it is made, for its owner alone, when it is not there.
    static std::string refusal(const std::string& path);

    // REQUIRES: refusal() has nothing against the file.
    CleanFiles(const std::string& path, std::string setId, std::string limits, std::int32_t today);

    // Makes a damaged file an empty one, also for those who have it open.
    static void makeEmpty(const std::string& path);

    // All that there is for this setting, ordered by device and inode.
    std::vector<CleanFile> load();

    // What load() returned was last written on an earlier day: write() should be called, be it without files.
    bool isStale() const { return _used >= 0 && _used != _today; }

    // Adds files, or replaces what was known of them, as seen today. All or nothing.
    void write(std::span<const FileStamp> files);

private:
    std::int64_t settingForWriting();
    void dropExcessSettings(std::int64_t own);
    void dropUnseen(std::int64_t setting);

    std::string _setId, _limits;
    std::int32_t _today;
    std::int32_t _used = -1;  // the day of the last write, -1: never
    SqliteDatabase _database;
};

#endif  // VOLE_TOOL_CLEAN_FILES_H
