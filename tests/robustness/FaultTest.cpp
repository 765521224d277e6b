// Allocations and system calls fail, are interrupted or come short; the disk is full; the signature files vanish. What
// fails says so, and what comes next is whole. And what scans leave behind of their own.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <iostream>
#include <limits>
#include <set>

#include "Faults.h"
#include "PatternSlot.h"
#include "Scene.h"
#include "io/FileBufferBase.h"
#include "support/EngineTest.h"
#include "support/FileSizeLimit.h"
#include "support/OwnProcess.h"
#include "support/Process.h"
#include "support/VoleHost.h"

namespace {

namespace fs = std::filesystem;
using faults::Plan;
using faults::Target;

const std::set<std::string> kScanCodes{std::to_string(VOLE_OUT_OF_MEMORY), std::to_string(VOLE_SCAN_FAILED),
                                       std::to_string(VOLE_CANNOT_READ), std::to_string(VOLE_CANNOT_OPEN)};
const std::set<int> kLoadCodes{VOLE_OUT_OF_MEMORY, VOLE_INVALID_PATTERN, VOLE_INVALID_LIST, VOLE_INVALID_DIRECTORY};

constexpr Plan kNoMemory{Target::allocations}, kNoMoreMemory{Target::allocations, 0, true};
constexpr Plan kErrors{Target::calls, 0, false, EIO}, kNoDescriptors{Target::calls, 0, true, EMFILE},
    kFullDisk{Target::calls, 0, true, ENOSPC};

// What is interrupted or comes short is begun anew, or continued.
bool mayFail(const Plan& plan) { return plan.target == Target::allocations || plan.target == Target::calls; }

// Calls attempt(plan) until a plan's first failure comes behind the last call; attempt() returns what end() said. Ends
// with the first plan that a test fails under, and names it. Beyond a thousand, not every single call is met.
template <class Attempt>
void failInTurn(const std::string& what, Plan plan, Attempt attempt) {
    unsigned failed = 0;
    for (plan.first = 1;; plan.first += plan.first < 1000 ? 1 : plan.first / 8, ++failed) {
        const unsigned met = attempt(plan);
        if (testing::Test::HasFailure()) FAIL() << what << ", " << plan.first << ", lasting " << plan.lasting;
        if (met < plan.first) break;
    }
    std::cout << "[   FAULTS ] " << what << ": " << failed
              << (plan.target == Target::allocations ? " allocations" : " calls") << " failed in turn"
              << (plan.lasting ? ", with all behind" : "") << "\n";
    ASSERT_GT(failed, mayFail(plan) ? 2U : 0U);
}

class Faults : public EngineTest {
protected:
    Faults() {
        scene::writePatterns(one, "One");
        scene::writePatterns(two, "Two");
        for (const scene::Content& content : scene::contents()) samples.write(content.name, content.bytes);
        EXPECT_EQ(load(one), 0);
        OptionValues any = kDefaultLimits;
        any.maxSize = any.maxRatio = 0;
        VoleOptions::set(any);
    }

    // What is active is all of the set.
    void expectWhole(const std::string& set) const {
        EXPECT_EQ(verdictOf(samples / "text"), "Needle-" + set);
        EXPECT_EQ(verdictOf(samples / "check-sum"), "Sum-" + set);
        EXPECT_EQ(verdictOf(samples / "PE"), "Pe-" + set);
        EXPECT_EQ(IsFalseAlarm(("fa-" + set).c_str()), 1);
        EXPECT_EQ(IsSpyware(("spy-" + set + "-and-more").c_str()), 1);
    }

