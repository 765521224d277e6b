// HttpText.h: takes values of HTTP and MIME headers apart, and writes texts of others into headers and pages safely.
#ifndef VOLE_ICAP_HTTP_TEXT_H
#define VOLE_ICAP_HTTP_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace icap {

// ASCII letters only; others stay.
std::string lowerCase(std::string_view text);

// Without blanks at both ends.
std::string_view trimmed(std::string_view text);

// What stands between the separators, trimmed, a separator in double quotes not counted.
std::vector<std::string_view> splitList(std::string_view text, char separator);

// The value of `name` among the parameters of a header such as `form-data; name="a"; filename*=UTF-8''b`: without its
// quotes, escapes undone; that of the extended form (RFC 8187), decoded, before that of the plain one. Empty if there
// is none. Browsers put a file's backslashes there as they are, so that \ only escapes a quote or a backslash.
std::string parameterOf(std::string_view header, std::string_view name);

// At most `most` bytes of the text, every byte that could end a header's value or a part of it as %XX; cut ones end
// with
// "...". Nothing that is written so can look like another header.
std::string headerSafe(std::string_view text, std::size_t most = 400);

std::string htmlEscaped(std::string_view text);

}  // namespace icap

#endif  // VOLE_ICAP_HTTP_TEXT_H
