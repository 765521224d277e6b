#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/GoldenRows.h"
#include "support/TempDir.h"
#include "vole.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

struct Load {
    explicit Load(const std::string& directory, uint32_t flags = 0, int enough = 1000) : left(enough) {
        const vole_load_options options{sizeof options, flags, onProblem, this};
        error = vole_signatures_load(directory.c_str(), &options, &set);
        EXPECT_EQ(error == VOLE_OK, set != nullptr);
    }
    ~Load() { vole_signatures_unref(set); }

    static int onProblem(void* context, const vole_load_problem* p) {
        Load& load = *static_cast<Load*>(context);
        EXPECT_EQ(std::string(p->text).size(), p->text_size);
        load.problems += fs::path(p->file).filename().string() + " " + std::to_string(p->line) + " [" + p->text + "] " +
                         p->reason + (p->fatal ? "!; " : "; ");
        return --load.left == 0;
    }

    vole_signatures* set = nullptr;
    vole_error error;
    std::string problems;
    int left = 0;
};

TEST(Signatures, eachLineThatIsNotInTheSetIsAProblem) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "problem")) {
        const TempDir dir;
        dir.write(row[0], row[1]);
        const Load load(dir.path()), strict(dir.path(), VOLE_LOAD_STRICT), first(dir.path(), 0, 1);
        EXPECT_EQ(load.problems, row[3]) << row[4];
        EXPECT_EQ(load.error, VOLE_OK) << row[4];
        EXPECT_EQ(std::to_string(vole_signatures_count(load.set)), row[2]) << row[4];
        EXPECT_EQ(strict.problems, row[3]) << row[4];
        EXPECT_EQ(strict.error, row[3].empty() ? VOLE_OK : VOLE_E_SIGNATURES) << row[4];
        EXPECT_EQ(first.error, strict.error) << row[4];
        EXPECT_EQ(first.problems, row[3].substr(0, row[3].find("; ") + 2)) << row[4];
    }
}

TEST(Signatures, filesAreTakenInOrderOfTheirNamesAndTheirFaultsTold) {
    const TempDir dir;
    // Made in another order.
    fs::create_symlink("/proc/self/mem", dir / "c.chk");
    fs::create_symlink("nowhere", dir / "b.hdb");
    dir.write("d.hdb", "d\n");
    dir.write("a.hdb", "a\n");
    dir.write("x.HDB", "x\n");
    std::string more;  // So many that no folder lists them so by chance.
    for (char name = 'p'; name > 'e'; --name) {
        dir.write(name + ".hdb"s, "?\n");
        more.insert(0, name + ".hdb 1 [?] Malformed md5 pattern [?]; "s);
    }
    fs::create_directories(dir / "e.hdb");
    fs::create_directories(dir / "pattern_assistant.xml");
    const Load load(dir.path());
    EXPECT_EQ(load.error, VOLE_E_SIGNATURES);
    EXPECT_EQ(load.problems,
              "a.hdb 1 [a] Malformed md5 pattern [a]; b.hdb 0 [] The link leads nowhere; "
              "c.chk 0 [] Input/output error!; d.hdb 1 [d] Malformed md5 pattern [d]; " +
                  more + "pattern_assistant.xml 0 [] Is a directory!; ");
    for (const auto& [path, error] : {std::pair(dir / "none", VOLE_E_NOT_FOUND),
                                      {dir / "a.hdb/x", VOLE_E_NOT_FOUND},
                                      {dir / "a.hdb", VOLE_E_NOT_FILE},
                                      {std::string(5000, 'x'), VOLE_E_IO}}) {
        EXPECT_EQ(Load(path).error, error) << path;
    }
}

TEST(Signatures, theIdTellsSetsApartAndNothingElse) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "id")) {
        const TempDir dir;
        for (std::size_t i = 1; i + 2 < row.size(); i += 2) dir.write(row[i], row[i + 1]);
        const Load load(dir.path());
        EXPECT_EQ(vole_signatures_id(load.set) == std::string("1d12a1201ef970d743dbb0e61bc42152"), row[0] == "same")
            << row.back();
        const int all = row.back() == "no false alarms" ? 0 : 1;
        for (const auto& [name, is] : {std::pair("Name.x", all), {"nAME.Y", all}, {"Name.", 0}, {"Name.xx", 0}})
            EXPECT_EQ(vole_signatures_is_false_alarm(load.set, name), is) << name;
    }
}

