#include "rar/deep/RarWithin.h"

#include <algorithm>

#include "ArchiveMarks.h"
#include "ContentBytes.h"
#include "ProgramEnd.h"
#include "rar/deep/RarHeaders.h"

namespace ZOV_SPACE {

std::optional<std::int64_t> findRarWithin(BufferBase& content) {
    ContentBytes bytes(content);
    RarHeaders headers(bytes);
    auto archive = headers.nextArchive(0, std::min(kSweptAtBegin, bytes.size()));
    if (!archive) {
        const auto program = endOfProgram(bytes);
        const std::int64_t from = std::max(program.value_or(bytes.size()), kSweptAtBegin);
        archive = headers.nextArchive(from, std::min(from + kSweptAtBegin, bytes.size()));
    }
    return archive ? std::optional(archive->position) : std::nullopt;
}

}  // namespace ZOV_SPACE
