// RAR archives; and the packed data of two entries alone, of which the second one continues the first.
#include "ByteOrder.h"
#include "Input.h"
#include "Target.h"
#include "rar/RarDecompressor.h"
#include "rar/RarUnarchiver.h"

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
template <int version>
void unpackEntries(std::string_view input) {
    constexpr int kSolid = 0x10;
    constexpr std::size_t kHeaderBytes = 6;
    if (input.size() < kHeaderBytes) return;
    const std::string_view data = input.substr(kHeaderBytes);
    const std::string_view first = data.substr(0, loadU16(input.data()));
    RarDecompressor rar(nullptr);
    unpack(rar, first, loadU16(input.data() + 2), version, 0);
    unpack(rar, data.substr(first.size()), loadU16(input.data() + 4), version, kSolid);
}

const Target targets[] = {{"rar", walk<RarUnarchiver>}, {"rar20", unpackEntries<20>}, {"rar29", unpackEntries<29>}};

}  // namespace
