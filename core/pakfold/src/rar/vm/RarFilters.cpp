// The standard filters. Their parameters stand in the registers as for the programs that they replace: R4 is the size
// of the block, R6 its position in the file, R0 and R1 are the filter's own. Some write their result behind the block;
// these take at most half the room. Nothing is changed when the parameters do not fit.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "rar/vm/RarVm.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kMostInPlace = RarVM::kGlobalAddress;
constexpr std::uint32_t kMostBesides = RarVM::kGlobalAddress / 2;
constexpr std::uint32_t kMostChannels = 1024;

constexpr std::uint32_t kAddressBytes = 4;
constexpr std::uint32_t kItaniumTail = 21;  // Bundles that start among the last so many bytes stay as they are.

int signedByte(int byte) { return ((byte & 0xFF) ^ 0x80) - 0x80; }

bool isNegative(std::uint32_t value) { return value & 0x80000000; }

// The first byte from `position` on that is 0xE8 where `mask` has bits, or `end`. Eight bytes at a time: the lowest
// bit that is set in `found` belongs to a byte that became zero.
std::uint32_t findOpcode(const unsigned char* data, std::uint32_t position, std::uint32_t end, unsigned char mask) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    for (; end - position >= 8; position += 8) {
        const std::uint64_t x = (loadU64(data + position) & mask * kOnes) ^ 0xE8 * kOnes;
        const std::uint64_t found = (x - kOnes) & ~x & 0x80 * kOnes;
        if (found) return position + static_cast<std::uint32_t>(std::countr_zero(found)) / 8;
    }
    while (position < end && (data[position] & mask) != 0xE8) ++position;
    return position;
}

// From the position in the file that the packer put there back to the distance, for an address that lies behind
// `position`. What it could not have put there stays.
std::uint32_t restoreAddress(std::uint32_t address, std::uint32_t position) {
    constexpr std::uint32_t kAssumedFileSize = 0x1000000;
    if (isNegative(address)) return isNegative(address + position) ? address : address + kAssumedFileSize;
    return isNegative(address - kAssumedFileSize) ? address - position : address;
}

// Which of a bundle's three slots hold branches, a bit for each, by the bundle's template from 0x10 on.
constexpr std::array<std::uint8_t, 16> kBranchSlots{4, 4, 6, 6, 0, 0, 7, 7, 4, 4, 0, 0, 4, 4, 0, 0};
constexpr unsigned kSlotBits = 41;
constexpr unsigned kFirstSlot = 5;
constexpr unsigned kTargetBit = 13;  // In the slot.
constexpr unsigned kTargetBits = 20;
constexpr unsigned kOpcodeBit = 37;
constexpr unsigned kBranchOpcode = 5;

void restoreBundle(unsigned char* bundle, std::uint32_t bundleNumber) {
    const unsigned bundleTemplate = bundle[0] & 0x1F;
    if (bundleTemplate < 0x10) return;
    const unsigned slots = kBranchSlots[bundleTemplate - 0x10];
    for (unsigned slot = 0; slot < 3; ++slot) {
        const unsigned start = kFirstSlot + slot * kSlotBits;
        if (!(slots >> slot & 1) || RarVM::FilterItanium_GetBits(bundle, start + kOpcodeBit, 4) != kBranchOpcode) {
            continue;
        }
        const std::uint32_t target = RarVM::FilterItanium_GetBits(bundle, start + kTargetBit, kTargetBits);
        RarVM::FilterItanium_SetBits(bundle, target - bundleNumber, start + kTargetBit, kTargetBits);
    }
}

// The neighbour (left, above, or left of above, the earlier one of equals) that is nearest to left + above - leftAbove.
// Which one it is cannot be foreseen, so this is written to become conditional moves.
std::uint32_t predictPixel(int left, int above, int leftAbove) {
    const int fromLeft = std::abs(above - leftAbove);
    const int fromAbove = std::abs(left - leftAbove);
    const int fromLeftAbove = std::abs(left + above - 2 * leftAbove);
    const int nearest = fromAbove < fromLeft ? above : left;
    return static_cast<std::uint32_t>(fromLeftAbove < std::min(fromLeft, fromAbove) ? leftAbove : nearest);
}

