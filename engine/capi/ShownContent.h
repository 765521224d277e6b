// ShownContent: the bytes that a scan is about to compare with signatures, as the event callback sees them.
//   Borrows: the cursor over them, which it moves.
//   Threads: the scan's.
#ifndef ENGINE_CAPI_SHOWNCONTENT_H
#define ENGINE_CAPI_SHOWNCONTENT_H

#include <cstddef>
#include <cstdint>

#include "WorkList.h"
#include "io/IOBuffer.h"
#include "vole.h"

class ShownContent : public vole_content {
public:
    ShownContent(const _st_ArchEntry& record, vole_form shownForm, ZOV_SPACE::IOBuffer& bytes);

    // As vole_content_read() has it.
    std::ptrdiff_t read(std::uint64_t offset, void* buffer, std::size_t count) const;

private:
    ZOV_SPACE::IOBuffer& _bytes;
};

#endif  // ENGINE_CAPI_SHOWNCONTENT_H
