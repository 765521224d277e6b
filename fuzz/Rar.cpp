// The packed data of two entries of a RAR archive alone, of which the second one continues the first.
#include "ByteOrder.h"
#include "Input.h"
#include "Target.h"
#include "rar/RarDecompressor.h"

namespace {

using namespace ZOV_SPACE;

void unpack(RarDecompressor& rar, std::string_view packed, std::int64_t unpackedSize, int version, int solid) {
    const bool isPpm = version == 29 && !packed.empty() && (packed[0] & 0x80);
    const std::vector<char> block = isPpm ? withSmallHeap(packed) : std::vector<char>(packed.begin(), packed.end());
    InputBuffer buffer({block.data(), block.size()});
    BufferBaseInputStream in(&buffer);
    NotedOutput out;
    noteRefusal(
        [&] { rar.decompress(in, static_cast<std::int64_t>(packed.size()), out, unpackedSize, version, solid); });
}

// Input: three sizes of 16 bits each, little-endian: the packed one of the first entry, and what both unpack to at
// most; the first entry's data; the rest is the second one's.
void unpackEntries(std::string_view input, int version) {
    constexpr int kSolid = 0x10;
    constexpr std::size_t kHeaderBytes = 6;
    if (input.size() < kHeaderBytes) return;
    const std::string_view data = input.substr(kHeaderBytes);
    const std::string_view first = data.substr(0, loadU16(input.data()));
    RarDecompressor rar(nullptr);
    unpack(rar, first, loadU16(input.data() + 2), version, 0);
    unpack(rar, data.substr(first.size()), loadU16(input.data() + 4), version, kSolid);
}

}  // namespace

void unpackRar20(std::string_view input) { unpackEntries(input, 20); }
void unpackRar29(std::string_view input) { unpackEntries(input, 29); }
