#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "VoleScanner.h"
#include "io/MemBufferBase.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/PeBuilder.h"
#include "support/SignatureText.h"

namespace {

using ZOV_SPACE::IOBuffer;

constexpr int kAnySize = -1;

// A content in each kind of storage that the scanner treats differently.
struct Content {
    explicit Content(const std::string& bytes)
        : file(ZOV_SPACE::fileOf(bytes)), size(static_cast<unsigned>(bytes.size())) {
        // Byte by byte, so that the content does not lie in one block.
        for (const char& byte : bytes) memory.append(&byte, 1);
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
        std::string& name = answers.emplace_back();
        const bool found = ChkScanner(list).scan(source, size, name, target);
        EXPECT_EQ(found, !name.empty());
    };
    for (int turn = 0; turn < 2; ++turn) {
        IOBuffer memory(&content.memory), view(content.view.get());
        ask(&memory);
        ask(&view);
        ask(content.file.get());
        list.index();
    }
    for (const std::string& answer : answers) EXPECT_EQ(answer, answers[0]);
    return answers[0];
}

struct Place {
    int offset;
    unsigned length;
    std::size_t position;  // Where the bytes to match lie in the content.
};

// The line of a record that matches the bytes at the two places, if it reaches them.
std::string recordFor(const std::string& bytes, unsigned target, unsigned type, unsigned parameter, Place first,
                      Place second, const std::string& name = "Found") {
    const auto hex = [](auto... values) { return toHex(std::string{static_cast<char>(values)...}) + ":"; };
    const auto sum = [&](const Place& place) { return crcField(bytes.substr(place.position, place.length)) + ":"; };
    return hex(target) + hex(type, parameter) + hex(first.offset >> 8, first.offset) + hex(first.length) +
           toHex((bytes.substr(first.position, 4) + std::string(4, 0)).substr(0, 4)) + ":" + sum(first) +
           hex(second.offset >> 8, second.offset) + hex(second.length) + sum(second) + name;
}

std::string randomBytes(std::size_t length, unsigned seed, unsigned alphabet = 256) {
    std::mt19937 random(seed);
    std::string bytes(length, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % alphabet);
    return bytes;
}

TEST(ChkScanner, matchesUpToTheExactEndsOfAFile) {
    const auto pe = [](const PeBuilder& builder) {  // Its bytes, those behind the headers made distinct.
        return builder.build().substr(0, 0x200) + randomBytes(0x400, 4);
    };
    const std::string small = randomBytes(300, 1), large = randomBytes(40000, 2);
    // Entry point and first section at 0x200, a second section at 0x400.
    const std::string two = pe(PeBuilder{.paddedTo = 0x600}.withSections(2));
    const std::string far = pe({.sections = {{0x1000, 0x200, 0xFFFFFE00, 0x200}}, .paddedTo = 0x600});
    const std::string sign = pe({.sections = {{0x1000, 0x200, 0x80000000, 0x200}}, .paddedTo = 0x600});
    const std::string noEntry = pe({.entryPoint = 0x9000, .paddedTo = 0x600});
    const std::tuple<const std::string&, unsigned, unsigned, Place, Place, bool, const char*> cases[] = {
        {small, 0, 0, {0, 255, 0}, {255, 45, 255}, true, "the whole file"},
        {small, 0, 0, {0, 255, 0}, {256, 45, 256}, false, "second range one byte beyond"},
        {small, 0, 0, {297, 3, 297}, {0, 1, 0}, false, "the range fits, the check string does not"},
        {small, 0, 0, {10, 1, 10}, {20, 50, 20}, true, "the check string is longer than the range"},
        {small, 0, 0, {296, 0, 0}, {300, 0, 300}, false, "another check string"},
        {small, 0, 0, {0, 4, 0}, {20, 4, 21}, false, "another second sum"},
        {small, 0, 0, {0, 4, 0}, {301, 0, 300}, false, "an empty range beyond the end"},
        {large, 0, 0, {0x7FFF, 255, 0x7FFF}, {0, 4, 0}, true, "largest offset"},
        {large, 0, 0, {-0x8000, 255, 0x8000}, {0, 4, 0}, false, "sign bit"},
        {small, 1, 0, {300, 255, 0}, {45, 45, 255}, true, "from the end: all the way back"},
        {small, 1, 0, {301, 4, 0}, {4, 4, 296}, false, "from the end: before the start"},
        {small, 1, 0, {4, 4, 296}, {0, 0, 300}, true, "from the end: last four"},
        {two, 2, 7, {0, 4, 0x200}, {0x3FC, 4, 0x5FC}, true, "entry point; the parameter means nothing there"},
        {two, 2, 0, {0x3FD, 0, 0x5FD}, {0, 0, 0}, false, "check string beyond the end"},
        {two, 2, 0, {-0x200, 4, 0}, {0, 4, 0x200}, true, "before the entry point"},
        {two, 2, 0, {-0x201, 0, 0}, {0, 0, 0}, false, "before the start"},
        {two, 3, 1, {0, 4, 0x400}, {-0x400, 4, 0}, true, "second section"},
        {two, 3, 2, {0x400, 4, 0x400}, {0, 4, 0}, false, "section number equal to the count"},
        {sign, 3, 0, {0, 4, 0}, {0, 4, 0}, false, "section beyond 2^31"},
        {far, 3, 0, {0x200, 4, 0}, {0x200, 4, 0}, false, "section plus offset is 2^32"},
        {noEntry, 3, 0, {0, 4, 0x200}, {0, 4, 0x200}, false, "without an entry point no sections either"},
    };
    for (const auto& [bytes, type, parameter, first, second, found, why] : cases) {
        SCOPED_TRACE(why);
        Content content(bytes);
        CheckSumList list;
        const unsigned target = bytes.starts_with("MZ") ? kTargetPe : kTargetAny;
        list.addString(recordFor(bytes, target, type, parameter, first, second).c_str());
        EXPECT_EQ(scan(list, content), found ? "Found" : "");
    }
}

TEST(ChkScanner, looksOnlyAtTheRecordsOfTheFilesOwnKind) {
    for (const std::string& bytes : {PeBuilder().build(), randomBytes(0x400, 5)}) {
        const bool isPe = bytes.starts_with("MZ");
        Content content(bytes);
        for (const unsigned target : {0U, 1U, 2U, 3U, 4U, 8U}) {
            CheckSumList list;
            list.addString(recordFor(bytes, target, 0, 0, {0, 16, 0}, {16, 16, 16}).c_str());
            EXPECT_EQ(scan(list, content, kAnySize, 0), target == (isPe ? 3U : 0U) ? "Found" : "");
            EXPECT_EQ(scan(list, content, kAnySize, 3), target == 3 ? "Found" : "") << "not questioned";
            EXPECT_EQ(scan(list, content, kAnySize, 9), "") << "there is no such target";
        }
    }
}

TEST(ChkScanner, takesTheCallersSizeForTheStreams) {
    const std::string bytes = randomBytes(300, 7);
    Content content(bytes), empty("");
    CheckSumList list;
    std::string name;
    EXPECT_FALSE(ChkScanner(list).scan(nullptr, 10, name, kTargetAny));
    EXPECT_FALSE(ChkScanner(list).scan(-1, 10, name, kTargetAny));
    list.addString(recordFor(bytes, 0, 0, 0, {0, 16, 0}, {184, 16, 184}, "ends at 200").c_str());
    EXPECT_EQ(scan(list, content, 199) + scan(list, empty), "");
    list.addString(recordFor(bytes, 0, 1, 0, {50, 16, 150}, {50, 16, 150}, "newer, counts back from 200").c_str());
    EXPECT_EQ(scan(list, content, 200), "newer, counts back from 200");

    // A range lies within the claimed size, but the stream ends sooner: that ends the whole check.
    list.addString(recordFor(bytes, 0, 0, 0, {290, 11, 290}, {0, 1, 0}, "first range comes short").c_str());
    EXPECT_EQ(scan(list, content), "ends at 200") << "with the right size the record is only passed over";
    CapturedLog log;
    EXPECT_EQ(scan(list, content, 400), "");
    EXPECT_EQ(log.count("fail to getBuffer[00000122][0000000b]."), 6U);
    list.addString(recordFor(bytes, 0, 0, 0, {0, 8, 0}, {299, 2, 299}, "second range comes short").c_str());
    EXPECT_EQ(scan(list, content, 400), "");
    EXPECT_EQ(log.count("fail to getBuffer[0000012b][00000002]."), 6U);
    EXPECT_EQ(log.count("chk scan iob: get target code = 0."), 8U) << "once for each scan of a buffer";
    list.addString(recordFor(bytes, 0, 0, 0, {0, 8, 0}, {8, 8, 8}, "newest").c_str());
    EXPECT_EQ(scan(list, content, 400), "newest");
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
            Place first = place(), second = place();
            if (upTo(9) != 0) second = {second.offset, 30, static_cast<std::size_t>(upTo(size))};  // Most come close.
            if (upTo(9) == 0) first.offset = static_cast<int>(random());
            const std::string line = recordFor(bytes, pe ? 3 : 0, type, section, first, second, std::to_string(i));
            list.addString(line.c_str());
        }
        SCOPED_TRACE(round);
        Content content(bytes);
        found.push_back(scan(list, content));
        if (HasFailure()) break;
    }
    const auto misses = std::count(found.begin(), found.end(), "");
    EXPECT_TRUE(misses > 0 && misses < 30) << misses << " misses: both outcomes have to be compared";
}

}  // namespace
