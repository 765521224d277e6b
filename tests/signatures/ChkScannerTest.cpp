#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "ByteOrder.h"
#include "VoleScanner.h"
#include "io/MemBufferBase.h"
#include "io/OwnFd.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"
#include "support/PeBuilder.h"

namespace {

using ZOV_SPACE::IOBuffer;

constexpr int kAnySize = -1;

// A content in each kind of storage that the scanner treats differently.
struct Content {
    explicit Content(const std::string& bytes)
        : file(::memfd_create("content", MFD_CLOEXEC)), size(static_cast<unsigned>(bytes.size())) {
        // Two pieces, so that the content does not lie in one block.
        const auto half = static_cast<int>(bytes.size() / 2);
        memory.append(bytes.data(), half);
        memory.append(bytes.data() + half, static_cast<int>(bytes.size()) - half);
        EXPECT_EQ(::write(file.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        view = ZOV_SPACE::SmartBufferBase::viewOf(file.get(), static_cast<long>(bytes.size()));
    }

    ZOV_SPACE::MemBufferBase memory{16};
    ZOV_SPACE::OwnFd file;
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> view;
    unsigned size;
};

// The name found, or nothing; the same in every storage, with and without the list's index.
std::string scan(CheckSumList& list, Content& content, int claimedSize = kAnySize, TARGET_TYPE target = kTargetAny) {
    const unsigned size = claimedSize == kAnySize ? content.size : static_cast<unsigned>(claimedSize);
    std::vector<std::string> answers;
    const auto ask = [&](auto source) {
        std::string name;
        const bool found = ChkScanner(list).scan(source, size, name, target);
        EXPECT_EQ(found, !name.empty());
        answers.push_back(name);
    };
    const auto askAll = [&] {
        IOBuffer memory(&content.memory);
        ask(&memory);
        IOBuffer view(content.view.get());
        ask(&view);
        ask(content.file.get());
    };
    askAll();
    list.index();
    askAll();
    for (const std::string& answer : answers) EXPECT_EQ(answer, answers[0]);
    return answers[0];
}

std::uint32_t crcOf(const std::string& bytes) {
    ZOV_SPACE::Iso3309Crc crc;
    crc.add(bytes.data(), static_cast<unsigned>(bytes.size()));
    return crc.crc();
}

std::uint32_t wordAt(const std::string& bytes, std::size_t position) {
    return ZOV_SPACE::loadU32((bytes.substr(position, 4) + std::string(4, '\0')).data());
}

struct Place {
    int offset;
    unsigned length;
    std::size_t position;  // Where the bytes to match lie in the content.
};

// A record that matches the bytes at the two places, if it reaches them.
CheckSumPattern recordFor(const std::string& bytes, unsigned target, unsigned type, unsigned parameter, Place first,
                          Place second, const char* name = "Found") {
    CheckSumPattern pattern;
    pattern.target = static_cast<std::uint8_t>(target);
    pattern.offsetType = static_cast<std::uint8_t>(type);
    pattern.offsetParameter = static_cast<std::uint8_t>(parameter);
    pattern.offset1 = static_cast<std::int16_t>(first.offset);
    pattern.length1 = static_cast<std::uint8_t>(first.length);
    pattern.checkString = wordAt(bytes, first.position);
    pattern.checkSum1 = crcOf(bytes.substr(first.position, first.length));
    pattern.offset2 = static_cast<std::int16_t>(second.offset);
    pattern.length2 = static_cast<std::uint8_t>(second.length);
    pattern.checkSum2 = crcOf(bytes.substr(second.position, second.length));
    pattern.name = name;
    return pattern;
}

std::string randomBytes(std::size_t length, unsigned seed, unsigned alphabet = 256) {
    std::mt19937 random(seed);
    std::string bytes(length, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % alphabet);
    return bytes;
}

TEST(ChkScanner, matchesUpToTheExactEndsOfAFile) {
    const std::string bytes = randomBytes(300, 1);
    const std::string large = randomBytes(40000, 2);
    const struct {
        const char* why;
        const std::string& bytes;
        unsigned type;
        Place first;
        Place second;
        bool found;
    } cases[] = {
        {"whole file in two ranges", bytes, 0, {0, 255, 0}, {255, 45, 255}, true},
        {"second range one byte beyond", bytes, 0, {0, 255, 0}, {256, 45, 256}, false},
        {"check string is the last four bytes", bytes, 0, {296, 4, 296}, {0, 1, 0}, true},
        {"range fits, check string does not", bytes, 0, {297, 3, 297}, {0, 1, 0}, false},
        {"check string is longer than the range", bytes, 0, {10, 1, 10}, {0, 1, 0}, true},
        {"first range one byte beyond", bytes, 0, {291, 10, 291}, {0, 1, 0}, false},
        {"empty ranges", bytes, 0, {0, 0, 0}, {0, 0, 0}, true},
        {"empty second range at the end", bytes, 0, {0, 4, 0}, {300, 0, 300}, true},
        {"empty second range beyond the end", bytes, 0, {0, 4, 0}, {301, 0, 300}, false},
        {"overlapping ranges", bytes, 0, {20, 50, 20}, {10, 255, 10}, true},
        {"largest offset", large, 0, {0x7FFF, 255, 0x7FFF}, {0, 4, 0}, true},
        {"offset with the sign bit", large, 0, {-0x8000, 255, 0x8000}, {0, 4, 0}, false},
        {"second offset with the sign bit", large, 0, {0, 4, 0}, {-0x8000, 4, 0x8000}, false},
        {"from the end: all the way back", bytes, 1, {300, 255, 0}, {45, 45, 255}, true},
        {"from the end: before the start", bytes, 1, {301, 4, 0}, {4, 4, 296}, false},
        {"from the end: second before the start", bytes, 1, {300, 4, 0}, {301, 4, 0}, false},
        {"from the end: last four", bytes, 1, {4, 4, 296}, {4, 4, 296}, true},
        {"from the end: three left", bytes, 1, {3, 3, 297}, {4, 4, 296}, false},
        {"from the end: nothing left", bytes, 1, {0, 0, 300}, {4, 4, 296}, false},
        {"from the end: empty second range at the end", bytes, 1, {300, 4, 0}, {0, 0, 300}, true},
        {"from the end: negative", bytes, 1, {-1, 0, 0}, {4, 4, 296}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        Content content(c.bytes);
        CheckSumList list;
        list.addPattern(recordFor(c.bytes, kTargetAny, c.type, 0, c.first, c.second));
        EXPECT_EQ(scan(list, content), c.found ? "Found" : "");
    }
}

TEST(ChkScanner, matchesOnlyWhenAllThreeSumsDo) {
    const std::string bytes = randomBytes(300, 3);
    Content content(bytes);
    const CheckSumPattern good = recordFor(bytes, kTargetAny, 0, 0, {5, 20, 5}, {50, 20, 50});
    for (std::uint32_t CheckSumPattern::*sum :
         {&CheckSumPattern::checkString, &CheckSumPattern::checkSum1, &CheckSumPattern::checkSum2}) {
        for (const unsigned bit : {0U, 31U}) {
            CheckSumPattern bad = good;
            bad.*sum ^= 1U << bit;
            CheckSumList list;
            list.addPattern(bad);
            EXPECT_EQ(scan(list, content), "");
        }
    }
}

TEST(ChkScanner, placesOffsetsInPeFiles) {
    // Entry point and first section at 0x200, a second section at 0x400.
    const PeBuilder two = PeBuilder{.paddedTo = 0x600}.withSections(2);
    const PeBuilder::Section farSection{0x1000, 0x200, 0xFFFFFE00, 0x200};
    const PeBuilder::Section signSection{0x1000, 0x200, 0x80000000, 0x200};
    const PeBuilder far{.sections = {farSection}, .paddedTo = 0x600};
    const PeBuilder sign{.sections = {signSection}, .paddedTo = 0x600};
    const PeBuilder noEntry{.entryPoint = 0x9000, .paddedTo = 0x600};
    const PeBuilder headerEntry{.entryPoint = 0x10, .paddedTo = 0x600};
    const PeBuilder shortTable{.claimedSections = 60, .paddedTo = 0x600};
    const struct {
        const char* why;
        const PeBuilder& pe;
        unsigned type;
        unsigned parameter;
        int offset;
        std::size_t position;
        bool found;
    } cases[] = {
        {"from the start", two, 0, 0, 3, 3, true},
        {"from the end", two, 1, 0, 4, 0x5FC, true},
        {"entry point", two, 2, 0, 0, 0x200, true},
        {"behind the entry point", two, 2, 0, 0x3FC, 0x5FC, true},
        {"behind the entry point, check string beyond", two, 2, 0, 0x3FD, 0x5FD, false},
        {"behind the entry point, far beyond", two, 2, 0, 0x7FFF, 0x5FC, false},
        {"before the entry point", two, 2, 0, -0x200, 0, true},
        {"before the start", two, 2, 0, -0x201, 0, false},
        {"far before the start", two, 2, 0, -0x8000, 0, false},
        {"the parameter means nothing here", two, 2, 7, 0, 0x200, true},
        {"first section", two, 3, 0, 0, 0x200, true},
        {"second section", two, 3, 1, 0, 0x400, true},
        {"before the second section", two, 3, 1, -0x400, 0, true},
        {"section number equal to the count", two, 3, 2, 0, 0x400, false},
        {"largest section number", two, 3, 255, 0, 0x400, false},
        {"section beyond 2^31", sign, 3, 0, 0, 0, false},
        {"entry point beyond 2^31", sign, 2, 0, 0, 0, false},
        {"section plus offset is 2^32", far, 3, 0, 0x200, 0, false},
        {"entry point plus offset is 2^32", far, 2, 0, 0x200, 0, false},
        {"entry point plus offset is 2^32 and some", far, 2, 0, 0x300, 0x100, false},
        {"no entry point", noEntry, 2, 0, 0, 0x200, false},
        {"without an entry point no sections either", noEntry, 3, 0, 0, 0x200, false},
        {"without an entry point the ends are still there", noEntry, 0, 0, 0, 0, true},
        {"entry point in the headers", headerEntry, 2, 0, 0, 0x10, true},
        {"section table beyond the end", shortTable, 3, 0, 0, 0x200, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        std::string bytes = c.pe.build();
        // Tell positions apart where the headers leave room.
        bytes.replace(0x200, std::string::npos, randomBytes(bytes.size() - 0x200, 4));
        Content content(bytes);
        CheckSumList list;
        const Place place{c.offset, 4, c.position};
        list.addPattern(recordFor(bytes, kTargetPe, c.type, c.parameter, place, place));
        EXPECT_EQ(scan(list, content), c.found ? "Found" : "");
    }
}

TEST(ChkScanner, looksOnlyAtTheRecordsOfTheFilesOwnKind) {
    const std::string plain = randomBytes(0x400, 5);
    const std::string pe = PeBuilder().build();
    const auto foundIn = [](const std::string& bytes, unsigned recordTarget, TARGET_TYPE askedTarget) {
        Content content(bytes);
        CheckSumList list;
        list.addPattern(recordFor(bytes, recordTarget, 0, 0, {0, 16, 0}, {16, 16, 16}));
        return !scan(list, content, kAnySize, askedTarget).empty();
    };
    EXPECT_TRUE(foundIn(plain, 0, 0));
    EXPECT_TRUE(foundIn(pe, 3, 0));
    EXPECT_FALSE(foundIn(pe, 0, 0));
    EXPECT_FALSE(foundIn(plain, 3, 0));
    for (const unsigned target : {1U, 2U, 4U, 8U}) {
        EXPECT_FALSE(foundIn(plain, target, 0));
        EXPECT_FALSE(foundIn(pe, target, 0));
    }
    EXPECT_TRUE(foundIn(plain, 3, 3)) << "a target that the caller names is not questioned";
    EXPECT_FALSE(foundIn(plain, 0, 9)) << "there is no such target";

    CapturedLog log;
    foundIn(pe, 3, 0);
    EXPECT_EQ(log.count("chk scan iob: get target code = 3."), 4U) << "once for each scan of a buffer";
}

TEST(ChkScanner, triesTheNewestRecordFirst) {
    const std::string bytes = randomBytes(300, 6);
    Content content(bytes);
    CheckSumList list;
    list.addPattern(recordFor(bytes, 0, 1, 0, {100, 9, 200}, {1, 1, 299}, "oldest"));
    list.addPattern(recordFor(bytes, 0, 0, 0, {7, 9, 7}, {1, 1, 1}, "middle"));
    EXPECT_EQ(scan(list, content), "middle");
    list.addPattern(recordFor(bytes, 0, 1, 0, {200, 5, 100}, {9, 1, 291}, "newest"));
    list.addPattern(recordFor(bytes, 0, 0, 0, {8, 9, 9}, {1, 1, 1}, "does not match"));
    EXPECT_EQ(scan(list, content), "newest");
}

TEST(ChkScanner, takesTheCallersSizeForTheStreams) {
    const std::string bytes = randomBytes(300, 7);
    Content content(bytes);
    CheckSumList list;
    list.addPattern(recordFor(bytes, 0, 0, 0, {0, 16, 0}, {184, 16, 184}, "ends at 200"));
    EXPECT_EQ(scan(list, content, 200), "ends at 200");
    EXPECT_EQ(scan(list, content, 199), "");
    EXPECT_EQ(scan(list, content, 0), "");
    list.addPattern(recordFor(bytes, 0, 1, 0, {50, 16, 150}, {50, 16, 150}, "counts back from 200"));
    EXPECT_EQ(scan(list, content, 200), "counts back from 200");

    // The range lies within the claimed size, but the stream ends sooner: that ends the whole check.
    list.addPattern(recordFor(bytes, 0, 0, 0, {290, 11, 290}, {0, 1, 0}, "reaches 301"));
    EXPECT_EQ(scan(list, content), "ends at 200") << "counted back from 300 the other is elsewhere";
    EXPECT_EQ(scan(list, content, 400), "");
    list.addPattern(recordFor(bytes, 0, 0, 0, {0, 8, 0}, {8, 8, 8}, "newer"));
    EXPECT_EQ(scan(list, content, 400), "newer");
    list.addPattern(recordFor(bytes, 0, 0, 0, {290, 11, 290}, {0, 1, 0}, "first range comes short"));
    {
        CapturedLog log;
        EXPECT_EQ(scan(list, content, 400), "");
        EXPECT_EQ(log.count("fail to getBuffer[00000122][0000000b]."), 6U);
    }
    EXPECT_EQ(scan(list, content), "newer") << "with the right size the record is only passed over";
    list.addPattern(recordFor(bytes, 0, 0, 0, {0, 8, 0}, {299, 2, 299}, "second range comes short"));
    CapturedLog log;
    EXPECT_EQ(scan(list, content, 400), "");
    EXPECT_EQ(log.count("fail to getBuffer[0000012b][00000002]."), 6U);
}

TEST(ChkScanner, survivesWhatIsNoContentAtAll) {
    CheckSumList list;
    std::string name = "untouched";
    EXPECT_FALSE(ChkScanner(list).scan(nullptr, 10, name, kTargetAny));
    EXPECT_FALSE(ChkScanner(list).scan(-1, 10, name, kTargetAny));
    Content empty("");
    list.addPattern(recordFor("", 0, 0, 0, {0, 0, 0}, {0, 0, 0}));
    EXPECT_EQ(scan(list, empty), "") << "there is no check string";
    EXPECT_EQ(name, "untouched");
}

// The index against the plain walk. Contents of few different bytes make many records share check strings and sums.
TEST(ChkScanner, findsTheSameWithAndWithoutTheIndex) {
    std::mt19937 random(8);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit + 1)); };
    std::vector<std::string> found;
    for (unsigned round = 0; round < 60; ++round) {
        const bool pe = round % 2 == 0;
        std::string bytes = randomBytes(0x600, round, 2 + round % 3);
        if (pe) bytes.replace(0, 0x200, PeBuilder().withSections(2).build(), 0, 0x200);
        CheckSumList list;
        const int records = 1 + upTo(300);
        for (int i = 0; i < records; ++i) {
            const auto type = static_cast<unsigned>(upTo(pe ? 3 : 1));
            const auto section = static_cast<unsigned>(upTo(2));
            const auto size = static_cast<int>(bytes.size());
            const int base = type == 0 ? 0 : type == 1 ? size : type == 2 || section == 0 ? 0x200 : 0x400;
            const auto place = [&]() -> Place {
                const int position = upTo(size + 20);
                return {type == 1 ? base - position : position - base, static_cast<unsigned>(upTo(30)),
                        static_cast<std::size_t>(std::min(position, size))};
            };
            CheckSumPattern pattern = recordFor(bytes, pe ? 3 : 0, type, section, place(), place(), "");
            const std::string name = std::to_string(i);
            pattern.name = name.c_str();
            if (upTo(9) != 0) pattern.checkSum2 ^= 1;  // Most come close only.
            if (upTo(9) == 0) pattern.offset1 = static_cast<std::int16_t>(random());
            list.addPattern(pattern);
        }
        SCOPED_TRACE(round);
        Content content(bytes);
        found.push_back(scan(list, content));
        if (HasFailure()) break;
    }
    const auto misses = std::count(found.begin(), found.end(), "");
    EXPECT_GT(misses, 0) << "both outcomes have to be compared";
    EXPECT_GT(static_cast<std::ptrdiff_t>(found.size()) - misses, 30);
}

}  // namespace