// One channel's predictor: three weighted differences of its last bytes, and the weights follow the errors.
class AudioChannel {
public:
    unsigned char restore(unsigned char coded);

private:
    void adapt();

    static constexpr int kHeaviest = 16;
    static constexpr unsigned kAdaptEvery = 32;  // Bytes.

    int _last = 0;
    int _lastDelta = 0;
    std::array<int, 3> _deltas{};  // Newest first.
    std::array<int, 3> _weights{};
    // How far off it was as it is, and would have been with each weight lower and higher by one.
    std::array<std::uint32_t, 7> _errors{};
    unsigned _count = 0;
};

unsigned char AudioChannel::restore(unsigned char coded) {
    _deltas = {_lastDelta, _lastDelta - _deltas[0], _deltas[1]};
    const int predicted =
        (8 * _last + _weights[0] * _deltas[0] + _weights[1] * _deltas[1] + _weights[2] * _deltas[2]) >> 3;
    const auto byte = static_cast<unsigned char>(predicted - coded);
    _lastDelta = signedByte(byte - _last);
    _last = byte;

    const int error = signedByte(coded) * 8;
    const auto add = [this](std::size_t i, int n) { _errors[i] += static_cast<std::uint32_t>(std::abs(n)); };
    add(0, error);
    for (std::size_t i = 0; i < _deltas.size(); ++i) {
        add(2 * i + 1, error - _deltas[i]);
        add(2 * i + 2, error + _deltas[i]);
    }
    if (_count++ % kAdaptEvery == 0) adapt();
    return byte;
}

void AudioChannel::adapt() {
    const auto best = static_cast<std::size_t>(std::min_element(_errors.begin(), _errors.end()) - _errors.begin());
    _errors.fill(0);
    if (best == 0) return;
    int& weight = _weights[(best - 1) / 2];
    if (best % 2 == 1) {
        if (weight >= -kHeaviest) --weight;
    } else if (weight < kHeaviest) {
        ++weight;
    }
}

// In instructions of the machine, by the time that bytes take.
std::uint32_t costOf(VM_StandardFilters filter, std::uint32_t size) {
    switch (filter) {
        case kFilterRgb:
        case kFilterUpcase:
            return size;
        case kFilterAudio:
            return 2 * size;
        default:
            return size / 4;
    }
}

}  // namespace

std::uint32_t RarVM::FilterItanium_GetBits(const unsigned char* bundle, unsigned bitPosition, unsigned bitCount) {
    return loadU32(bundle + bitPosition / 8) >> bitPosition % 8 & ((1U << bitCount) - 1);
}

void RarVM::FilterItanium_SetBits(unsigned char* bundle, std::uint32_t bits, unsigned bitPosition, unsigned bitCount) {
    unsigned char* const field = bundle + bitPosition / 8;
    const std::uint32_t mask = ((1U << bitCount) - 1) << bitPosition % 8;
    SetValue(field, (loadU32(field) & ~mask) | (bits << bitPosition % 8 & mask));
}

void RarVM::ExecuteStandardFilter(VM_StandardFilters filter) {
    const std::uint32_t size = _registers[4];
    if (size > kMostInPlace || !ScanBudget::takeVmInstructions(costOf(filter, size))) return;
    switch (filter) {
        case kFilterNone:
            return;
        case kFilterE8:
            return filterE8(size, 0xFF);
        case kFilterE8E9:
            return filterE8(size, 0xFE);
        case kFilterItanium:
            return filterItanium(size);
        case kFilterDelta:
            return filterDelta(size);
        case kFilterRgb:
            return filterRgb(size);
        case kFilterAudio:
            return filterAudio(size);
        case kFilterUpcase:
            return filterUpcase(size);
    }
}

