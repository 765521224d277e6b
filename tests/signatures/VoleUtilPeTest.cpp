#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "io/MemBufferBase.h"
#include "io/OwnFd.h"
#include "support/PeBuilder.h"

namespace {

using ZOV_SPACE::OwnFd;

// One image behind both kinds of source.
struct Image {
    explicit Image(const std::string& bytes) : file(::memfd_create("image", MFD_CLOEXEC)) {
        if (!bytes.empty()) memory.append(bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(::write(file.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    bool isPe() {
        const bool result = VoleUtil::checkPeFile(&buffer);
        EXPECT_EQ(VoleUtil::checkPeFile(file.get()), result);
        return result;
    }

    int read(PeInfo2& info) {
        PeInfo2 other;
        const int result = VoleUtil::getPeInfo(&buffer, &info);
        EXPECT_EQ(VoleUtil::getPeInfo(file.get(), &other), result);
        EXPECT_EQ(other.entryRaw, info.entryRaw);
        EXPECT_EQ(other.sectionCount, info.sectionCount);
        return result;
    }

    ZOV_SPACE::MemBufferBase memory;
    ZOV_SPACE::IOBuffer buffer{&memory};
    OwnFd file;
};

TEST(VoleUtilPe, recognisesPeFiles) {
    struct Case {
        const char* why;
        PeBuilder pe;
        bool isPe;
    };
    const Case cases[] = {
        {"plain", {}, true},
        {"reversed magic", {.magic = "ZM"}, true},
        {"other magic", {.magic = "mz"}, false},
        {"no NT headers", {.newHeader = 0}, false},
        {"other NT headers", {.signature = std::string("NE\0\0", 4)}, false},
        {"half a signature", {.signature = std::string("PE\0\1", 4)}, false},
        {"headers at an odd place", {.newHeader = 0x41}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Image image(c.pe.build());
        PeInfo2 info;
        EXPECT_EQ(image.isPe(), c.isPe);
        EXPECT_EQ(image.read(info), c.isPe ? 0 : -1);
    }
    EXPECT_FALSE(VoleUtil::checkPeFile(nullptr));
    EXPECT_FALSE(VoleUtil::checkPeFile(-1));
    PeInfo2 info;
    EXPECT_EQ(VoleUtil::getPeInfo(nullptr, &info), -1);
}

TEST(VoleUtilPe, wildHeaderPositionsAreRefused) {
    for (const std::uint32_t wild : {0x3FDu, 0x400u, 0x401u, 0x7FFFFFFFu, 0x80000000u, 0x80000080u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(wild);
        std::string bytes = PeBuilder().build();
        PeBuilder::put32(bytes, 0x3C, wild);
        Image image(bytes);
        PeInfo2 info;
        EXPECT_FALSE(image.isPe());
        EXPECT_EQ(image.read(info), -1);
        EXPECT_EQ(info.sections, nullptr);
    }
}

TEST(VoleUtilPe, everyTruncationFails) {
    PeBuilder pe;
    pe.paddedTo = 0;
    const std::string bytes = pe.withSections(3).build();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        Image image(bytes.substr(0, length));
        PeInfo2 info;
        ASSERT_EQ(image.read(info), -1) << length;
        ASSERT_EQ(image.isPe(), length >= 0x84) << length;
    }
    Image image(bytes);
    PeInfo2 info;
    EXPECT_EQ(image.read(info), 0);
}

TEST(VoleUtilPe, moreThanFifteenSectionsLiveOnTheHeap) {
    PeInfo2 info;
    for (const unsigned count : {15u, 16u, 64u, 65u, 1000u, 1u}) {  // One record serves file after file.
        SCOPED_TRACE(count);
        Image image(PeBuilder().withSections(count).build());
        ASSERT_EQ(image.read(info), 0);
        ASSERT_EQ(info.sectionCount, count);
        EXPECT_EQ(info.sections, count > 15 ? info.heapSections.get() : info.inlineSections);
        EXPECT_EQ(info.heapSections != nullptr, count > 15);
        EXPECT_EQ(info.sections[count - 1].VirtualAddress, 0x1000 * count);
        EXPECT_EQ(info.sections[count - 1].VirtualSize, 0x1000u);
        EXPECT_EQ(info.sections[count - 1].PointerToRawData, 0x200 * count);
        EXPECT_EQ(info.sections[count - 1].SizeOfRawData, 0x200u);
    }
}

TEST(VoleUtilPe, claimedSectionsThatTheFileLacksAreNotAllocated) {
    PeBuilder pe;
    pe.claimedSections = 65535;
    Image image(pe.build());
    PeInfo2 info;
    EXPECT_EQ(image.read(info), -1);
    EXPECT_EQ(info.heapSections, nullptr);
    EXPECT_EQ(info.sectionCount, 0);

    Image complete(PeBuilder().withSections(65535).build());
    EXPECT_EQ(complete.read(info), 0);
    EXPECT_EQ(info.sectionCount, 65535);
}

TEST(VoleUtilPe, onlyTheFirstSectionIsAligned) {
    struct Case {
        const char* why;
        std::vector<PeBuilder::Section> sections;
        std::uint32_t firstRaw, firstSize, secondRaw, secondSize;
    };
    const Case cases[] = {
        {"alone: its size stays", {{0x1000, 1, 0x3FF, 0x1F1}}, 0x200, 0x1F1, 0, 0},
        {"others follow", {{0x1000, 1, 0x3FF, 0x1F1}, {0x2000, 1, 0x4FF, 0x101}}, 0x200, 0x200, 0x4FF, 0x101},
        {"rounding up wraps", {{0x1000, 1, 0x1FF, 0xFFFFFFFF}, {0x1000, 1, 0x200, 1}}, 0, 0, 0x200, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        PeBuilder pe;
        pe.sections = c.sections;
        Image image(pe.build());
        PeInfo2 info;
        ASSERT_EQ(image.read(info), 0);
        EXPECT_EQ(info.sections[0].PointerToRawData, c.firstRaw);
        EXPECT_EQ(info.sections[0].SizeOfRawData, c.firstSize);
        if (c.sections.size() < 2) continue;
        EXPECT_EQ(info.sections[1].PointerToRawData, c.secondRaw);
        EXPECT_EQ(info.sections[1].SizeOfRawData, c.secondSize);
    }
}

TEST(VoleUtilPe, placesTheEntryPoint) {
    const PeBuilder::Section code{0x1000, 0, 0x400, 0x200}, data{0x3000, 0, 0x600, 0x100},
        overlapping{0x10FF, 0, 0x800, 0x200}, huge{0xFFFFF000, 0, 0x600, 0xFFFFFFFF};
    struct Case {
        const char* why;
        std::vector<PeBuilder::Section> sections;
        std::uint32_t entryPoint, raw;
    };
    constexpr std::uint32_t kNone = 0xFFFFFFFF;
    const Case cases[] = {
        {"first byte of a section", {code, data}, 0x1000, 0x400},
        {"last byte of a section", {code, data}, 0x30FF, 0x6FF},
        {"behind a section", {code, data}, 0x3100, kNone},
        {"between sections", {code, data}, 0x1200, kNone},
        {"in the headers", {code, data}, 0xFFF, 0xFFF},
        {"the first section that has it wins", {code, overlapping}, 0x1100, 0x500},
        {"below the first section but not the lowest", {data, code}, 0x1000, 0x400},
        {"a section's end beyond 32 bits", {code, huge}, 0xFFFFF001, 0x601},
        {"a raw position beyond 32 bits", {code, {0x2000, 0, 0xFFFFFF00, 0x1000}}, 0x2200, kNone},
        {"no sections", {}, 0x1000, kNone},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        PeBuilder pe;
        pe.sections = c.sections;
        pe.entryPoint = c.entryPoint;
        Image image(pe.build());
        PeInfo2 info;
        EXPECT_EQ(image.read(info), c.raw == kNone ? -1 : 0);
        EXPECT_EQ(info.entryRaw, c.raw);
    }
    EXPECT_EQ(VoleUtil::getRawAddr(0, nullptr, 1), kNone);
}

TEST(VoleUtilPe, optionalHeaderSizeMovesTheSectionTable) {
    for (const std::uint16_t size : {std::uint16_t{0}, std::uint16_t{300}, std::uint16_t{65535}}) {
        SCOPED_TRACE(size);
        PeBuilder pe;
        pe.optionalHeaderSize = size;
        pe.sections = {{0x1000, 0, 0x200, 0x200}};
        Image image(pe.build());
        PeInfo2 info;
        // With size 0 the table lies over the optional header: its first bytes are the entry point's field.
        EXPECT_EQ(image.isPe(), true);
        image.read(info);
        ASSERT_EQ(info.sectionCount, 1);
        EXPECT_EQ(info.sections[0].VirtualAddress, 0x1000u);
    }
}

}  // namespace
