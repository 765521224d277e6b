#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ByteOrder.h"
#include "SlotFilter.h"
#include "VoleScanner.h"
#include "io/MemBufferBase.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/GoldenRows.h"
#include "support/PeBuilder.h"
#include "support/SignatureText.h"
#include "support/Thrown.h"

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

TEST(CheckSumList, storesARecordOrSaysWhatIsWrongWithAField) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "chk")) {
        CheckSumList list;
        std::ostringstream answer;
        answer << ZOV_SPACE::thrownBy<ZOV_SPACE::Exception>([&] { list.addString(row[0].c_str()); });
        for (const CheckSumRecord& p : list.records(kTargetPe)) {
            answer << ' ' << list.nameOf(p) << ' ' << +p.target << ' ' << +p.offsetType << ' ' << +p.offsetParameter;
            answer << ' ' << p.offset1 << ' ' << +p.length1 << ' ' << p.checkString << ' ' << p.checkSum1;
            answer << ' ' << p.offset2 << ' ' << +p.length2 << ' ' << p.checkSum2;
        }
        EXPECT_EQ(answer.str(), row[1]) << row[2];
        EXPECT_EQ(list.count(), list.records(kTargetPe).size()) << row[2];
    }
}

TEST(ChkScanner, looksAtItsOwnKindOfFileUpToTheExactEnds) {
    const auto pe = [](const PeBuilder& builder) {  // Its bytes, those behind the headers made distinct.
        return builder.build().substr(0, 0x200) + randomBytes(0x400, 4);
    };
    const std::map<std::string, std::string> contents{
        {"small", randomBytes(300, 1)},
        {"large", randomBytes(40000, 2)},
        // Entry point and first section at 0x200, a second section at 0x400.
        {"two", pe(PeBuilder{.paddedTo = 0x600}.withSections(2))},
        {"far", pe({.sections = {{0x1000, 0x200, 0xFFFFFE00, 0x200}}, .paddedTo = 0x600})},
        {"farther", pe({.sections = {{0x1000, 0x200, 0x80000000, 0x200}}, .paddedTo = 0x600})},
        {"no entry", pe({.entryPoint = 0x9000, .paddedTo = 0x600})},
        {"few sections", pe({.claimedSections = 60, .paddedTo = 0x600})},
    };
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "scan")) {
        SCOPED_TRACE(row[4]);
        const std::string& bytes = contents.at(row[0]);
        std::istringstream numbers(row[2]);
        unsigned target = 0, type = 0, parameter = 0;
        Place first{}, second{};
        // The prefix of each number says its base.
        numbers >> std::setbase(0) >> target >> type >> parameter >> first.offset >> first.length >> first.position;
        numbers >> second.offset >> second.length >> second.position;
        Content content(bytes);
        CheckSumList list;
        list.addString(recordFor(bytes, target, type, parameter, first, second).c_str());
        EXPECT_EQ(scan(list, content, kAnySize, static_cast<TARGET_TYPE>(std::stoi(row[1]))), row[3]);
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

// Groups at random slots, each with some check strings; every range of groups over a window of exactly their bytes.
TEST(SlotFilter, everyVersionReportsTheGroupsThatAreHitAndNoneOutsideTheRange) {
    std::mt19937 random(2);
    std::vector<std::int16_t> slots;
    std::vector<std::uint32_t> firstEntries{0}, checkStrings;
    for (int slot = -3000; slot < 3000; slot += 1 + static_cast<int>(random() % 3)) {
        slots.push_back(static_cast<std::int16_t>(slot));
        for (auto n = 1 + random() % (slot % 50 == 0 ? 12 : 3); n > 0; --n) {
            checkStrings.push_back(static_cast<std::uint32_t>((random() & 0x03030303) * 5));
        }
        firstEntries.push_back(static_cast<std::uint32_t>(checkStrings.size()));
    }
    const SlotFilter filter(slots, firstEntries, checkStrings);
    for (int turn = 0; turn < 300; ++turn) {
        const std::size_t first = random() % slots.size();
        const std::size_t last =
            first + 1 + random() % std::min<std::size_t>(slots.size() - first, turn % 2 ? 90 : 4000);
        // On the heap and of the exact length, so that the address sanitizer sees a byte too many. Few values, so that
        // hits are frequent; the upper four bits make chance hits only.
        std::vector<char> window(static_cast<std::size_t>(slots[last - 1] - slots[first]) + 4);
        const unsigned noise = turn % 3 == 0 ? 0xF0 : 0;
        std::generate(window.begin(), window.end(),
                      [&] { return static_cast<char>(random() % 4 * 5 | (random() & noise)); });
        std::vector<std::uint32_t> reported;
        for (const BlockTest test : availableBlockTests()) {
            std::vector<std::uint32_t> groups;
            filter.collect(first, last, window, groups, test);
            std::sort(groups.begin(), groups.end());
            ASSERT_TRUE(test == availableBlockTests()[0] || groups == reported) << "versions differ";
            reported = groups;
        }
        ASSERT_TRUE(reported.empty() || (reported.front() >= first && reported.back() < last));
        for (std::size_t group = first; group < last; ++group) {
            const std::uint32_t bytes = ZOV_SPACE::loadU32(window.data() + (slots[group] - slots[first]));
            const auto end = checkStrings.begin() + firstEntries[group + 1];
            const bool hit = std::find(checkStrings.begin() + firstEntries[group], end, bytes) != end;
            ASSERT_TRUE(!hit || std::binary_search(reported.begin(), reported.end(), group)) << group;
        }
    }
}

}  // namespace