void RarVM::setResult(std::uint32_t start, std::uint32_t length) {
    SetValue(&_memory[kGlobalAddress + kBlockStartOffset], start);
    SetValue(&_memory[kGlobalAddress + kBlockLengthOffset], length);
}

// Operands of calls, and with the mask 0xFE of jumps: from positions to distances.
void RarVM::filterE8(std::uint32_t size, unsigned char opcodeMask) {
    if (size > kMostInPlace || size < kAddressBytes) return;
    const std::uint32_t end = size - kAddressBytes;
    for (std::uint32_t i = findOpcode(&_memory[0], 0, end, opcodeMask); i < end;) {
        unsigned char* const address = &_memory[++i];
        SetValue(address, restoreAddress(loadU32(address), i + _registers[6]));
        i += kAddressBytes;
        if (i < end) i = findOpcode(&_memory[0], i, end, opcodeMask);
    }
}

void RarVM::filterItanium(std::uint32_t size) {
    if (size > kMostInPlace || size < kItaniumTail) return;
    std::uint32_t bundleNumber = _registers[6] / 16;
    for (std::uint32_t i = 0; i < size - kItaniumTail; i += 16) restoreBundle(&_memory[i], bundleNumber++);
}

// Channels one after the other, each byte as the difference from the one before.
void RarVM::filterDelta(std::uint32_t size) {
    const std::uint32_t channels = _registers[0];
    if (size > kMostBesides || channels < 1 || channels > kMostChannels) return;
    const unsigned char* source = &_memory[0];
    unsigned char* const result = &_memory[size];
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
        unsigned char last = 0;
        for (std::uint32_t i = channel; i < size; i += channels) {
            last = static_cast<unsigned char>(last - *source++);
            result[i] = last;
        }
    }
    setResult(size, size);
}

// Three planes of differences from what the pixels around predict; two of the colours are stored less the third.
void RarVM::filterRgb(std::uint32_t size) {
    const std::uint32_t width = _registers[0] - 3;
    const std::uint32_t firstColour = _registers[1];
    if (size > kMostBesides || size < 3 || width < 1 || width > size || firstColour > 2) return;
    const unsigned char* source = &_memory[0];
    unsigned char* const result = &_memory[size];
    for (std::uint32_t channel = 0; channel < 3; ++channel) {
        std::uint32_t last = 0;
        for (std::uint32_t i = channel; i < size; i += 3) {
            if (i >= width + 3) {
                const unsigned char* const above = result + (i - width);
                last = predictPixel(static_cast<int>(last), above[0], above[-3]);
            }
            last = (last - *source++) & 0xFF;
            result[i] = static_cast<unsigned char>(last);
        }
    }
    for (std::uint32_t i = firstColour; i < size - 2; i += 3) {
        const unsigned char third = result[i + 1];
        result[i] = static_cast<unsigned char>(result[i] + third);
        result[i + 2] = static_cast<unsigned char>(result[i + 2] + third);
    }
    setResult(size, size);
}

void RarVM::filterAudio(std::uint32_t size) {
    const std::uint32_t channels = _registers[0];
    if (size > kMostBesides || channels < 1 || channels > kMostChannels) return;
    const unsigned char* source = &_memory[0];
    unsigned char* const result = &_memory[size];
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
        AudioChannel predictor;
        for (std::uint32_t i = channel; i < size; i += channels) result[i] = predictor.restore(*source++);
    }
    setResult(size, size);
}

// A byte 2 stands ahead of a letter that was a capital, and of a 2 that is meant.
void RarVM::filterUpcase(std::uint32_t size) {
    if (size > kMostBesides) return;
    std::uint32_t length = 0;
    for (std::uint32_t i = 0; i < size; ++i) {
        unsigned char byte = _memory[i];
        if (byte == 2 && ++i < size) {
            byte = _memory[i];
            if (byte != 2) byte = static_cast<unsigned char>(byte - 32);
        }
        _memory[size + length++] = byte;
    }
    setResult(size, length);
}

}  // namespace ZOV_SPACE
