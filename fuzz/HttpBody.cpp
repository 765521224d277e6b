// What the ICAP service reads of HTTP before it scans: codings, forms, and names in their headers.
// Input: three lines, Content-Type, Content-Encoding and any other header; then the body.
#include <algorithm>
#include <array>
#include <string>

#include "BodyStore.h"
#include "ContentDecoder.h"
#include "HttpText.h"
#include "Multipart.h"
#include "Target.h"

namespace {

std::string_view takeLine(std::string_view& input) {
    const std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(input.size(), line.size() + 1));
    return line;
}

void readForm(std::string_view contentType, std::span<const char> body) {
    constexpr std::size_t kMostParts = 20;
    const auto boundary = icap::formBoundary(contentType);
    const icap::Form form = icap::takeApart(body, boundary.value_or("b"), kMostParts);
    require(form.parts.size() <= kMostParts);
    const char* end = body.data();
    for (const icap::FormPart& part : form.parts) {
        // In order, and none in another one.
        require(part.content.empty() || part.content.data() >= end);
        end = std::max(end, part.content.data() + part.content.size());
        note(part.name);
        note({part.content.data(), part.content.size()});
    }
    require(end <= body.data() + body.size());
    if (form.trouble) note(form.trouble->text);
}

void readName(std::string_view header) {
    constexpr std::size_t kMost = 60;
    const std::string safe = icap::headerSafe(icap::parameterOf(header, "filename"), kMost);
    require(safe.size() <= kMost && safe.find_first_of("\r\n;\"") == safe.npos);
    note(safe);
    const std::string html = icap::htmlEscaped(header);
    require(html.find_first_of("<>\"'\n") == html.npos);
}

}  // namespace

void readHttpBody(std::string_view input) {
    constexpr std::uint64_t kMostBytes = 100'000, kRatio = 50;
    const std::string_view contentType = takeLine(input), encoding = takeLine(input);
    readName(takeLine(input));
    readForm(contentType, input);
    for (const std::string& coding : icap::codingsOf(encoding)) {
        icap::BodyStore decoded(1 << 20, "/nonexistent");
        const auto reason = icap::decodeContent(coding, input, {kMostBytes, kRatio, {}}, decoded);
        // One piece of the decoder's output more than the limit, at most.
        require(decoded.size() <= kMostBytes + (1 << 16));
        note(reason ? reason->text : "whole");
        const icap::BodyBytes bytes = decoded.bytes();
        note({bytes.get().data(), bytes.get().size()});
        readForm(contentType, bytes.get());
    }
}
