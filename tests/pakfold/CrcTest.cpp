#include "utils/Crc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace ZOV_SPACE {
namespace {

std::uint32_t bitwiseCrc32(const char* bytes, std::size_t n) {
    std::uint32_t reg = 0xFFFFFFFF;
    for (std::size_t i = 0; i < n; ++i) {
        reg ^= static_cast<unsigned char>(bytes[i]);
        for (int bit = 0; bit < 8; ++bit) reg = reg & 1 ? reg >> 1 ^ 0xEDB88320 : reg >> 1;
    }
    return ~reg;
}

TEST(Crc, knownValues) {
    struct Case {
        const char* text;
        std::uint32_t crc;
    };
    for (const Case& c : {Case{"", 0}, Case{"a", 0xE8B7BE43}, Case{"123456789", 0xCBF43926}}) {
        SCOPED_TRACE(c.text);
        const auto length = static_cast<unsigned>(std::string(c.text).size());
        Iso3309Crc iso;
        EXPECT_EQ(iso.add(c.text, length), c.crc);
        EXPECT_EQ(iso.crc(), c.crc);
        RarCrc rar;
        EXPECT_EQ(rar.add(c.text, length), ~c.crc);
        EXPECT_EQ(rar.crc(), ~c.crc);
    }
}

TEST(Crc, everyAlignmentAndLengthAgreesWithTheBitwiseMethod) {
    std::mt19937 random(1);
    std::string bytes(80, '\0');
    for (char& c : bytes) c = static_cast<char>(random());

    for (std::size_t start = 0; start < 9; ++start) {
        for (unsigned n = 0; n <= 64; ++n) {
            SCOPED_TRACE(testing::Message() << n << " bytes from " << start);
            const std::uint32_t expected = bitwiseCrc32(bytes.data() + start, n);
            Iso3309Crc iso;
            RarCrc rar;
            ASSERT_EQ(iso.add(bytes.data() + start, n), expected);
            ASSERT_EQ(rar.add(bytes.data() + start, n), ~expected);
        }
    }
}

template <class C>
class CrcForms : public testing::Test {};
using Implementations = testing::Types<Iso3309Crc, RarCrc>;
TYPED_TEST_SUITE(CrcForms, Implementations);

TYPED_TEST(CrcForms, piecesAndSingleBytesGiveWhatOneRunGives) {
    const std::string text = "\xFF\x80 pieces of any length \x01 add up";
    const auto length = static_cast<unsigned>(text.size());
    TypeParam whole;
    whole.add(text.data(), length);
    for (unsigned split = 0; split <= length; ++split) {
        TypeParam pieces;
        for (unsigned i = 0; i < split; ++i) pieces.add(text[i]);
        pieces.add(text.data() + split, length - split);
        pieces.add(nullptr, 5);
        ASSERT_EQ(pieces.crc(), whole.crc()) << split;
    }
}

TEST(Iso3309Crc, resetStartsAnew) {
    Iso3309Crc crc;
    crc.add("leftover", 8);
    crc.reset();
    EXPECT_EQ(crc.add("a", 1), 0xE8B7BE43);
}

}  // namespace
}  // namespace ZOV_SPACE
