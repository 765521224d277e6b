// A CRC is the remainder of the message, read as a polynomial over two elements, by a fixed one (ISO 3309 and ITU-T
// V.42 have this one). Bits come lowest first, so the register shifts right and the polynomial is written mirrored.
//
// Eight bytes per step: row k of the tables holds, for each byte value, what that byte has become in the register
// after k further zero bytes. CRC is linear, so the eight bytes' shares can be looked up independently and combined.
#include "utils/Crc.h"

#include <array>

#include "ByteOrder.h"

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kPolynomial = 0xEDB88320;
constexpr unsigned kBytesPerStep = 8;

using Table = std::array<std::uint32_t, 256>;

constexpr std::array<Table, kBytesPerStep> makeTables() {
    std::array<Table, kBytesPerStep> tables{};
    for (std::uint32_t value = 0; value < tables[0].size(); ++value) {
        std::uint32_t entry = value;
        for (int bit = 0; bit < 8; ++bit) entry = (entry >> 1) ^ ((entry & 1) ? kPolynomial : 0);
        tables[0][value] = entry;
    }
    for (unsigned row = 1; row < kBytesPerStep; ++row) {
        for (std::uint32_t value = 0; value < tables[0].size(); ++value) {
            const std::uint32_t previous = tables[row - 1][value];
            tables[row][value] = (previous >> 8) ^ tables[0][previous & 0xFF];
        }
    }
    return tables;
}

constexpr auto kTables = makeTables();
static_assert(kTables[0][1] == 0x77073096);

std::uint32_t addByte(std::uint32_t reg, unsigned char byte) { return (reg >> 8) ^ kTables[0][(reg ^ byte) & 0xFF]; }

// The register after the four bytes of `word`, lowest first, and `zeroBytes` further zero bytes.
std::uint32_t addWord(std::uint32_t word, unsigned zeroBytes) {
    return kTables[zeroBytes + 3][word & 0xFF] ^ kTables[zeroBytes + 2][word >> 8 & 0xFF] ^
           kTables[zeroBytes + 1][word >> 16 & 0xFF] ^ kTables[zeroBytes][word >> 24];
}

std::uint32_t addRun(std::uint32_t reg, const void* run, unsigned int n) {
    if (!run) return reg;
    const auto* bytes = static_cast<const unsigned char*>(run);
    for (; n >= kBytesPerStep; n -= kBytesPerStep, bytes += kBytesPerStep) {
        reg = addWord(reg ^ loadU32(bytes), 4) ^ addWord(loadU32(bytes + 4), 0);
    }
    for (; n > 0; --n) reg = addByte(reg, *bytes++);
    return reg;
}

}  // namespace

Crc::~Crc() = default;

std::uint32_t Iso3309Crc::add(char c) {
    _register = addByte(_register, static_cast<unsigned char>(c));
    return crc();
}

std::uint32_t Iso3309Crc::add(const void* p, unsigned int n) {
    _register = addRun(_register, p, n);
    return crc();
}

std::uint32_t RarCrc::add(char c) {
    _register = addByte(_register, static_cast<unsigned char>(c));
    return crc();
}

std::uint32_t RarCrc::add(const void* p, unsigned int n) {
    _register = addRun(_register, p, n);
    return crc();
}

}  // namespace ZOV_SPACE
