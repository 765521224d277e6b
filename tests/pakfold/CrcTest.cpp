#include "utils/Crc.h"

#include <gtest/gtest.h>

#include <cstdint>
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
    std::string bytes;
    for (int i = 0; i < 80; ++i) bytes += static_cast<char>(i * i * 37);
    Iso3309Crc inPieces;
    for (unsigned start = 0; start < 9; ++start) {
        for (unsigned n = 0; n <= 64; ++n) {
            const char* const run = bytes.data() + start;
            const std::uint32_t expected = bitwiseCrc32(bytes.substr(start, n));
            inPieces.reset();
            for (unsigned i = 0; i < n / 2; ++i) inPieces.add(run[i]);
            inPieces.add(nullptr, 5);
            ASSERT_EQ(inPieces.add(run + n / 2, n - n / 2), expected) << n << " bytes from " << start;
            RarCrc rar;
            for (unsigned i = 0; i < n / 2; ++i) rar.add(run[i]);
            ASSERT_EQ(rar.add(run + n / 2, n - n / 2), ~expected) << n << " bytes from " << start;
        }
    }
}

}  // namespace
}  // namespace ZOV_SPACE
