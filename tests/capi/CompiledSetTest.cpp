#include "CompiledSet.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "support/VoleHost.h"

namespace {

namespace fs = std::filesystem;

// Records of all kinds: some of one content, so many offsets that the check-sum index has a filter over them, false
// alarms, and a line that is left out but for its size.
std::string writePatterns(const TempDir& dir) {
    std::string digests =
        md5Record("twice", "Older") + md5Record("", "Empty") + "zz" + md5Record("skipped", "x").substr(2);
    std::string sums = startRecord("a known start", "Start-13") + startRecord("a kn", "Start-4");
    for (int i = 0; i < 2000; ++i) digests += md5Record("content " + std::to_string(i), "Md5-" + std::to_string(i));
    for (int i = 0; i < 600; ++i) {
        char offset[5];
        std::snprintf(offset, sizeof offset, "%04x", i * 3);
        sums += "00:0000:" + std::string(offset) + ":04:" + toHex("need") + ":" + crcField("need") +
                ":0:0:" + crcField("") + ":Needle-" + std::to_string(i) + "\n";
    }
    dir.write("patterns/a.hdb", digests + md5Record("twice", "Newer"));
    dir.write("patterns/a.chk", sums);
    return fs::path(dir.write("patterns/pattern_assistant.xml",
                              "<l><FalseAlarm><i name=\"start-4\"/><i name=\"md5-7\"/></FalseAlarm></l>"))
        .parent_path();
}

// All that a host can learn of a set.
std::string behaviourOf(const VoleSet& set) {
    std::string text = vole_signatures_id(set.get()) + std::to_string(vole_signatures_count(set.get()));
    const VoleScanner scanner = scannerOf(set);
    vole_scanner_set_flags(scanner.get(), VOLE_SCAN_ALL_MATCHES);
    std::string needles(2000, '-');
    for (const std::size_t at : {0, 3, 4, 900, 1797}) needles.replace(at, 4, "need");
    for (const std::string& content : {std::string("twice"), std::string("content 7"), std::string("content 1999"),
                                       std::string("contents"), std::string("a known start, and more"), needles}) {
        text += "\n" + toldOf(scanner.get(), content);
    }
    for (int size = 0; size < 3000; ++size) text += toldOf(scanner.get(), std::string(size, 'x'))[0];
    return text;
}

TEST(CompiledSet, isTheSameSet) {
    const TempDir dir;
    const VoleSet parsed = loadedSet(writePatterns(dir));
    const std::string one = dir / "one.vset", two = dir / "two";
    ASSERT_EQ(vole_signatures_save(parsed.get(), one.c_str()), VOLE_OK);
    const VoleSet compiled = loadedSet(one);
    ASSERT_EQ(vole_signatures_save(compiled.get(), two.c_str()), VOLE_OK);
    const std::string expected = behaviourOf(parsed);
    EXPECT_NE(expected.find("found Newer=md5,raw Older=md5,raw"), std::string::npos) << expected;
    EXPECT_NE(expected.find("Needle-599=checksum,raw,1797 Needle-300"), std::string::npos) << expected;
    EXPECT_NE(expected.find("Start-4!="), std::string::npos) << expected;
    for (const std::string& path : {one, two}) EXPECT_EQ(behaviourOf(loadedSet(path)), expected) << path;
    EXPECT_EQ(vole_signatures_is_false_alarm(compiled.get(), "MD5-7"), 1);
    EXPECT_NEAR(static_cast<double>(vole_signatures_memory(compiled.get())), static_cast<double>(fs::file_size(one)),
                3e3);
    // A set in use stays when another one takes its name, and when there is no file any more.
    ASSERT_EQ(vole_signatures_save(loadedSet(two).get(), one.c_str()), VOLE_OK);
    fs::remove(one);
    EXPECT_EQ(behaviourOf(compiled), expected);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 2) << "nothing else is left there";
    for (const auto& [path, error] : {std::pair(dir.path().string(), VOLE_E_NOT_FILE),
                                      {"/dev/full", VOLE_E_NOT_FILE},
                                      {dir / "gone/x", VOLE_E_NOT_FOUND},
                                      {dir / std::string(250, 'x'), VOLE_E_IO}}) {
        EXPECT_EQ(vole_signatures_save(parsed.get(), path.c_str()), error) << path;
    }
}

int noteReason(void* context, const vole_load_problem* problem) {
    *static_cast<std::string*>(context) += problem->reason + std::string(problem->fatal ? "!" : "");
    return 0;
}

