#include "ShownContent.h"

#include <algorithm>
#include <climits>

#include "Boundary.h"
#include "VoleUtil.h"

namespace {

vole_checksum_state stateOf(CheckSumState state) {
    if (state == CheckSumState::none) return VOLE_CHECKSUM_NONE;
    return state == CheckSumState::right ? VOLE_CHECKSUM_RIGHT : VOLE_CHECKSUM_WRONG;
}

}  // namespace

LocalContent::LocalContent(const _st_ArchEntry& record, vole_form shownForm, ZOV_SPACE::IOBuffer& bytes)
    : ShownContent({shownForm, static_cast<std::uint64_t>(bytes.getSize()), record.member.packedSize,
                    record.member.method, record.isPacked ? 1 : 0, stateOf(record.member.checkSum)}),
      _bytes(bytes) {}

std::ptrdiff_t LocalContent::read(std::uint64_t offset, void* buffer, std::size_t count) const {
    if (offset >= size) return 0;
    _bytes.seek(SEEK_SET, static_cast<long>(offset));
    const auto due = static_cast<int>(std::min<std::uint64_t>({count, INT_MAX, size - offset}));
    return VoleUtil::readn(&_bytes, static_cast<char*>(buffer), due) == due ? due : -1;
}

ptrdiff_t vole_content_read(const vole_content* content, uint64_t offset, void* buffer, size_t size) {
    if (!content || (!buffer && size != 0)) return -1;
    ptrdiff_t count = -1;
    const vole_error error = capi::guarded([&] {
        // The library makes no other ones.
        count = static_cast<const ShownContent*>(content)->read(offset, buffer, size);
        return VOLE_OK;
    });
    return error == VOLE_OK ? count : -1;
}
