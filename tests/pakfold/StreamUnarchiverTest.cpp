#include "streams/StreamUnarchiver.h"

#include <gtest/gtest.h>

#include "support/EntryCollector.h"
#include "support/GoldenRows.h"
#include "support/StringBuffer.h"

namespace ZOV_SPACE {
namespace {

// Pieces by their keys, one behind the other, cut or changed as the words say.
std::string streamOf(const std::string& recipe) {
    static const auto pieces = [] {
        std::map<std::string, std::string> all;
        for (const GoldenRow& row : goldenRows(VOLE_STREAM_ROWS, "piece")) all[row[0]] = row[1];
        return all;
    }();
    std::istringstream words(recipe);
    std::string bytes;
    for (std::string word; words >> word;) {
        const std::size_t mark = word.find_first_of("<^");
        const auto piece = pieces.find(word.substr(0, mark));
        std::string content = piece == pieces.end() ? word : piece->second;
        if (mark != word.npos) {
            const auto place = std::stoul(word.substr(mark + 1));
            if (word[mark] == '^') content.at(place) = static_cast<char>(content[place] ^ 0x5A);
            if (word[mark] == '<') content.resize(place);
        }
        bytes += content;
    }
    return bytes;
}

struct NamedArchive : EntryCollector {
    std::string name;
    std::string archiveName() const override { return name; }
};

void walk(const std::string& bytes, EntryCollector& entries) {
    StringBuffer content(bytes);
    const ArchiveId& format = deepFormat(content, ARCHIVEID_NONE);
    if (&format != &ARCHIVEID_NONE) format.unarchiver(&content, entries, nullptr)->start();
}

bool isLeftOut(const std::string& bytes) {
    StringBuffer content(bytes);
    const char* const format = foreignFormat(content);
    return format && !isWalked(deepFormat(content, ARCHIVEID_NONE), format);
}

TEST(StreamUnarchiver, unpacksAllThatAnyReaderWouldAndTellsOfTheRest) {
    for (const GoldenRow& row : goldenRows(VOLE_STREAM_ROWS, "stream")) {
        SCOPED_TRACE(row[3]);
        const std::string bytes = streamOf(row[0]);
        if (isLeftOut(bytes)) continue;
        EntryCollector entries;
        walk(bytes, entries);
        EXPECT_EQ(entries.contents(), row[1] + " ");
        EXPECT_EQ(entries.troubles, row[2]);
        EXPECT_EQ(entries.completed(), entries.entries.at(0).name + " ");
        EXPECT_TRUE(entries.begun == 1 && entries.ended == 1 && entries.released == 1);
    }
}

TEST(StreamUnarchiver, callsItsMemberAsUnpackersDo) {
    for (const GoldenRow& row : goldenRows(VOLE_STREAM_ROWS, "name")) {
        NamedArchive entries;
        entries.name = row[0];
        walk(streamOf("gz1"), entries);
        EXPECT_EQ(entries.contents(), row[1] + "=one  ") << row[2];
    }
}

TEST(StreamUnarchiver, doesNotDecodeWhatNobodyTakes) {
    EntryCollector skipping(kActionSkip), full;
    walk(streamOf("gz1 garbage"), skipping);
    EXPECT_EQ(skipping.contents() + skipping.troubles, "data= ");
    full.room = 2;
    walk(streamOf("gz1 garbage"), full);
    EXPECT_EQ(full.contents() + full.troubles + full.completed(), "data=on data ");
}

}  // namespace
}  // namespace ZOV_SPACE