TEST(Signatures, optionsOfOtherVersionsAreRead) {
    struct Options {
        std::size_t size;
        uint32_t flags;
        uint64_t room[4], later;
        vole_error error;
    };
    constexpr std::size_t kSize = offsetof(Options, error);
    const TempDir dir;
    for (const Options& given : {Options{kSize, 0, {}, 0, VOLE_OK},
                                 {kSize, 0, {}, 1, VOLE_E_ARGUMENT},
                                 {sizeof(vole_load_options), 0, {}, 1, VOLE_OK},
                                 {sizeof(std::size_t), 99, {}, 0, VOLE_OK},  // The flags are not in it.
                                 {kSize, 4, {}, 0, VOLE_E_ARGUMENT},
                                 {sizeof(std::size_t) - 1, 0, {}, 0, VOLE_E_ARGUMENT},
                                 {SIZE_MAX, 0, {}, 0, VOLE_E_ARGUMENT}}) {
        vole_signatures* set = nullptr;
        const auto* const options = reinterpret_cast<const vole_load_options*>(&given);
        EXPECT_EQ(vole_signatures_load(dir.path().c_str(), options, &set), given.error) << given.size;
        vole_signatures_unref(vole_signatures_ref(set));
        vole_signatures_unref(set);
    }
}

// Lines for records with digests that are all different, but for every ninth, which all newer ones stand ahead of.
std::string records(int from, int to, const std::string& name) {
    std::string lines;
    for (int i = from; i < to; ++i) {
        char line[64];
        std::snprintf(line, sizeof line, "%08x%024d:%u:", i % 9 ? i * 0x9E3779B1U : 0, i % 9 ? i : 0,
                      i * 77777U % 4999);
        lines += line + name + std::to_string(i) + "\n";
    }
    return lines;
}

TEST(Signatures, aSecondThreadMakesNoDifference) {
    const std::string comments(600'000, '#'), longName(900, 'n');
    const struct {
        const char* what;
        std::string first, second;
    } kSets[] = {
        {"as many as guessed", records(0, 60'000, "N"), ""},
        {"fewer", records(0, 6000, "N") + comments + "\n" + records(6000, 7000, "N"), "?\n"},
        {"more", records(0, 3000, longName) + records(3000, 60'000, "N"), records(60'000, 62'000, "N")},
        {"more at the end of the first file", comments + "\n" + records(0, 2500, longName), records(0, 40'000, "M")},
        {"none at all", comments + "\n", comments + "\n"},
        {"lines of all kinds", "#count:9000\n" + records(0, 9000, "N") + "no record\r\n\n" + records(0, 8000, "a:b"),
         "?\n" + records(7, 8000, "N") + "\n" + std::string(3000, 'x') + "\n\0\n"s + records(0, 9, "L\r") + "rest"},
    };
    for (const auto& [what, first, second] : kSets) {
        const TempDir dir, saved;
        dir.write("a.hdb", first);
        dir.write("b.hdb", second);
        dir.write("c.chk", "?\n");
        const auto compare = [&, what = what](uint32_t flags, int enough) {
            const Load one(dir.path(), flags, enough), two(dir.path(), flags | VOLE_LOAD_THREADS, enough);
            EXPECT_EQ(two.problems, one.problems) << what;
            EXPECT_EQ(two.error, one.error) << what;
            EXPECT_EQ(vole_signatures_memory(two.set), vole_signatures_memory(one.set)) << what;
            vole_signatures_save(one.set, (saved / "one").c_str());
            vole_signatures_save(two.set, (saved / "two").c_str());
        };
        compare(0, 1000);
        EXPECT_TRUE(TempDir::contentOf(saved / "two") == TempDir::contentOf(saved / "one")) << what;
        compare(VOLE_LOAD_STRICT, 1000);
        compare(0, 1);
        fs::create_symlink("/proc/self/mem", dir / "ab.hdb");  // Cannot be read.
        compare(0, 1000);
    }
}

// Bytes that are mapped and not free in the heap.
double bytesInUse() {
    double pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) - static_cast<double>(::mallinfo2().fordblks);
}

TEST(Signatures, theMemoryIsWhatTheSetTakes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's heap takes more";
#endif
    const TempDir dir;
    std::string digests, sums;
    for (int i = 0; i < 70000; ++i) {
        char digest[33];
        std::snprintf(digest, sizeof digest, "%08x%024d", i * 0x9E3779B1U, i);
        digests += std::string(digest) + ":" + std::to_string(i * 7) + ":Name" + std::to_string(i) + "\n";
        sums += "00:0000:" + std::string(digest + 28) + ":04:" + std::string(digest, 8) + ":00000000:0:0:00000000:N\n";
    }
    dir.write("a.hdb", digests);
    dir.write("b.chk", sums);
    const double before = bytesInUse();
    const Load load(dir.path());
    EXPECT_EQ(vole_signatures_count(load.set), 140000U);
    const double taken = bytesInUse() - before, said = static_cast<double>(vole_signatures_memory(load.set));
    EXPECT_NEAR(said / taken, 1, 0.1) << said << " of " << taken;
}

}  // namespace
