// A CRC is the remainder of the message, read as a polynomial over two elements, by a fixed one (ISO 3309 and ITU-T
// V.42 have this one). Bits come lowest first, so the register shifts right and the polynomial is written mirrored.
//
// Eight bytes per step: row k of the tables holds, for each byte value, what that byte has become in the register
// after k further zero bytes. CRC is linear, so the eight bytes' shares can be looked up independently and combined.
//
// Processors that multiply polynomials do so 64 bytes per step (V. Gopal et al., "Fast CRC Computation for Generic
// Polynomials Using PCLMULQDQ Instruction", Intel 2009): a piece of the message that is D bits ahead of another may be
// added to it once it is multiplied by what x to the power of D leaves, since only remainders matter in the end.
#include "utils/Crc.h"

#include <array>

#include "ByteOrder.h"
#include "CrcRun.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define CRC_X86 1
#endif

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

std::uint32_t addByTables(std::uint32_t reg, const unsigned char* bytes, std::size_t n) {
    for (; n >= kBytesPerStep; n -= kBytesPerStep, bytes += kBytesPerStep) {
        reg = addWord(reg ^ loadU32(bytes), 4) ^ addWord(loadU32(bytes + 4), 0);
    }
    for (; n > 0; --n) reg = addByte(reg, *bytes++);
    return reg;
}

#ifdef CRC_X86

constexpr std::size_t kLane = 16;  // Bytes in a register.
constexpr std::size_t kFoldedBytesPerStep = 4 * kLane;

// What x to the power of n leaves, mirrored: bit 31 is the coefficient of 1.
constexpr std::uint32_t remainderOfPower(unsigned n) {
    std::uint32_t remainder = 0x80000000;
    for (; n > 0; --n) remainder = (remainder >> 1) ^ ((remainder & 1) ? kPolynomial : 0);
    return remainder;
}

// A factor of 64 coefficients. The product of two mirrored ones stands a bit too low, hence the power less by one.
constexpr long long factor(unsigned power) {
    const std::uint64_t mirrored = std::uint64_t{remainderOfPower(power - 1)} << 32;
    return static_cast<long long>(mirrored);
}

// Moves 16 bytes ahead by a number of bytes, where `next` stands. The lower half has the higher coefficients.
template <std::size_t kBytes>
__attribute__((target("pclmul"))) inline __m128i fold(__m128i ahead, __m128i next) {
    constexpr unsigned kBits = 8 * kBytes;
    constexpr long long kLow = factor(kBits + 64), kHigh = factor(kBits);
    const __m128i factors = _mm_set_epi64x(kHigh, kLow);
    const __m128i low = _mm_clmulepi64_si128(ahead, factors, 0x00), high = _mm_clmulepi64_si128(ahead, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

__attribute__((target("pclmul"))) inline __m128i load(const unsigned char* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

__attribute__((target("pclmul"))) std::uint32_t addByFolding(std::uint32_t reg, const unsigned char* bytes,
                                                             std::size_t n) {
    if (n < kFoldedBytesPerStep) return addByTables(reg, bytes, n);
    __m128i lane0 = _mm_xor_si128(load(bytes), _mm_cvtsi32_si128(static_cast<int>(reg)));
    __m128i lane1 = load(bytes + kLane), lane2 = load(bytes + 2 * kLane), lane3 = load(bytes + 3 * kLane);
    bytes += kFoldedBytesPerStep, n -= kFoldedBytesPerStep;
    for (; n >= kFoldedBytesPerStep; n -= kFoldedBytesPerStep, bytes += kFoldedBytesPerStep) {
        lane0 = fold<kFoldedBytesPerStep>(lane0, load(bytes));
        lane1 = fold<kFoldedBytesPerStep>(lane1, load(bytes + kLane));
        lane2 = fold<kFoldedBytesPerStep>(lane2, load(bytes + 2 * kLane));
        lane3 = fold<kFoldedBytesPerStep>(lane3, load(bytes + 3 * kLane));
    }
    __m128i all = fold<kLane>(fold<kLane>(fold<kLane>(lane0, lane1), lane2), lane3);
    for (; n >= kLane; n -= kLane, bytes += kLane) all = fold<kLane>(all, load(bytes));
    alignas(kLane) unsigned char rest[kLane];
    _mm_store_si128(reinterpret_cast<__m128i*>(rest), all);
    return addByTables(addByTables(0, rest, kLane), bytes, n);
}

#endif

std::uint32_t addRun(std::uint32_t reg, const void* run, std::size_t n) {
    constexpr std::size_t kShort = 64;  // Not worth a choice.
    if (!run) return reg;
    const auto* const bytes = static_cast<const unsigned char*>(run);
    if (n < kShort) return addByTables(reg, bytes, n);
    static const CrcRun fastest = availableCrcRuns().back();
    return fastest(reg, bytes, n);
}

}  // namespace

std::vector<CrcRun> availableCrcRuns() {
    std::vector<CrcRun> runs{addByTables};
#ifdef CRC_X86
    if (__builtin_cpu_supports("pclmul")) runs.push_back(addByFolding);
#endif
    return runs;
}

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
