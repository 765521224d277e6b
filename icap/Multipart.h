// Multipart: the parts of a multipart/form-data body (RFC 7578, RFC 2046 section 5.1).
//   Threads: no state.
#ifndef VOLE_ICAP_MULTIPART_H
#define VOLE_ICAP_MULTIPART_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "FileReport.h"

namespace icap {

struct FormPart {
    std::string name;               // Of the file, or else of the form's field.
    std::span<const char> content;  // Of the body that was taken apart.
};

struct Form {
    std::vector<FormPart> parts;
    std::optional<Reason> trouble;  // Why there may be more, or something else, in the body.
};

// The boundary that a Content-Type header names, when it is one of a form; else nothing.
std::optional<std::string> formBoundary(std::string_view contentType);

// The parts, `mostParts` at most, in one pass. Lines may end with CRLF or, as many writers have it, LF.
Form takeApart(std::span<const char> body, std::string_view boundary, std::size_t mostParts);

}  // namespace icap

#endif  // VOLE_ICAP_MULTIPART_H
