// ContentDecoder: undoes the content codings of HTTP: gzip (RFC 1952), deflate (RFC 1950, or the bare RFC 1951 that
// some servers send) and br (RFC 7932).
//   Threads: no state.
#ifndef VOLE_ICAP_CONTENT_DECODER_H
#define VOLE_ICAP_CONTENT_DECODER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "BodyStore.h"
#include "FileReport.h"

namespace icap {

// What decoding may cost. 0 means unlimited, as in vole_limits.
struct DecodeLimits {
    std::uint64_t bytes = 0;
    std::uint64_t ratio = 0;
    // Asked every few KiB: the reason to stop, if there is one.
    std::function<std::optional<Reason>()> interrupted;
};

// The codings of a Content-Encoding header in the order in which they are to be undone, lower case, without "identity".
std::vector<std::string> codingsOf(std::string_view header);

// Undoes one coding. What could be decoded is in `decoded` in any case; the reason says why that is not everything.
std::optional<Reason> decodeContent(std::string_view coding, std::span<const char> packed, const DecodeLimits& limits,
                                    BodyStore& decoded);

}  // namespace icap

#endif  // VOLE_ICAP_CONTENT_DECODER_H
