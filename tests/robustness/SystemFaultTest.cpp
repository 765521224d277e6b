// What the system can do to a scan or a reload: calls fail, transfers come short or are interrupted, the disk is full,
// the pattern directory goes away. And what scans leave behind of their own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <iostream>
#include <set>

#include "Faults.h"
#include "PatternSlot.h"
#include "Scene.h"
#include "VoleOptions.h"
#include "io/FileBufferBase.h"
#include "support/FileSizeLimit.h"

namespace {

namespace fs = std::filesystem;
using faults::Plan;
using faults::Target;

constexpr OptionValues kDefaults{VoleOptions::DefaultMaxEntries, VoleOptions::DefaultMaxRatio,
                                 VoleOptions::DefaultMaxLevelEntries, VoleOptions::DefaultMaxDepth,
                                 VoleOptions::DefaultMaxSize};

// Of a reload, up to the end of the directory.
constexpr unsigned kCallsOfTheList = 11;

std::size_t openDescriptors() {
    const fs::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), fs::directory_iterator()));
}

class SystemFaults : public testing::Test {
protected:
    SystemFaults() {
        freeResource();
        scene::writePatterns(one, "One");
        scene::writePatterns(two, "Two");
        EXPECT_EQ(init(one.path().c_str(), message), 0);
        OptionValues any = kDefaults;
        any.maxSize = any.maxRatio = 0;
        VoleOptions::set(any);
    }
    ~SystemFaults() override {
        setDumpPath(nullptr);
        VoleOptions::set(kDefaults);
        freeResource();
    }

    // Runs the scan under every plan of that kind, and without one in between. `check` sees the verdict.
    template <class Check>
    unsigned scanUnder(const std::string& path, const Plan& kind, Check check) {
        const std::size_t descriptors = openDescriptors();
        return faults::inTurn(kind, [&](const Plan& plan) {
            errors.taken();
            faults::begin(plan);
            const std::string verdict = scene::verdictOf(path);
            const unsigned met = faults::end();
            check(verdict);
            EXPECT_EQ(scene::verdictOf(path), "Needle-One") << "the next scan";
            EXPECT_EQ(openDescriptors(), descriptors);
            if (!HasFailure()) return met;
            ADD_FAILURE() << path << ", call " << plan.first << ", lasting " << plan.lasting << ": " << verdict;
            return faults::kStop;
        });
    }

    // A file that is read into memory, one that is viewed, and one with an archive that goes through a file of ours.
    std::vector<std::string> samples() const {
        const std::string large(1'050'000, 'l'), inner = scene::zipOf({{"needle", scene::kNeedle}});
        return {
            files.write("small", scene::zipOf({{"folder/in", inner}})),
            files.write("viewed", scene::zipOf({{"large", large, 0}, {"in", inner, 0}})),
            files.write("kept", scene::zipOf({{"in", scene::zipOf({{"large", large, 0}, {"n", scene::kNeedle}})}}))};
    }

    TempDir one, two, files, dumps;
    const std::string needle = files.write("needle", scene::kNeedle), sum = files.write("sum", "sum of this text");
    std::string message;
    scene::ErrorCount errors;
};

TEST_F(SystemFaults, aScanSaysThatItFailed) {
    const std::set<std::string> told{"Needle-One", std::to_string(VOLE_CANNOT_OPEN), std::to_string(VOLE_CANNOT_READ),
                                     std::to_string(VOLE_OUT_OF_MEMORY), std::to_string(VOLE_SCAN_FAILED)};
    const Plan kinds[] = {
        {Target::calls, 0, false, EIO}, {Target::calls, 0, true, EMFILE}, {Target::calls, 0, true, ENOSPC}};
    for (const std::string& path : samples()) {
        for (const bool dumping : {false, true}) {
            setDumpPath(dumping ? dumps.path().c_str() : nullptr);
            for (const Plan& kind : kinds) {
                const unsigned failed = scanUnder(path, kind, [&](const auto& verdict) {
                    EXPECT_TRUE(told.contains(verdict) || (verdict == "0" && errors.taken() > 0)) << verdict;
                });
                ASSERT_GT(failed, 2U);
                if (kind.lasting) continue;
                std::cout << "[   FAULTS ] " << fs::path(path).filename() << (dumping ? " with dumps" : "") << ": "
                          << failed << " calls failed in turn\n";
                if (dumping) break;
            }
        }
    }
}

TEST_F(SystemFaults, shortAndInterruptedTransfersChangeNothing) {
    setDumpPath(dumps.path().c_str());
    for (const std::string& path : samples()) {
        for (const Target target : {Target::interrupted, Target::shortened}) {
            ASSERT_GT(scanUnder(path, {target}, [](const auto& verdict) { EXPECT_EQ(verdict, "Needle-One"); }), 1U);
        }
        faults::begin({Target::shortened, 1, true});
        EXPECT_EQ(scene::verdictOf(path), "Needle-One");
        faults::end();
    }
    EXPECT_EQ(TempDir::contentOf(dumps / "small.unar/folder/in"), scene::zipOf({{"needle", scene::kNeedle}}));
}

