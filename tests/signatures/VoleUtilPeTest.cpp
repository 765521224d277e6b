#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "support/Content.h"
#include "support/GoldenRows.h"
#include "support/PeBuilder.h"
#include "support/StringBuffer.h"

namespace {

// One image behind both kinds of source.
struct Image {
    explicit Image(const std::string& bytes) : memory(bytes), file(ZOV_SPACE::fileOf(bytes)) {}

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
    ZOV_SPACE::StringBuffer memory;
    ZOV_SPACE::IOBuffer buffer{&memory};
    ZOV_SPACE::OwnFd file;
};

TEST(VoleUtilPe, recognisesPeFiles) {
    const std::tuple<const char*, PeBuilder, bool, int> cases[] = {
        {"reversed magic", {.magic = "ZM"}, true, 0},
        {"no NT headers", {.newHeader = 0}, false, -1},
        {"half a signature", {.signature = std::string("PE\0\1", 4)}, false, -1},
        {"headers at an odd place", {.newHeader = 0x41}, true, 0},
        {"a moved section table", {.optionalHeaderSize = 300}, true, 0},
        {"sections that the file lacks", {.claimedSections = 65535}, true, -1},
        {"as many sections as there can be", PeBuilder().withSections(65535), true, 0},
        {"sections that fit into the record", PeBuilder().withSections(15), true, 0},
    };
    for (const auto& [why, pe, isPe, result] : cases) {
        Image image(pe.build());
        EXPECT_EQ(image.isPe(), isPe) << why;
        EXPECT_EQ(image.read(), result) << why;
        EXPECT_EQ(image.info.heapSections == nullptr, image.info.sectionCount <= 15) << why;
    }
}

TEST(VoleUtilPe, wildHeaderPositionsAndEveryTruncationFail) {
    // So many sections that they live on the heap, once the file is known to have their table's last byte, and are read
    // in two steps.
    constexpr unsigned kSections = 65;
    const std::string whole = PeBuilder{.paddedTo = 0}.withSections(kSections).build();
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        Image image(whole.substr(0, length));
        ASSERT_EQ(image.read(), length == whole.size() ? 0 : -1) << length;
        ASSERT_EQ(image.isPe(), length >= 0x84) << length;
        ASSERT_EQ(image.info.heapSections != nullptr, length == whole.size()) << length;
        ASSERT_EQ(image.info.heapSections.get(), image.info.sections) << length;
        const _SECTION* const last = image.info.sections ? image.info.sections + kSections - 1 : nullptr;
        ASSERT_TRUE(!last || last->PointerToRawData == 0x200 * kSections);
    }
    const auto size = static_cast<std::uint32_t>(whole.size());
    for (const std::uint32_t wild : {size - 3, size, 0x7FFFFFFFu, 0x80000000u, 0x80000080u, 0xFFFFFFFFu}) {
        std::string bytes = whole;
        PeBuilder::put32(bytes, 0x3C, wild);
        EXPECT_TRUE(!Image(bytes).isPe() && Image(bytes).read() == -1) << wild;
    }
}

TEST(VoleUtilPe, alignsTheFirstSectionAndPlacesTheEntryPoint) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "pe")) {
        PeBuilder pe{.entryPoint = static_cast<std::uint32_t>(std::stoul(row[1], nullptr, 16)), .sections = {}};
        std::istringstream numbers(row[0]);
        for (PeBuilder::Section next;
             numbers >> std::hex >> next.virtualAddress >> next.virtualSize >> next.rawPosition >> next.rawSize;) {
            pe.sections.push_back(next);
        }
        Image image(pe.build());
        std::ostringstream answer;
        answer << image.read() << std::hex;
        const _SECTION* const sections = image.info.sections;
        answer << ' ' << sections[0].PointerToRawData << ' ' << sections[0].SizeOfRawData;
        answer << ' ' << sections[1].SizeOfRawData << ' ' << image.info.entryRaw;
        EXPECT_EQ(answer.str(), row[2]) << row[3];
    }
    EXPECT_EQ(Image(PeBuilder{.sections = {}}.build()).read(), -1);
}

}  // namespace
