// Their parameters stand in the registers as for the programs that they replace. Some write their result behind the
// block; these take at most half the room.
//
// E8, E8E9: packers replace the distances in x86 calls (E8) and jumps (E9) by positions in the file, so that calls of
//     one function look alike; here the positions become distances again. Itanium does the same to the branches in its
//     bundles of three commands.
// Delta: bytes of the same channel stand together, each as the difference from the one before.
// RGB: the same for three colours, but each byte differs from what the pixels to the left and above predict, and two
// colours differ from the third. Audio: each byte differs from what three weighted differences before it predict; the
// weights follow the errors. Upcase: capitals are stored as small letters with a mark ahead.
#include "rar/vm/RarStandardFilters.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "ByteOrder.h"
#include "rar/vm/RarVmLayout.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {

std::uint32_t RarStandardFilters::FilterItanium_GetBits(const unsigned char* bundle, unsigned bitPosition,
                                                        unsigned bitCount) {
    return loadU32(bundle + bitPosition / 8) >> bitPosition % 8 & ((1U << bitCount) - 1);
}

void RarStandardFilters::FilterItanium_SetBits(unsigned char* bundle, std::uint32_t bits, unsigned bitPosition,
                                               unsigned bitCount) {
    unsigned char* const field = bundle + bitPosition / 8;
    const std::uint32_t mask = ((1U << bitCount) - 1) << bitPosition % 8;
    storeLittleEndian<std::uint32_t>(field, (loadU32(field) & ~mask) | (bits << bitPosition % 8 & mask));
}

namespace {

using Parameters = RarStandardFilters::Parameters;
using Place = std::optional<RarStandardFilters::Result>;

constexpr std::uint32_t kMostInPlace = RarVmLayout::kGlobalAddress;
constexpr std::uint32_t kMostBesides = RarVmLayout::kGlobalAddress / 2;
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
        if (!(slots >> slot & 1) ||
            RarStandardFilters::FilterItanium_GetBits(bundle, start + kOpcodeBit, 4) != kBranchOpcode) {
            continue;
        }
        const std::uint32_t target = RarStandardFilters::FilterItanium_GetBits(bundle, start + kTargetBit, kTargetBits);
        RarStandardFilters::FilterItanium_SetBits(bundle, target - bundleNumber, start + kTargetBit, kTargetBits);
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

// Operands of calls, and with the mask 0xFE of jumps: from positions to distances.
bool restoreCalls(unsigned char* memory, const Parameters& parameters, unsigned char opcodeMask) {
    const std::uint32_t size = parameters.size;
    if (size > kMostInPlace || size < kAddressBytes) return false;
    const std::uint32_t end = size - kAddressBytes;
    for (std::uint32_t i = findOpcode(memory, 0, end, opcodeMask); i < end;) {
        unsigned char* const address = memory + ++i;
        storeLittleEndian(address, restoreAddress(loadU32(address), i + parameters.position));
        i += kAddressBytes;
        if (i < end) i = findOpcode(memory, i, end, opcodeMask);
    }
    return true;
}

bool filterE8(unsigned char* memory, const Parameters& parameters, Place&) {
    return restoreCalls(memory, parameters, 0xFF);
}

bool filterE8E9(unsigned char* memory, const Parameters& parameters, Place&) {
    return restoreCalls(memory, parameters, 0xFE);
}

bool filterItanium(unsigned char* memory, const Parameters& parameters, Place&) {
    const std::uint32_t size = parameters.size;
    if (size > kMostInPlace || size < kItaniumTail) return false;
    std::uint32_t bundleNumber = parameters.position / 16;
    for (std::uint32_t i = 0; i < size - kItaniumTail; i += 16) restoreBundle(memory + i, bundleNumber++);
    return true;
}

// Channels one after the other, each byte as the difference from the one before.
bool filterDelta(unsigned char* memory, const Parameters& parameters, Place& result) {
    const std::uint32_t size = parameters.size;
    const std::uint32_t channels = parameters.first;
    if (size > kMostBesides || channels < 1 || channels > kMostChannels) return false;
    const unsigned char* source = memory;
    unsigned char* const to = memory + size;
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
        unsigned char last = 0;
        for (std::uint32_t i = channel; i < size; i += channels) {
            last = static_cast<unsigned char>(last - *source++);
            to[i] = last;
        }
    }
    result = {size, size};
    return true;
}

