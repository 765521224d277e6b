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

    int read() {
        PeInfo2 other;
        const int result = VoleUtil::getPeInfo(&buffer, &info);
        EXPECT_EQ(VoleUtil::getPeInfo(file.get(), &other), result);
        EXPECT_EQ(other.entryRaw, info.entryRaw);
        return result;
    }

    PeInfo2 info;
    ZOV_SPACE::MemBufferBase memory;
    ZOV_SPACE::IOBuffer buffer{&memory};
    OwnFd file;
};

TEST(VoleUtilPe, recognisesPeFiles) {
    struct Case {
        const char* why;
        PeBuilder pe;
        bool isPe, hasInfo = isPe;
    };
    const Case cases[] = {
        {"reversed magic", {.magic = "ZM"}, true},
        {"no NT headers", {.newHeader = 0}, false},
        {"half a signature", {.signature = std::string("PE\0\1", 4)}, false},
        {"headers at an odd place", {.newHeader = 0x41}, true},
        {"a moved section table", {.optionalHeaderSize = 300}, true},
        {"sections that the file lacks", {.claimedSections = 65535}, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Image image(c.pe.build());
        EXPECT_EQ(image.isPe(), c.isPe);
        EXPECT_EQ(image.read(), c.hasInfo ? 0 : -1);
    }
}

TEST(VoleUtilPe, wildHeaderPositionsAndEveryTruncationFail) {
    PeBuilder pe;
    pe.paddedTo = 0;
    const std::string whole = pe.withSections(3).build();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Image image(whole.substr(0, length));
        ASSERT_EQ(image.read(), -1) << length;
        ASSERT_EQ(image.isPe(), length >= 0x84) << length;
    }
    const auto size = static_cast<std::uint32_t>(whole.size());
    for (const std::uint32_t wild : {size - 3, size, 0x7FFFFFFFu, 0x80000000u, 0x80000080u, 0xFFFFFFFFu}) {
        std::string bytes = whole;
        PeBuilder::put32(bytes, 0x3C, wild);
        EXPECT_FALSE(Image(bytes).isPe()) << wild;
        EXPECT_EQ(Image(bytes).read(), -1) << wild;
    }
}

TEST(VoleUtilPe, moreThanFifteenSectionsLiveOnTheHeap) {
    PeInfo2 info;
    for (const unsigned count : {15u, 16u, 65u, 65535u, 1u}) {  // One record serves file after file.
        Image image(PeBuilder().withSections(count).build());
        ASSERT_EQ(VoleUtil::getPeInfo(&image.buffer, &info), 0);
        ASSERT_EQ(info.sectionCount, count);
        EXPECT_EQ(info.sections, count > 15 ? info.heapSections.get() : info.inlineSections);
        EXPECT_EQ(info.sections[count - 1].PointerToRawData, 0x200 * count);
    }
}

TEST(VoleUtilPe, onlyTheFirstSectionIsAligned) {
    struct Case {
        const char* why;
        std::vector<PeBuilder::Section> sections;
        std::uint32_t raw, size;
    };
    const Case cases[] = {
        {"alone: its size stays", {{0x1000, 1, 0x3FF, 0x1F1}}, 0x200, 0x1F1},
        {"others follow", {{0x1000, 1, 0x3FF, 0x1F1}, {0x2000, 1, 0x4FF, 0x101}}, 0x200, 0x200},
        {"rounding up wraps", {{0x1000, 1, 0x1FF, 0xFFFFFFFF}, {0x1000, 1, 0x200, 0x101}}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        PeBuilder pe;
        pe.sections = c.sections;
        Image image(pe.build());
        ASSERT_EQ(image.read(), 0);
        EXPECT_EQ(image.info.sections[0].PointerToRawData, c.raw);
        EXPECT_EQ(image.info.sections[0].SizeOfRawData, c.size);
        EXPECT_EQ(image.info.sections[c.sections.size() - 1].SizeOfRawData, c.sections.back().rawSize);
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
        {"last byte of a section", {code, data}, 0x30FF, 0x6FF},
        {"behind a section", {code, data}, 0x3100, kNone},
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
        EXPECT_EQ(image.read(), c.raw == kNone ? -1 : 0);
        EXPECT_EQ(image.info.entryRaw, c.raw);
    }
}

}  // namespace
