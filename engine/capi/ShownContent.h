// ShownContent: the bytes that a scan is about to compare with signatures, as the event callback sees them.
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
    // cppcheck-suppress uninitDerivedMemberVar ; it does not see that the copy initialises an aggregate's members
    explicit ShownContent(const vole_content& facts) : vole_content(facts) {}
    ShownContent(const ShownContent&) = delete;
    ShownContent& operator=(const ShownContent&) = delete;
    virtual ~ShownContent() = default;

    // As vole_content_read() has it.
    virtual std::ptrdiff_t read(std::uint64_t offset, void* buffer, std::size_t count) const = 0;
};

// One of a scan in this process. Borrows the cursor over its bytes, which it moves.
class LocalContent final : public ShownContent {
public:
    LocalContent(const _st_ArchEntry& record, vole_form shownForm, ZOV_SPACE::IOBuffer& bytes);

    std::ptrdiff_t read(std::uint64_t offset, void* buffer, std::size_t count) const override;

private:
    ZOV_SPACE::IOBuffer& _bytes;
};

#endif  // ENGINE_CAPI_SHOWNCONTENT_H
