// Contents.h: every content that a scan of one file compares with signatures, for commands that look at them.
#ifndef VOLE_WORKSHOP_CONTENTS_H
#define VOLE_WORKSHOP_CONTENTS_H

#include <cstdint>
#include <memory>
#include <string>

#include "FileReport.h"
#include "Md5.h"
#include "VoleLibrary.h"
#include "io/SmartBufferBase.h"
#include "vole.h"

// One of them, while it is there.
struct SeenContent {
    MemberPath member;  // Empty: the file itself.
    const vole_content& content;

    bool isRaw() const { return content.form == VOLE_FORM_RAW; }
};

// Threads: one.
class ContentVisitor {
public:
    ContentVisitor() = default;
    ContentVisitor(const ContentVisitor&) = delete;
    ContentVisitor& operator=(const ContentVisitor&) = delete;
    virtual ~ContentVisitor() = default;

    // In the order in which the engine sees them: members when they are unpacked, the normalised text behind the raw
    // bytes. What it throws ends the walk, and comes out of it.
    virtual void onContent(const SeenContent& seen) = 0;
    // Whatever else the engine tells of the walk, in its place between the contents. Default: nothing.
    virtual void onOther(const vole_event& event);
};

// Scans a file with these signatures as "vole scan --all-matches" does, and shows all that it sees on the way. `flags`
// are further VOLE_SCAN_... Throws LoadError when there can be no scan, else what the visitor throws.
FileReport walkContents(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags,
                        const std::string& path, ContentVisitor& visitor);
// The same with all bytes of standard input, which reports call "-".
FileReport walkStandardInput(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags,
                             ContentVisitor& visitor);

// All of its bytes: in memory, or in a file without a name when they are many. Throws LoadError when they cannot be
// read or kept.
std::unique_ptr<ZOV_SPACE::SmartBufferBase> copyOf(const vole_content& content);

// The same as a view: calls `take(const char*, size_t)` for piece after piece, from the first byte to the last. Throws
// LoadError.
template <class Take>
void readPieces(const vole_content& content, Take take);

// The MD5 digest of a content; as 32 lower-case hexadecimal digits. Both throw LoadError.
void digestOf(const vole_content& content, unsigned char (&digest)[Md5::kDigestSize]);
std::string md5Of(const vole_content& content);

// "a.zip/b/c" for reports: the file and the member in it, escaped for one line of text.
std::string displayName(const std::string& file, const MemberPath& member);

namespace contents {
constexpr std::size_t kPiece = std::size_t{256} << 10;
std::size_t readPiece(const vole_content& content, std::uint64_t offset, char* buffer);
}  // namespace contents

template <class Take>
void readPieces(const vole_content& content, Take take) {
    const auto piece = std::make_unique_for_overwrite<char[]>(contents::kPiece);
    for (std::uint64_t offset = 0; offset < content.size;) {
        const std::size_t count = contents::readPiece(content, offset, piece.get());
        take(static_cast<const char*>(piece.get()), count);
        offset += count;
    }
}

#endif  // VOLE_WORKSHOP_CONTENTS_H