// The member that does not fit is lost, with a message; what is behind it is found.
TEST_F(SystemFaults, aFullDiskCostsNoMoreThanWhatDoesNotFit) {
    const std::string large(1'050'000, 'l');
    const std::string inner = scene::zipOf({{"l", large, 0}, {"n", scene::kNeedle}});
    const std::string lost = files.write("lost", scene::zipOf({{"in", inner}, {"n", "other"}}));
    const std::string found = files.write("found", scene::zipOf({{"in", inner}, {"n", scene::kNeedle}}));
    ASSERT_EQ(scene::verdictOf(lost), "Needle-One");
    const ZOV_SPACE::FileSizeLimit fullDisk(65536);
    EXPECT_EQ(scene::verdictOf(found), "Needle-One");
    errors.taken();
    // What cannot go to the disk may as well stay in memory.
    EXPECT_TRUE(scene::verdictOf(lost) == "Needle-One" || errors.taken() > 0);
}

TEST_F(SystemFaults, aReloadIsWholeOrFails) {
    for (const Plan& kind : {Plan{Target::calls, 0, false, EIO},
                             {Target::calls, 0, true, EMFILE},
                             {Target::interrupted},
                             {Target::shortened, 0, true}}) {
        const unsigned failed = faults::inTurn(kind, [&](const Plan& plan) {
            const PatternSlot* const before = activeSlot;
            faults::begin(plan);
            const int code = reload(two.path().c_str(), message);
            const unsigned met = faults::end();
            EXPECT_EQ(activeSlot != before, code == 0);
            EXPECT_TRUE(code == 0 || plan.target == Target::calls) << code;
            const std::string set = code == 0 ? "Two" : "One";
            EXPECT_EQ(scene::verdictOf(needle), "Needle-" + set);
            EXPECT_EQ(scene::verdictOf(sum), "Sum-" + set);
            EXPECT_EQ(IsSpyware(("Spy-" + set).c_str()), 1);
            EXPECT_EQ(reload(one.path().c_str(), message), 0);
            if (!HasFailure()) return met;
            ADD_FAILURE() << "call " << plan.first << ", lasting " << plan.lasting << ": " << code << message;
            return faults::kStop;
        });
        ASSERT_GT(failed, 2U);
        if (kind.target == Target::calls) std::cout << "[   FAULTS ] reload: " << failed << " calls failed in turn\n";
    }
}

// At each system call of a reload, the signature files disappear: first themselves alone, then with the directory.
TEST_F(SystemFaults, aPatternDirectoryThatVanishesIsNotHalfLoaded) {
    static fs::path from, to;
    const std::string moved = (dumps / "moved").string();
    for (const char* name : {"a.hdb", "b.chk", ""}) {
        from = *name ? two / name : two.path();
        to = moved;
        unsigned refused = 0;
        const unsigned moments = faults::inTurn({Target::moment}, [&](Plan plan) {
            plan.action = [] { fs::rename(from, to); };
            faults::begin(plan);
            const int code = reload(two.path().c_str(), message);
            const unsigned met = faults::end();
            if (fs::exists(to)) fs::rename(to, from);
            refused += code != 0;
            // A file that is gone before its name was read is none of the set.
            const bool whole = scene::verdictOf(needle) == "Needle-Two" && scene::verdictOf(sum) == "Sum-Two";
            EXPECT_TRUE(code != 0 || whole || plan.first <= kCallsOfTheList) << "half a set";
            EXPECT_EQ(reload(one.path().c_str(), message), 0);
            if (!HasFailure()) return met;
            ADD_FAILURE() << "moment " << plan.first << " " << name;
            return faults::kStop;
        });
        ASSERT_GT(moments, 5U);
        EXPECT_GT(refused, 0U) << name;
    }
}

TEST_F(SystemFaults, temporaryFilesHaveNoNamesAndNoOtherReaders) {
    const mode_t mask = ::umask(0);
    for (const unsigned refused : {0U, 1U}) {  // Without unnamed files, which not every file system has.
        faults::begin({refused ? Target::calls : Target::none, 1, false, EOPNOTSUPP});
        ZOV_SPACE::FileBufferBase buffer;
        faults::end();
        struct stat status {};
        ASSERT_EQ(::fstat(buffer.getFileDescriptor(), &status), 0);
        EXPECT_EQ(status.st_nlink, 0U);
        EXPECT_EQ(status.st_mode & 07777, 0600U);
    }
    ::umask(mask);
}

// Links that somebody planted in the dump directory lead nowhere; what is dumped is for its owner alone.
TEST_F(SystemFaults, dumpsFollowNoLinks) {
    const mode_t mask = ::umask(0);
    const fs::path target = files.write("target", "as it was");
    fs::create_directory(dumps / "s.unar");
    fs::create_symlink(target, dumps / "s.unar/n");
    fs::create_symlink(files.path(), dumps / "s.unar/folder");
    setDumpPath(dumps.path().c_str());
    const std::string sample =
        files.write("s", scene::zipOf({{"n", "new"}, {"folder/target", "new"}, {"own/d", "new"}}));
    EXPECT_EQ(scene::verdictOf(sample), "0");
    EXPECT_EQ(TempDir::contentOf(target), "as it was");
    EXPECT_EQ(TempDir::contentOf(dumps / "s.unar/own/d"), "new");
    EXPECT_EQ(fs::status(dumps / "s.unar/own/d").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(dumps / "s.unar/own").permissions(), fs::perms(0700));
    ::umask(mask);
}

}  // namespace
