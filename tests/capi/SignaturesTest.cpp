#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <tuple>

#include "StructSize.h"
#include "support/GoldenRows.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "vole.h"

namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;

struct Load {
    explicit Load(const std::string& directory, uint32_t flags = 0, int enough = 1000) : left(enough) {
        const vole_load_options options{sizeof options, flags, onProblem, this};
        error = vole_signatures_load(directory.c_str(), &options, &set);
        EXPECT_EQ(error == VOLE_OK, set != nullptr);
    }
    explicit Load(const Files& files) {
        const TempDir dir;
        for (const auto& [name, content] : files) dir.write(name, content);
        error = vole_signatures_load(dir.path().c_str(), nullptr, &set);
    }
    ~Load() { vole_signatures_unref(set); }

    static int onProblem(void* context, const vole_load_problem* p) {
        Load& load = *static_cast<Load*>(context);
        EXPECT_EQ(std::string(p->text).size(), p->text_size);
        load.problems += fs::path(p->file).filename().string() + " " + std::to_string(p->line) + " [" + p->text + "] " +
                         p->reason + (p->fatal ? "!; " : "; ");
        return --load.left == 0;
    }
    std::string id() const { return vole_signatures_id(set); }

    vole_signatures* set = nullptr;
    vole_error error;
    std::string problems;
    int left = 0;
};

std::string falseAlarms(const std::string& names) {
    std::string text = "<list><FalseAlarm>";
    for (const char name : names) text += std::string("<v name=\"Name.") + name + "\"/>";
    return text + "</FalseAlarm></list>";
}

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
    fs::create_directories(dir / "e.hdb");
    fs::create_directories(dir / "pattern_assistant.xml");
    const Load load(dir.path());
    EXPECT_EQ(load.error, VOLE_E_SIGNATURES);
    EXPECT_EQ(load.problems,
              "a.hdb 1 [a] Malformed md5 pattern [a]; b.hdb 0 [] The link leads nowhere; "
              "c.chk 0 [] Input/output error!; d.hdb 1 [d] Malformed md5 pattern [d]; "
              "pattern_assistant.xml 0 [] Is a directory; ");
    for (const auto& [path, error] : {std::pair(dir / "none", VOLE_E_NOT_FOUND),
                                      {dir / "a.hdb/x", VOLE_E_NOT_FOUND},
                                      {dir / "a.hdb", VOLE_E_NOT_FILE},
                                      {std::string(5000, 'x'), VOLE_E_IO}}) {
        EXPECT_EQ(Load(path).error, error) << path;
    }
}

TEST(Signatures, theIdTellsSetsApartAndNothingElse) {
    const std::string a = md5Record("a", "A"), b = md5Record("b", "B"), c = startRecord("cccc", "C");
    const Load known({{"1.hdb", a + b}, {"2.chk", c}, {"pattern_assistant.xml", falseAlarms("xy")}});
    EXPECT_EQ(known.id(), "1d12a1201ef970d743dbb0e61bc42152");
    const std::tuple<const char*, Files, bool> cases[] = {
        {"other files, line ends and comments",
         {{"1.hdb", "#x\n" + a.substr(0, a.size() - 1) + "\r\n"},
          {"10.hdb", "nonsense\n" + b},
          {"3.chk", "\n" + c},
          {"pattern_assistant.xml", falseAlarms("xy") + "<!-- x -->"}},
         true},
        {"another order of records",
         {{"1.hdb", b + a}, {"2.chk", c}, {"pattern_assistant.xml", falseAlarms("xy")}},
         false},
        {"another order of files",
         {{"2.hdb", a + b}, {"1.chk", c}, {"pattern_assistant.xml", falseAlarms("xy")}},
         false},
        {"a record less", {{"1.hdb", a}, {"2.chk", c}, {"pattern_assistant.xml", falseAlarms("xy")}}, false},
        {"another order of false alarms",
         {{"1.hdb", a + b}, {"2.chk", c}, {"pattern_assistant.xml", falseAlarms("yx")}},
         false},
        {"no false alarms", {{"1.hdb", a + b}, {"2.chk", c}}, false},
    };
    for (const auto& [why, files, same] : cases) EXPECT_EQ(Load(files).id() == known.id(), same) << why;
    for (const auto& [name, is] : {std::pair("Name.x", 1), {"nAME.Y", 1}, {"Name.", 0}, {"Name.xx", 0}}) {
        EXPECT_EQ(vole_signatures_is_false_alarm(known.set, name), is) << name;
    }
    // More than one block of the reader, to whose ends no run of records may reach.
    std::string many, spaced;
    for (int i = 0; i < 20000; ++i)
        many += md5Record("a", std::to_string(i)), spaced += "#\n" + md5Record("a", std::to_string(i));
    EXPECT_EQ(Load(Files{{"1.hdb", many}}).id(), Load(Files{{"1.hdb", spaced}}).id());
}

TEST(Signatures, optionsOfOtherVersionsAreRead) {
    struct {
        vole_load_options options = VOLE_LOAD_OPTIONS_INIT;
        uint64_t later = 0;
    } given;
    const TempDir dir;
    const auto load = [&](std::size_t size, uint32_t flags = 0) {
        given.options.struct_size = size;
        given.options.flags = flags;
        vole_signatures* set = nullptr;
        const vole_error error = vole_signatures_load(dir.path().c_str(), &given.options, &set);
        EXPECT_EQ(vole_signatures_count(set), 0U);
        vole_signatures_unref(vole_signatures_ref(set));
        vole_signatures_unref(set);
        return error;
    };
    EXPECT_EQ(load(sizeof given), VOLE_OK);
    EXPECT_EQ(load(sizeof(std::size_t), 99), VOLE_OK) << "the flags are not in it";
    EXPECT_EQ(load(sizeof given, 2), VOLE_E_ARGUMENT);
    EXPECT_EQ(load(sizeof(std::size_t) - 1), VOLE_E_ARGUMENT);
    EXPECT_EQ(load(SIZE_MAX), VOLE_E_ARGUMENT);
    given.later = 1;
    EXPECT_EQ(load(sizeof given), VOLE_E_ARGUMENT);
    EXPECT_EQ(load(sizeof given.options), VOLE_OK);
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
