// Checksum records of all offset types on one content. With and without their index, from memory and from a file, the
// answer is the same.
#include "Input.h"
#include "Target.h"
#include "VoleScanner.h"
#include "io/IOBuffer.h"
#include "support/Content.h"

namespace {

using namespace ZOV_SPACE;

std::uint32_t crcOfZeros(unsigned count) {
    static constexpr char kZeros[255] = {};
    Iso3309Crc crc;
    crc.add(kZeros, count);
    return crc.crc();
}

// Records that match ranges of zeros, at many places.
void fill(CheckSumList& list) {
    static constexpr std::int16_t kOffsets[] = {0, 4, -4, 64, 300, -300, 32767, -32768};
    for (unsigned i = 0; i < 2 * kOffsetTypeCount * 4 * std::size(kOffsets); ++i) {
        CheckSumPattern record;
        record.offsetType = static_cast<std::uint8_t>(i % kOffsetTypeCount);
        record.offsetParameter = static_cast<std::uint8_t>(i / kOffsetTypeCount % 4);
        record.offset1 = kOffsets[i / 16 % std::size(kOffsets)];
        record.offset2 = kOffsets[i % std::size(kOffsets)];
        record.length1 = static_cast<std::uint8_t>(i % 5 * 63);
        record.length2 = static_cast<std::uint8_t>(i % 3 * 4);
        const bool forPe = record.offsetType > kFromEnd || i / 128 == 1;
        record.target = static_cast<std::uint8_t>(forPe ? kTargetPe : kTargetAny);
        record.checkSum1 = crcOfZeros(record.length1);
        record.checkSum2 = crcOfZeros(record.length2);
        const std::string name = std::to_string(i);
        record.name = name.c_str();
        list.addPattern(record);
    }
}

}  // namespace

void compareCheckSums(std::string_view input) {
    static CheckSumList plain, indexed;
    static const bool filled = (fill(plain), fill(indexed), indexed.index(), true);
    InputBuffer memory(input);
    IOBuffer buffer(&memory);
    const auto size = static_cast<unsigned>(input.size());
    std::string expected, fromMemory, fromFile;
    const bool found = ChkScanner(plain).scan(&buffer, size, expected, kTargetAny);
    require(filled && ChkScanner(indexed).scan(&buffer, size, fromMemory, kTargetAny) == found &&
            fromMemory == expected);
    note(expected);
    require(ChkScanner(indexed).scan(fileOf(std::string(input)).get(), size, fromFile, kTargetAny) == found &&
            fromFile == expected);
}
