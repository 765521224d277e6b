// RarStandardFilters: the seven filters that archives use in practice. Their programs are known by length and CRC-32,
// and run as native code on the memory of the machine instead.
#ifndef PAKFOLD_RAR_VM_RARSTANDARDFILTERS_H
#define PAKFOLD_RAR_VM_RARSTANDARDFILTERS_H

#include <cstdint>
#include <optional>

namespace ZOV_SPACE {

enum VM_StandardFilters : std::uint32_t {
    kFilterNone,
    kFilterE8,
    kFilterE8E9,
    kFilterItanium,
    kFilterDelta,
    kFilterRgb,
    kFilterAudio,
    kFilterUpcase
};

class RarStandardFilters {
public:
    RarStandardFilters() = delete;

    // As the machine's registers say it.
    struct Parameters {
        std::uint32_t first;  // R0 and R1: the filter's own.
        std::uint32_t second;
        std::uint32_t size;      // R4: of the block, which lies at the start of the memory.
        std::uint32_t position;  // R6: of the block in the file.
    };
    // Where the result lies, of filters that do not work in place.
    struct Result {
        std::uint32_t start;
        std::uint32_t length;
    };

    // The filter whose program this is.
    static VM_StandardFilters IsStandardFilter(const unsigned char* code, int length);

    // In instructions of the machine, by the time that bytes take.
    static std::uint32_t costOf(VM_StandardFilters filter, std::uint32_t size);

    // Runs a filter on the memory of a machine. False, and nothing is changed, when the parameters do not fit.
    static bool run(VM_StandardFilters filter, unsigned char* memory, const Parameters& parameters,
                    std::optional<Result>& result);

    // Bits of a 16-byte Itanium bundle, least significant first.
    // REQUIRES: bitCount <= 24; 19 readable bytes, because four are taken at a time.
    static std::uint32_t FilterItanium_GetBits(const unsigned char* bundle, unsigned bitPosition, unsigned bitCount);
    static void FilterItanium_SetBits(unsigned char* bundle, std::uint32_t bits, unsigned bitPosition,
                                      unsigned bitCount);
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_VM_RARSTANDARDFILTERS_H