    void scanUnder(const Plan& kind, const std::string& path, const std::string& verdict) {
        const auto descriptors = openDescriptors();
        failInTurn(fs::path(path).filename(), kind, [&](const Plan& plan) {
            std::string virus, text;
            errors.taken();
            faults::begin(plan);  // In between, nothing of the test's own may allocate.
            const int code = scanFile(path.c_str(), virus, text);
            const unsigned met = faults::end();
            const std::string actual = code == VOLE_FOUND ? virus : std::to_string(code);
            const bool told = kScanCodes.contains(actual) || (actual == "0" && errors.taken() > 0) ||
                              (actual == std::to_string(VOLE_NO_ENTRY) && plan.target == Target::allocations);
            EXPECT_TRUE(actual == verdict || (mayFail(plan) && told)) << actual;
            EXPECT_EQ(verdictOf(path), verdict) << "the next scan";
            EXPECT_EQ(openDescriptors(), descriptors);
            return met;
        });
    }

    // init() goes on with what could be loaded, so a set may lack a part, but not without a message.
    void initUnder(const Plan& kind, const char* what, unsigned usualLines) {
        freeResource();
        failInTurn(what, kind, [&](const Plan& plan) {
            errors.taken();
            faults::begin(plan);
            const int code = load(one);
            const unsigned met = faults::end();
            EXPECT_TRUE(code == 0 || kLoadCodes.contains(code)) << code;
            if (code == 0 && errors.taken() == usualLines) expectWhole("One");
            freeResource();
            EXPECT_EQ(load(one), 0) << "the next init";
            expectWhole("One");
            freeResource();
            return met;
        });
    }

