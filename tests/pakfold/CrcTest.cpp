#include "utils/Crc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace ZOV_SPACE {
namespace {

std::uint32_t bitwiseCrc32(const std::string& bytes) {
    std::uint32_t reg = 0xFFFFFFFF;
    for (const char byte : bytes) {
        reg ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) reg = reg & 1 ? reg >> 1 ^ 0xEDB88320 : reg >> 1;
    }
    return ~reg;
}

TEST(Crc, everyAlignmentAndLengthAgreesWithTheBitwiseMethod) {
    ASSERT_EQ(bitwiseCrc32("123456789"), 0xCBF43926);
    std::mt19937 random(1);
    std::string bytes(80, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    for (unsigned start = 0; start < 9; ++start) {
        for (unsigned n = 0; n <= 64; ++n) {
            SCOPED_TRACE(testing::Message() << n << " bytes from " << start);
            const char* const run = bytes.data() + start;
            const auto inPieces = [&](Crc& crc) {
                for (unsigned i = 0; i < n / 2; ++i) crc.add(run[i]);
                crc.add(nullptr, 5);
                return crc.add(run + n / 2, n - n / 2);
            };
            const std::uint32_t expected = bitwiseCrc32(bytes.substr(start, n));
            Iso3309Crc iso;
            RarCrc rar, rarInPieces;
            ASSERT_EQ(iso.add(run, n), expected);
            ASSERT_EQ(rar.add(run, n), ~expected);
            ASSERT_EQ(inPieces(rarInPieces), ~expected);
            iso.reset();
            ASSERT_EQ(inPieces(iso), expected);
        }
    }
}

}  // namespace
}  // namespace ZOV_SPACE