TEST(CompiledSet, whatIsWrongWithAFileIsSaid) {
    const TempDir dir;
    const std::string path = dir / "set";
    ASSERT_EQ(vole_signatures_save(loadedSet(writePatterns(dir)).get(), path.c_str()), VOLE_OK);
    const std::string sound = TempDir::contentOf(path);
    compiled::Header header;
    std::memcpy(&header, sound.data(), sizeof header);
    const auto directory = static_cast<std::size_t>(header.directory);
    const std::size_t entry = sizeof(compiled::DirectoryEntry);
    const std::string misfit = "The file is damaged: its tables do not fit together!";
    const std::string ofHeader = "The file is damaged: the checksum of its header is another one!";
    const struct {
        std::size_t at;    // Of a changed byte; beyond the file: none.
        char flipped;      // Its bits.
        bool sealed;       // The header's checksum is made right again.
        std::size_t size;  // What is left of the file.
        std::string told;  // Without VOLE_LOAD_STRICT, and with it.
        std::string strict;
    } rows[] = {
        {0, 1, true, SIZE_MAX, "It is neither a pattern directory nor a compiled set of signatures!", ""},
        {8, 3, true, SIZE_MAX, "The file has format 2, and this engine reads format 1!", ""},
        {12, 5, true, SIZE_MAX, "The file is for another kind of processor!", ""},
        {SIZE_MAX, 0, false, 95, "The file is cut off in its header!", ""},
        {SIZE_MAX, 0, false, sound.size() - 1, "The file is not as long as its header says!", ""},
        {24, 1, false, SIZE_MAX, "The file is damaged: its directory does not end it!", ""},
        {40, 1, false, SIZE_MAX, ofHeader, ""},
        {48, 1, false, SIZE_MAX, ofHeader, ""},
        {sound.size() - 1, 1, false, SIZE_MAX, ofHeader, ""},
        {40, 1, true, SIZE_MAX, misfit, ""},
        {48, 64, true, SIZE_MAX, misfit, ""},
        {directory, 1, true, SIZE_MAX, misfit, ""},                  // Not aligned.
        {directory + 7, 1, true, SIZE_MAX, misfit, ""},              // Behind the file.
        {directory + 8, 1, true, SIZE_MAX, misfit, ""},              // No whole elements.
        {directory + 15, char(0x80), true, SIZE_MAX, misfit, ""},    // Nearly all that there are.
        {directory + 16, 16, true, SIZE_MAX, misfit, ""},            // Other elements.
        {directory + entry + 9, 1, true, SIZE_MAX, misfit, ""},      // Too few bits.
        {directory + 5 * entry + 8, 1, true, SIZE_MAX, misfit, ""},  // Names that do not end.
        {128, 1, false, SIZE_MAX, "", "The file is damaged: the checksum of table 1 is another one!"},
        {directory - 64, 1, false, SIZE_MAX, "", "The file is damaged: the checksum of table 34 is another one!"},
    };
    for (const auto& row : rows) {
        std::string bytes = sound.substr(0, row.size);
        if (row.at < bytes.size()) bytes[row.at] = static_cast<char>(bytes[row.at] ^ row.flipped);
        if (row.sealed) {
            std::memcpy(&header, bytes.data(), sizeof header);
            header.checksum = compiled::headerChecksum(header, std::as_bytes(std::span(bytes).subspan(directory)));
            std::memcpy(bytes.data(), &header, sizeof header);
        }
        dir.write("set", bytes);
        for (const bool strict : {false, true}) {
            std::string told;
            const vole_load_options options{sizeof options, strict ? VOLE_LOAD_STRICT : 0, noteReason, &told};
            vole_signatures* set = nullptr;
            const vole_error error = vole_signatures_load(path.c_str(), &options, &set);
            EXPECT_EQ(told, row.told.empty() && strict ? row.strict : row.told) << row.at;
            EXPECT_EQ(error, told.empty() ? VOLE_OK : row.at == 0 ? VOLE_E_NOT_FILE : VOLE_E_SIGNATURES) << row.at;
            vole_signatures_unref(set);
        }
    }
    dir.write("set", sound);
    EXPECT_TRUE(loadedSet(path));
    ::chmod(path.c_str(), 0666);
    EXPECT_FALSE(loadedSet(path)) << "others could cut it off";
}

}  // namespace