// Three planes of differences from what the pixels around predict; two of the colours are stored less the third.
bool filterRgb(unsigned char* memory, const Parameters& parameters, Place& result) {
    const std::uint32_t size = parameters.size;
    const std::uint32_t width = parameters.first - 3;
    const std::uint32_t firstColour = parameters.second;
    if (size > kMostBesides || size < 3 || width < 1 || width > size || firstColour > 2) return false;
    const unsigned char* source = memory;
    unsigned char* const to = memory + size;
    for (std::uint32_t channel = 0; channel < 3; ++channel) {
        std::uint32_t last = 0;
        for (std::uint32_t i = channel; i < size; i += 3) {
            if (i >= width + 3) {
                const unsigned char* const above = to + (i - width);
                last = predictPixel(static_cast<int>(last), above[0], above[-3]);
            }
            last = (last - *source++) & 0xFF;
            to[i] = static_cast<unsigned char>(last);
        }
    }
    for (std::uint32_t i = firstColour; i < size - 2; i += 3) {
        const unsigned char third = to[i + 1];
        to[i] = static_cast<unsigned char>(to[i] + third);
        to[i + 2] = static_cast<unsigned char>(to[i + 2] + third);
    }
    result = {size, size};
    return true;
}

bool filterAudio(unsigned char* memory, const Parameters& parameters, Place& result) {
    const std::uint32_t size = parameters.size;
    const std::uint32_t channels = parameters.first;
    if (size > kMostBesides || channels < 1 || channels > kMostChannels) return false;
    const unsigned char* source = memory;
    unsigned char* const to = memory + size;
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
        AudioChannel predictor;
        for (std::uint32_t i = channel; i < size; i += channels) to[i] = predictor.restore(*source++);
    }
    result = {size, size};
    return true;
}

// A byte 2 stands ahead of a letter that was a capital, and of a 2 that is meant.
bool filterUpcase(unsigned char* memory, const Parameters& parameters, Place& result) {
    const std::uint32_t size = parameters.size;
    if (size > kMostBesides) return false;
    std::uint32_t length = 0;
    for (std::uint32_t i = 0; i < size; ++i) {
        unsigned char byte = memory[i];
        if (byte == 2 && ++i < size) {
            byte = memory[i];
            if (byte != 2) byte = static_cast<unsigned char>(byte - 32);
        }
        memory[size + length++] = byte;
    }
    result = {size, length};
    return true;
}

struct Filter {
    int codeLength;
    std::uint32_t codeCrc;
    std::uint32_t quarters;  // Of an instruction, that a byte costs.
    bool (*run)(unsigned char* memory, const Parameters& parameters, Place& result);
};

// In the order of VM_StandardFilters, from kFilterE8 on.
constexpr auto kFilters = std::to_array<Filter>({{53, 0xAD576887, 1, filterE8},
                                                 {57, 0x3CD7E57E, 1, filterE8E9},
                                                 {120, 0x3769893F, 1, filterItanium},
                                                 {29, 0x0E06077D, 1, filterDelta},
                                                 {149, 0x1C2C5DC8, 4, filterRgb},
                                                 {216, 0xBC85E701, 8, filterAudio},
                                                 {40, 0x46B9C560, 4, filterUpcase}});

// REQUIRES: not kFilterNone.
const Filter& rowOf(VM_StandardFilters filter) { return kFilters[(filter - kFilterE8) % kFilters.size()]; }

}  // namespace

VM_StandardFilters RarStandardFilters::IsStandardFilter(const unsigned char* code, int length) {
    const auto* const found = std::find_if(kFilters.begin(), kFilters.end(), [=](const Filter& row) {
        if (row.codeLength != length) return false;
        RarCrc crc;
        return ~crc.add(code, static_cast<unsigned>(length)) == row.codeCrc;
    });
    return found == kFilters.end() ? kFilterNone
                                   : static_cast<VM_StandardFilters>(found - kFilters.begin() + kFilterE8);
}

std::uint32_t RarStandardFilters::costOf(VM_StandardFilters filter, std::uint32_t size) {
    return size / 4 * rowOf(filter).quarters;
}

bool RarStandardFilters::run(VM_StandardFilters filter, unsigned char* memory, const Parameters& parameters,
                             std::optional<Result>& result) {
    return rowOf(filter).run(memory, parameters, result);
}

}  // namespace ZOV_SPACE
