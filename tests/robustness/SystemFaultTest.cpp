// System calls fail, are interrupted or come short; the disk is full; the signature files vanish. And what scans leave
// behind of their own.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <iostream>
#include <set>
#include <vector>

#include "Faults.h"
#include "PatternSlot.h"
#include "Scene.h"
#include "io/FileBufferBase.h"
#include "support/EngineTest.h"
#include "support/FileSizeLimit.h"

namespace {

namespace fs = std::filesystem;
using faults::Plan;
using faults::Target;

std::ptrdiff_t openDescriptors() {
    const fs::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), fs::directory_iterator());
}

class SystemFaults : public EngineTest {
protected:
    SystemFaults() {
        scene::writePatterns(one, "One");
        scene::writePatterns(two, "Two");
        EXPECT_EQ(load(one), 0);
        OptionValues any = kDefaultLimits;
        any.maxSize = any.maxRatio = 0;
        VoleOptions::set(any);
    }

    // A scan under every plan of that kind, and one without a fault in between. `check` sees the verdict.
    template <class Check>
    unsigned scanUnder(const std::string& path, const Plan& kind, Check check) {
        const auto descriptors = openDescriptors();
        return faults::inTurn(path, kind, [&](const Plan& plan) {
            errors.taken();
            faults::begin(plan);
            const std::string verdict = verdictOf(path);
            const unsigned met = faults::end();
            check(verdict);
            EXPECT_EQ(verdictOf(path), "Needle-One") << "the next scan";
            EXPECT_EQ(openDescriptors(), descriptors);
            return met;
        });
    }

    // A file that is read into memory, one that is viewed, and one with an archive that goes through a file of ours.
    std::vector<std::string> archives() const {
        const std::string inner = scene::zipOf({{"needle", scene::kNeedle}});
        return {samples.write("small", scene::zipOf({{"folder/in", inner}})),
                samples.write("viewed", scene::zipOf({{"large", large, 0}, {"in", inner, 0}})),
                samples.write("kept", scene::zipOf({{"in", withLarge}}))};
    }

    TempDir one, two, dumps;
    const std::string large = std::string(1'050'000, 'l'),
                      withLarge = scene::zipOf({{"large", large, 0}, {"n", scene::kNeedle}});
    const std::string needle = samples.write("needle", scene::kNeedle), sum = samples.write("sum", "sum of this text");
    scene::ErrorCount errors;
};

TEST_F(SystemFaults, aScanSaysThatItFailed) {
    const std::set<std::string> told{"Needle-One", std::to_string(VOLE_CANNOT_OPEN), std::to_string(VOLE_CANNOT_READ),
                                     std::to_string(VOLE_OUT_OF_MEMORY), std::to_string(VOLE_SCAN_FAILED)};
    const Plan kinds[] = {
        {Target::calls, 0, false, EIO}, {Target::calls, 0, true, EMFILE}, {Target::calls, 0, true, ENOSPC}};
    for (const std::string& path : archives()) {
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
    for (const std::string& path : archives()) {
        for (const Target target : {Target::interrupted, Target::shortened}) {
            ASSERT_GT(scanUnder(path, {target}, [](const auto& verdict) { EXPECT_EQ(verdict, "Needle-One"); }), 1U);
        }
        faults::begin({Target::shortened, 1, true});
        EXPECT_EQ(verdictOf(path), "Needle-One");
        faults::end();
    }
    EXPECT_EQ(TempDir::contentOf(dumps / "small.unar/folder/in"), scene::zipOf({{"needle", scene::kNeedle}}));
}

// The member that does not fit is lost, with a message; what is behind it is found.
TEST_F(SystemFaults, aFullDiskCostsNoMoreThanWhatDoesNotFit) {
    const std::string lost = samples.write("lost", scene::zipOf({{"in", withLarge}, {"n", "other"}}));
    const std::string found = samples.write("found", scene::zipOf({{"in", withLarge}, {"n", scene::kNeedle}}));
    ASSERT_EQ(verdictOf(lost), "Needle-One");
    const ZOV_SPACE::FileSizeLimit fullDisk(65536);
    EXPECT_EQ(verdictOf(found), "Needle-One");
    errors.taken();
    // What cannot go to the disk may as well stay in memory.
    EXPECT_TRUE(verdictOf(lost) == "Needle-One" || errors.taken() > 0);
}

TEST_F(SystemFaults, aReloadIsWholeOrFails) {
    for (const Plan& kind : {Plan{Target::calls, 0, false, EIO},
                             {Target::calls, 0, true, EMFILE},
                             {Target::interrupted},
                             {Target::shortened, 0, true}}) {
        const unsigned failed = faults::inTurn("reload", kind, [&](const Plan& plan) {
            const PatternSlot* const before = activeSlot;
            faults::begin(plan);
            const int code = loadAnew(two);
            const unsigned met = faults::end();
            EXPECT_EQ(activeSlot != before, code == 0);
            EXPECT_TRUE(code == 0 || plan.target == Target::calls) << code;
            const std::string set = code == 0 ? "Two" : "One";
            EXPECT_EQ(verdictOf(needle) + verdictOf(sum), "Needle-" + set + "Sum-" + set);
            EXPECT_EQ(IsSpyware(("Spy-" + set).c_str()), 1);
            EXPECT_EQ(loadAnew(one), 0);
            return met;
        });
        ASSERT_GT(failed, 2U);
        if (kind.target == Target::calls) std::cout << "[   FAULTS ] reload: " << failed << " calls failed in turn\n";
    }
}

// At each system call of a reload, the signature files disappear: first themselves alone, then with the directory.
TEST_F(SystemFaults, aFileThatVanishesIsPassedOverAndADirectoryRefused) {
    static fs::path from, to;
    to = dumps / "moved";
    for (const std::string name : {"a.hdb", "b.chk", ""}) {
        from = name.empty() ? two.path() : two / name;
        unsigned refused = 0;
        const unsigned moments = faults::inTurn(name, {Target::moment}, [&](Plan plan) {
            plan.action = [] { fs::rename(from, to); };
            faults::begin(plan);
            const int code = loadAnew(two);
            const unsigned met = faults::end();
            if (fs::exists(to)) fs::rename(to, from);
            refused += code != 0;
            const bool others = (name == "a.hdb" || verdictOf(needle) == "Needle-Two") &&
                                (name == "b.chk" || verdictOf(sum) == "Sum-Two");
            EXPECT_TRUE(code != 0 || others) << "half a set";
            EXPECT_EQ(loadAnew(one), 0);
            return met;
        });
        ASSERT_GT(moments, 5U);
        EXPECT_EQ(refused > 0, name.empty()) << name;
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

}  // namespace
