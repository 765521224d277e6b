#include "utils/Crc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
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
    Iso3309Crc zip;
    for (unsigned start = 0; start < 9; ++start) {
        for (unsigned n = 0; n <= 64; ++n) {
            const std::string run = bytes.substr(start, n);
            zip.reset();
            RarCrc rar;
            for (Crc* const crc : std::initializer_list<Crc*>{&zip, &rar}) {
                for (unsigned i = 0; i < n / 2; ++i) crc->add(run[i]);
                crc->add(nullptr, 5);
                crc->add(bytes.data() + start + n / 2, n - n / 2);
            }
            ASSERT_EQ(zip.crc(), bitwiseCrc32(run)) << n << " bytes from " << start;
            ASSERT_EQ(rar.crc(), ~zip.crc());
        }
    }
}

}  // namespace
}  // namespace ZOV_SPACE
