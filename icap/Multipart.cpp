#include "Multipart.h"

#include <cstring>

#include "HttpText.h"
#include "VoleLibrary.h"

namespace icap {
namespace {

constexpr std::size_t kMostHeaderBytes = 16 * 1024;

// A line that separates parts: where the line end before it begins, where the next line begins.
struct Delimiter {
    std::size_t start = 0;
    std::size_t end = 0;
    bool isLast = false;
};

class Reader {
public:
    Reader(std::span<const char> body, std::string_view boundary)
        : _body(body.data(), body.size()), _mark("--" + std::string(boundary)) {}

    // The first delimiter at or behind `from`; a line that only begins like one is none.
    std::optional<Delimiter> next(std::size_t from) const {
        while (const auto at = find(from)) {
            from = *at + _mark.size();
            if (*at != 0 && _body[*at - 1] != '\n') continue;
            Delimiter delimiter{*at, from};
            if (_body.substr(from).starts_with("--")) {
                delimiter.isLast = true;
                delimiter.end += 2;
            }
            const std::size_t text = _body.find_first_not_of(" \t", delimiter.end);
            if (text == _body.npos || _body[text] == '\n' || _body.substr(text).starts_with("\r\n")) {
                delimiter.end = text == _body.npos ? _body.size() : _body.find('\n', text) + 1;
            } else if (!delimiter.isLast) {
                continue;
            }
            delimiter.start = beforeLineEnd(*at);
            return delimiter;
        }
        return std::nullopt;
    }

    std::string_view body() const { return _body; }

private:
    // The C library's search takes a time that is linear in the body whatever the boundary is.
    std::optional<std::size_t> find(std::size_t from) const {
        if (from >= _body.size())
            return std::nullopt;  // No bytes may be at no address, which the search does not take.
        const void* const at = ::memmem(_body.data() + from, _body.size() - from, _mark.data(), _mark.size());
        if (at == nullptr) return std::nullopt;
        return static_cast<std::size_t>(static_cast<const char*>(at) - _body.data());
    }

    std::size_t beforeLineEnd(std::size_t at) const {
        if (at > 0 && _body[at - 1] == '\n') --at;
        if (at > 0 && _body[at - 1] == '\r') --at;
        return at;
    }

    std::string_view _body;
    std::string _mark;
};

// The header lines of a part, folded ones joined, and what they are followed by.
struct PartHead {
    std::string disposition, transferEncoding;
    std::size_t size = 0;
};

std::optional<PartHead> readHead(std::string_view part) {
    PartHead head;
    std::string field;
    while (head.size < part.size() && head.size < kMostHeaderBytes) {
        const std::size_t end = part.find('\n', head.size);
        if (end == part.npos) return std::nullopt;
        const std::string_view line = part.substr(head.size, end - head.size);
        head.size = end + 1;
        const std::size_t colon = line.find(':');
        if (line.empty() || line == "\r") return head;
        const bool isFolded = line.front() == ' ' || line.front() == '\t';
        if (!isFolded) field = lowerCase(trimmed(line.substr(0, colon)));
        const std::string_view value = isFolded ? line : line.substr(colon == line.npos ? line.size() : colon + 1);
        if (field == "content-disposition") head.disposition += value;
        if (field == "content-transfer-encoding") head.transferEncoding += trimmed(value);
    }
    return std::nullopt;
}

bool isPlain(const std::string& transferEncoding) {
    const std::string encoding = lowerCase(transferEncoding);
    return encoding.empty() || encoding == "7bit" || encoding == "8bit" || encoding == "binary";
}

// Takes one part in; its trouble, if it has some.
std::optional<Reason> addPart(std::string_view part, std::vector<FormPart>& parts) {
    const auto head = readHead(part);
    if (!head) {
        parts.push_back({"", part});
        return reasonFor(VOLE_REASON_DAMAGED, "a part of the form has no end of its header");
    }
    std::string name = parameterOf(head->disposition, "filename");
    if (name.empty()) name = parameterOf(head->disposition, "name");
    parts.push_back({std::move(name), part.substr(head->size)});
    if (isPlain(head->transferEncoding)) return std::nullopt;
    return reasonFor(VOLE_REASON_UNSUPPORTED, "a part of the form has a transfer encoding");
}

}  // namespace

std::optional<std::string> formBoundary(std::string_view contentType) {
    constexpr std::size_t kMostBoundary = 256;  // 70 by the standard.
    const auto items = splitList(contentType, ';');
    if (items.empty() || lowerCase(items.front()) != "multipart/form-data") return std::nullopt;
    std::string boundary = parameterOf(contentType, "boundary");
    // A form that cannot be taken apart is one with a boundary that occurs nowhere.
    if (boundary.size() > kMostBoundary) boundary.clear();
    return boundary;
}

Form takeApart(std::span<const char> body, std::string_view boundary, std::size_t mostParts) {
    Form form;
    const auto trouble = [&](std::optional<Reason> reason) {
        if (reason && !form.trouble) form.trouble = std::move(reason);
    };
    const Reader reader(body, boundary);
    auto delimiter = boundary.empty() ? std::nullopt : reader.next(0);
    if (!delimiter) trouble(reasonFor(VOLE_REASON_DAMAGED, "the form's boundary is not in its body"));
    while (delimiter && !delimiter->isLast) {
        const std::size_t start = delimiter->end;
        delimiter = reader.next(start);
        if (!delimiter) trouble(reasonFor(VOLE_REASON_TRUNCATED, "the form ends early"));
        if (form.parts.size() == mostParts) {
            trouble(reasonFor(VOLE_REASON_MEMBER_LIMIT, "the form has too many parts"));
            break;
        }
        const std::size_t end = delimiter ? delimiter->start : body.size();
        trouble(addPart(reader.body().substr(start, end < start ? 0 : end - start), form.parts));
    }
    return form;
}

}  // namespace icap
