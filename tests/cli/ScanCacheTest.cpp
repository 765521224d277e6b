#include "ScanCache.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <thread>

#include "support/TempDir.h"

namespace {

constexpr timespec kStart{1'700'000'000, 500'000'000};

struct stat fileWith(ino_t inode, const timespec& changed = {kStart.tv_sec - 60, 1}) {
    struct stat file {};
    file.st_mode = S_IFREG;
    file.st_dev = ~dev_t{0};  // SQLite's numbers are signed
    file.st_ino = inode;
    file.st_size = off_t{1} << 40;
    file.st_mtim = file.st_ctim = changed;
    return file;
}

// One run's cache, and what it warned of.
struct CacheUse {
    explicit CacheUse(const std::string& path, const char* setId = "set", const char* limits = "limits")
        : cache(path, setId, limits, [this](std::string_view line) { warnings += std::string(line) + "\n"; }) {}
    void remember(const struct stat& file) { cache.rememberClean(file, file, kStart); }
    bool knows(const struct stat& file) { return cache.isKnownClean(file); }
    std::string warnings;
    ScanCache cache;
};

TEST(ScanCache, knowsAFileOnlyAsItWas) {
    const TempDir box;
    const std::string path = box / "cache";
    CacheUse(path).remember(fileWith(7));
    EXPECT_TRUE(CacheUse(path).knows(fileWith(7)));
    void (*const changes[])(struct stat&) = {
        [](struct stat& file) { --file.st_dev; },          [](struct stat& file) { ++file.st_ino; },
        [](struct stat& file) { ++file.st_size; },         [](struct stat& file) { --file.st_mtim.tv_sec; },
        [](struct stat& file) { ++file.st_mtim.tv_nsec; }, [](struct stat& file) { --file.st_ctim.tv_sec; },
        [](struct stat& file) { ++file.st_ctim.tv_nsec; }, [](struct stat& file) { file.st_mode = S_IFIFO; }};
    for (const auto& change : changes) {
        struct stat file = fileWith(7);
        change(file);
        EXPECT_FALSE(CacheUse(path).knows(file)) << &change - changes;
        if (S_ISREG(file.st_mode)) CacheUse(box / "during").cache.rememberClean(fileWith(7), file, kStart);
    }
    EXPECT_FALSE(CacheUse(path, "other").knows(fileWith(7)) || CacheUse(path, "set", "other").knows(fileWith(7)));
    for (const char* set : {"1", "2", "3", "4"}) CacheUse(path, set).remember(fileWith(7));
    EXPECT_FALSE(CacheUse(path).knows(fileWith(7))) << "older settings have to go";
    EXPECT_FALSE(CacheUse(box / "during").knows(fileWith(7))) << "changed while it was scanned";
}

TEST(ScanCache, remembersNoFileThatMayYetChangeUnnoticed) {
    const TempDir box;
    const auto remembers = [&box](const timespec& changed) {
        CacheUse(box / "cache").remember(fileWith(7, changed));
        return CacheUse(box / "cache").knows(fileWith(7, changed));
    };
    constexpr time_t kNow = kStart.tv_sec, kNever = std::numeric_limits<time_t>::max();
    // Without fractions of a second the file system may have steps of two seconds.
    for (const timespec& changed : {timespec{kNow, 490'000'000}, {kNow - 1, 0}, {kNow + 1, 1}, {kNever, 1}})
        EXPECT_FALSE(remembers(changed)) << changed.tv_sec;
    for (const timespec& changed : {timespec{kNow, 300'000'000}, {kNow - 2, 0}, {-kNever - 1, 1}})
        EXPECT_TRUE(remembers(changed)) << changed.tv_sec;
}

TEST(ScanCache, forgetsOnlyWhatIsNotSeenAnyMore) {
    const TempDir box;
    const std::string path = box / "cache";
    CacheUse(path).cache.finish();
    const auto today = static_cast<std::int32_t>(std::time(nullptr) / (24 * 60 * 60));
    const FileStamp both[] = {FileStamp::of(fileWith(7)), FileStamp::of(fileWith(8))};
    CleanFiles(path, "set", "limits", today - CleanFiles::kDaysKept + 1).write(both);
    EXPECT_TRUE(CacheUse(path).knows(fileWith(7)));
    CleanFiles later(path, "set", "limits", today + CleanFiles::kDaysKept / 2);
    later.write({});
    EXPECT_EQ(later.load().size(), 1u);
}

TEST(ScanCache, beginsADamagedCacheAnewButLeavesOthersFilesAlone) {
    const TempDir box;
    const std::string path = box / "cache";
    {
        CacheUse use(path);
        for (ino_t inode = 0; inode < 2000; ++inode) use.remember(fileWith(inode));
    }
    const std::string sound = TempDir::contentOf(path);
    const struct {
        const char* why;
        std::size_t offset, length;
        char byte;
        bool rebuilt;
    } rows[] = {{"pages", 4096, sound.size() - 4096, 'x', true},
                {"schema", 110, 3900, '\0', true},
                {"cut short", 5000, sound.size(), 0, true},
                {"version", 63, 1, 9, true},
                {"not SQLite's", 0, 1, 'x', false},
                {"another program's", 71, 1, 'x', false},
                {"a short text", 20, sound.size(), 0, false}};
    for (const auto& row : rows) {
        std::string content = sound;
        content.replace(row.offset, row.length, row.offset + row.length > sound.size() ? 0 : row.length, row.byte);
        box.write("cache", content);
        CacheUse use(path);
        use.remember(fileWith(1));
        use.cache.finish();
        EXPECT_NE(use.warnings.find(row.rebuilt ? "begun anew" : "stays as it is"), std::string::npos) << row.why;
        EXPECT_EQ(std::count(use.warnings.begin(), use.warnings.end(), '\n'), 1) << use.warnings;
        EXPECT_EQ(CacheUse(path).knows(fileWith(1)), row.rebuilt) << row.why;
        EXPECT_TRUE(row.rebuilt || TempDir::contentOf(path) == content) << row.why;
    }
    box.write("cache", sound);
    CleanFiles::makeEmpty(path);
    CacheUse(path).remember(fileWith(1));
    EXPECT_TRUE(CacheUse(path).knows(fileWith(1))) << "a rebuilding that was interrupted";
    box.write("cache", sound);
    std::filesystem::permissions(box.path(), std::filesystem::perms(01777));
    EXPECT_FALSE(CacheUse(path).knows(fileWith(1))) << "others can lay a journal beside it";
    EXPECT_FALSE(CacheUse(box / "new").warnings.empty() || std::filesystem::exists(box / "new"));
    std::filesystem::permissions(box.path(), std::filesystem::perms(0700));
    std::filesystem::permissions(path, std::filesystem::perms(0666));
    EXPECT_FALSE(CacheUse(path).knows(fileWith(1))) << "others can write to it";
    for (const std::string& other : {box.path().string(), path + "/x", std::string("/dev/full")})
        EXPECT_NE(CacheUse(other).warnings, "") << other;
}

TEST(ScanCache, isSharedByProcessesAndThreads) {
    const TempDir box;
    const std::string path = box / "cache";
    const auto rememberFrom = [&path](ino_t first) {
        CacheUse use(path);
        std::thread other([&] {
            for (ino_t inode = first; inode < first + 9000; inode += 2) use.remember(fileWith(inode));
        });
        for (ino_t inode = first + 1; inode < first + 9000; inode += 2) use.remember(fileWith(inode));
        other.join();
        use.cache.finish();
        return use.warnings;
    };
    const pid_t child = ::fork();
    if (child == 0) ::_exit(rememberFrom(0).empty() ? 0 : 1);
    EXPECT_EQ(rememberFrom(9000), "");
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    CacheUse use(path);
    for (ino_t inode = 0; inode < 18000; ++inode) ASSERT_TRUE(use.knows(fileWith(inode))) << inode;
}

}  // namespace
