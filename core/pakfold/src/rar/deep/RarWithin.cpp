#include "rar/deep/RarWithin.h"

#include <algorithm>

#include "ContentBytes.h"
#include "ProgramEnd.h"
#include "rar/deep/RarHeaders.h"

namespace ZOV_SPACE {

std::optional<std::int64_t> findRarWithin(BufferBase& content) {
    constexpr std::int64_t kSearched = std::int64_t{1} << 20;
    ContentBytes bytes(content);
    RarHeaders headers(bytes);
    auto archive = headers.nextArchive(0, std::min(kSearched, bytes.size()));
    if (!archive) {
        const auto program = endOfProgram(bytes);
        const std::int64_t from = std::max(program.value_or(bytes.size()), kSearched);
        archive = headers.nextArchive(from, std::min(from + kSearched, bytes.size()));
    }
    return archive ? std::optional(archive->position) : std::nullopt;
}

}  // namespace ZOV_SPACE