    TempDir one, two, dumps;
    // Too large to be read into memory, or to be kept there.
    const std::string large = std::string(1'050'000, 'l'),
                      withLarge = scene::zipOf({{"large", large, 0}, {"n", scene::kNeedle}});
    scene::ErrorCount errors;
};

using AllocationFaults = Faults;
using SystemFaults = Faults;

TEST_F(AllocationFaults, aScanSaysThatItFailed) {
    for (const scene::Content& content : scene::contents()) {
        for (const Plan& kind : {kNoMemory, kNoMoreMemory}) {
            scanUnder(kind, samples / content.name, content.verdict + "-One");
        }
    }
}

TEST_F(AllocationFaults, inAnInit) {
    for (const Plan& kind : {kNoMemory, kNoMoreMemory}) initUnder(kind, "init", 2);  // Two lines: no plug-in.
    inOwnProcess([&] {
        fs::copy_file(VOLE_TEST_PLUGIN_GOOD, one / "libheueng.so");
        one.write("heueng.ini", "0 100 null");  // It makes no instance, so that each init() asks it again.
        for (const Plan& kind : {kNoMemory, kNoMoreMemory}) initUnder(kind, "init with plug-in", 0);
    });
}

TEST_F(SystemFaults, aScanSaysThatItFailed) {
    const std::string inner = scene::zipOf({{"needle", scene::kNeedle}});
    const std::string paths[] = {samples.write("small", scene::zipOf({{"folder/in", inner}})),
                                 samples.write("viewed", scene::zipOf({{"large", large, 0}, {"in", inner, 0}})),
                                 samples.write("kept in a file", scene::zipOf({{"in", withLarge}}))};
    for (const bool dumping : {false, true}) {
        setDumpPath(dumping ? dumps.path().c_str() : nullptr);
        for (const Plan& kind :
             {kErrors, kNoDescriptors, kFullDisk, Plan{Target::interrupted}, Plan{Target::shortened}}) {
            for (const std::string& path : paths) scanUnder(kind, path, "Needle-One");
        }
    }
    faults::begin({Target::shortened, 1, true});
    for (const std::string& path : paths) EXPECT_EQ(verdictOf(path), "Needle-One");
    faults::end();
    EXPECT_EQ(TempDir::contentOf(dumps / "small.unar/folder/in"), inner);
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

// Never "clean": every content has a signature in it, which is found, or something was not seen, or the scan failed.
TEST_F(AllocationFaults, theCInterfaceNeverCallsCleanWhatItDidNotSee) {
    const VoleSet set = loadedSet(one.path());
    for (const scene::Content& content : scene::contents()) {
        for (const Plan& kind : {kNoMemory, kNoMoreMemory}) {
            failInTurn(std::string("C interface, ") + content.name, kind, [&](const Plan& plan) {
                vole_scanner* scanner = nullptr;
                vole_outcome outcome = VOLE_OUTCOME_CLEAN;
                faults::begin(plan);
                vole_error error = vole_scanner_new(set.get(), nullptr, &scanner);
                if (!error) error = vole_scan_buffer(scanner, content.bytes.data(), content.bytes.size(), &outcome);
                const unsigned met = faults::end();
                const VoleScanner owner(scanner);
                EXPECT_TRUE(error ? error == VOLE_E_MEMORY : outcome != VOLE_OUTCOME_CLEAN) << error;
                EXPECT_TRUE(met >= plan.first || outcome == VOLE_OUTCOME_FOUND);
                return met;
            });
        }
    }
}

TEST_F(SystemFaults, theCInterfaceNeverCallsCleanWhatItCouldNotRead) {
    const VoleSet set = loadedSet(one.path());
    const VoleScanner scanner = scannerOf(set);
    const std::string path = samples.write("viewed", scene::zipOf({{"in", withLarge}, {"sum", "sum of this text"}}));
    vole_scanner_set_flags(scanner.get(), VOLE_SCAN_ALL_MATCHES);
    for (const Plan& kind : {kErrors, kNoDescriptors, kFullDisk, Plan{Target::interrupted}, Plan{Target::shortened}}) {
        failInTurn("C interface, a file", kind, [&](const Plan& plan) {
            faults::begin(plan);
            const vole_error error = vole_scan_path(scanner.get(), path.c_str(), nullptr);
            const unsigned met = faults::end();
            const vole_result* const result = vole_scanner_result(scanner.get());
            // Both signatures, each in its raw and its normalised form, or a reason why not.
            const bool complete = vole_result_finding_count(result) == 4;
            EXPECT_TRUE(complete || (mayFail(plan) && (error || vole_result_reason_count(result) > 0)));
            return met;
        });
    }
}

TEST_F(AllocationFaults, aSetLoadsWholeThroughTheCInterfaceOrFails) {
    std::string more;  // So many that a second thread takes part.
    for (int i = 0; i < 5000; ++i)
        more += md5Record(std::to_string(i), "A name of some length, so that these are fewer");
    const auto loads = [&](const char* what, uint32_t flags) {
        const vole_load_options options{sizeof options, flags, nullptr, nullptr};
        const std::string id = vole_signatures_id(loadedSet(one.path()).get());
        for (const Plan& kind : {kNoMemory, kNoMoreMemory, kErrors, kNoDescriptors}) {
            const auto descriptors = openDescriptors();
            failInTurn(what, kind, [&](const Plan& plan) {
                vole_signatures* set = nullptr;
                faults::begin(plan);
                const vole_error error = vole_signatures_load(one.path().c_str(), &options, &set);
                const unsigned met = faults::end();
                const VoleSet owner(set);
                EXPECT_EQ(error == VOLE_OK, set != nullptr);
                EXPECT_TRUE(error != VOLE_E_INTERNAL && (error == VOLE_OK || met >= plan.first)) << error;
                EXPECT_EQ(set ? vole_signatures_id(set) : id, id);
                EXPECT_EQ(openDescriptors(), descriptors);
                return met;
            });
        }
    };
    loads("C interface, a set", 0);
    one.write("more.hdb", more);
    loads("C interface, a set, by two threads", VOLE_LOAD_THREADS);
}

TEST_F(SystemFaults, whatCannotBeSavedLeavesTheOldFile) {
    const VoleSet older = loadedSet(one.path()), newer = loadedSet(two.path());
    const TempDir folder;
    const std::string path = folder / "set";
    const auto saved = [&](const VoleSet& set) {
        EXPECT_EQ(vole_signatures_save(set.get(), path.c_str()), VOLE_OK);
        return TempDir::contentOf(path);
    };
    const std::string whole = saved(newer), before = saved(older);
    faults::begin({Target::calls, std::numeric_limits<unsigned>::max()});
    saved(older);
    const unsigned calls = faults::end();
    const auto descriptors = openDescriptors();
    for (const auto& [kind, expected] : {std::pair(kNoMemory, VOLE_E_MEMORY),
                                         {kNoMoreMemory, VOLE_E_MEMORY},
                                         {kErrors, VOLE_E_IO},
                                         {kNoDescriptors, VOLE_E_IO},
                                         {kFullDisk, VOLE_E_IO},
                                         {Plan{Target::calls, 0, false, EACCES}, VOLE_E_PERMISSION},
                                         {Plan{Target::interrupted}, VOLE_OK},
                                         {Plan{Target::shortened}, VOLE_OK}}) {
        failInTurn("a set is saved", kind, [&, &kind = kind, &expected = expected](const Plan& plan) {
            faults::begin(plan);
            const vole_error error = vole_signatures_save(newer.get(), path.c_str());
            const unsigned met = faults::end();
            EXPECT_TRUE(error == VOLE_OK || error == expected) << error;
            // The very last call makes sure of the folder, in which the new file has the name by then.
            const bool isLast = kind.target == Target::calls && plan.first == calls;
            const std::string content = TempDir::contentOf(path);
            EXPECT_TRUE(content == (error ? before : whole) || (isLast && content == whole)) << error;
            EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
            EXPECT_EQ(openDescriptors(), descriptors);
            saved(older);
            return met;
        });
    }
}

TEST_F(SystemFaults, aReloadIsWholeOrFails) {
    for (const Plan& kind : {kNoMemory, kNoMoreMemory, kErrors, kNoDescriptors, Plan{Target::interrupted},
                             Plan{Target::shortened, 0, true}}) {
        failInTurn("reload", kind, [&](const Plan& plan) {
            const PatternSlot* const before = activeSlot;
            faults::begin(plan);
            const int code = loadAnew(two);
            const unsigned met = faults::end();
            EXPECT_TRUE(code == 0 || (mayFail(plan) && kLoadCodes.contains(code))) << code;
            EXPECT_EQ(activeSlot != before, code == 0);
            expectWhole(code == 0 ? "Two" : "One");
            EXPECT_EQ(loadAnew(one), 0) << "the next reload";
            expectWhole("One");
            return met;
        });
    }
}

// At each system call of a reload, the signature files disappear: first themselves alone, then with the directory.
TEST_F(SystemFaults, aFileThatVanishesIsPassedOverAndADirectoryRefused) {
    static fs::path from, to;
    to = dumps / "moved";
    for (const std::string name : {"a.hdb", "b.chk", ""}) {
        from = name.empty() ? two.path() : two / name;
        bool refused = false;
        failInTurn("without " + name, {Target::moment}, [&](Plan plan) {
            plan.action = [] { fs::rename(from, to); };
            faults::begin(plan);
            const int code = loadAnew(two);
            const unsigned met = faults::end();
            if (fs::exists(to)) fs::rename(to, from);
            refused |= code != 0;
            const bool others = (name == "a.hdb" || verdictOf(samples / "text") == "Needle-Two") &&
                                (name == "b.chk" || verdictOf(samples / "check-sum") == "Sum-Two");
            EXPECT_TRUE(code != 0 || others) << "half a set";
            EXPECT_EQ(loadAnew(one), 0);
            return met;
        });
        EXPECT_EQ(refused, name.empty()) << name;
    }
}

TEST_F(SystemFaults, temporaryFilesHaveNoNamesAndNoOtherReaders) {
    const mode_t mask = ::umask(0);
    for (const Target refused : {Target::none, Target::calls}) {  // Not every file system has unnamed files.
        faults::begin({refused, 1, false, EOPNOTSUPP});
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
