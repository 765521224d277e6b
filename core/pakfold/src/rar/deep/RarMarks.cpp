// Of a mark's letters the fifth one, a control character, is the rarest in nearly all contents.
#include "rar/deep/RarMarks.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kCommon = "Rar!\x1A\7"sv, kOfPlain = "\0"sv, kOf5 = "\1\0"sv;
constexpr std::size_t kRarest = 4;

// Where the first mark begins that is there as a whole; the number of bytes when there is none.
std::size_t findMark(std::string_view bytes) {
    for (std::size_t rarest = bytes.find(kCommon[kRarest], kRarest); rarest != bytes.npos;
         rarest = bytes.find(kCommon[kRarest], rarest + 1)) {
        const std::string_view there = bytes.substr(rarest - kRarest);
        if (!there.starts_with(kCommon)) continue;
        const std::string_view behind = there.substr(kCommon.size());
        if (behind.starts_with(kOfPlain) || behind.starts_with(kOf5)) return rarest - kRarest;
    }
    return bytes.size();
}

}  // namespace

std::optional<RarMark> nextRarMark(ContentBytes& bytes, std::int64_t from, std::int64_t to) {
    to = std::min(to, bytes.size());
    while (from < to) {
        const std::int64_t wanted = std::min(ContentBytes::kBlock - from % ContentBytes::kBlock, to - from);
        std::span<const char> piece = bytes.restOfBlock(from);
        if (piece.size() < static_cast<std::size_t>(wanted)) break;
        // Pieces overlap, so that a mark that begins in one is seen whole.
        piece = piece.first(std::min(piece.size(), static_cast<std::size_t>(wanted + RarMark::kBytesOf5 - 1)));
        const std::size_t found = findMark({piece.data(), piece.size()});
        if (found < static_cast<std::size_t>(wanted)) {
            return RarMark{from + static_cast<std::int64_t>(found), piece[found + kCommon.size()] != 0};
        }
        from += wanted;
        ScanBudget::worked(0);
    }
    return std::nullopt;
}

}  // namespace ZOV_SPACE
