// Mails with parts of their own, by their header (RFC 5322, RFC 2045).
#ifndef PAKFOLD_MAILFORMAT_H
#define PAKFOLD_MAILFORMAT_H

#include <string_view>

namespace ZOV_SPACE {

// Bytes of a content that are looked at; the header of most mails is shorter.
inline constexpr std::size_t kMostMailHeader = 16384;

// Whether a content begins as a header does, as most contents do not. A few bytes are enough.
bool mayBeMail(std::string_view start);

// Whether it begins with nothing but header lines, and these announce several parts, or one that is encoded. Other
// texts that begin like a header are no mails for that.
bool isMailWithParts(std::string_view start);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_MAILFORMAT_H
