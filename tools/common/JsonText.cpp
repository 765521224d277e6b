#include "JsonText.h"

#include <span>
#include <utility>
#include <vector>

#include "Text.h"
#include "Utf8.h"

namespace json {
namespace {

// What textOf() was given.
std::optional<std::string> bytesFrom(const Json& text) {
    if (text.is_string()) return text.get<std::string>();
    const auto bytes = text.is_object() && text.size() == 1 ? text.find("bytes") : text.end();
    if (bytes == text.end() || !bytes->is_string()) return std::nullopt;
    const auto digits = bytes->get<std::string>();
    std::vector<unsigned char> decoded(digits.size() / 2);
    const bool isWhole = digits.size() % 2 == 0 && ZOV_SPACE::text::decodeHex(digits, decoded.data()) == decoded.size();
    return isWhole ? std::optional(std::string(decoded.begin(), decoded.end())) : std::nullopt;
}

}  // namespace

Json textOf(std::string_view text) {
    if (isUtf8(text)) return text;
    const std::span bytes(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return Json::object({{"bytes", ZOV_SPACE::text::hexOf(bytes)}});
}

Json memberOf(const MemberPath& member) {
    Json names = Json::array();
    for (const std::string& name : member) names.push_back(textOf(name));
    return names;
}

std::optional<MemberPath> memberFrom(std::string_view text) {
    const Json list = text.starts_with('[') ? Json::parse(text, nullptr, false) : Json();
    if (!list.is_array() || list.empty()) return std::nullopt;
    MemberPath member;
    for (const Json& name : list) {
        auto bytes = bytesFrom(name);
        if (!bytes) return std::nullopt;
        member.push_back(*std::move(bytes));
    }
    return member;
}

Json findingOf(const Finding& finding) {
    Json object = {{"name", textOf(finding.name)},
                   {"kind", finding.kind},
                   {"form", finding.form},
                   {"member", memberOf(finding.member)}};
    if (finding.offset) object["offset"] = *finding.offset;
    return object;
}

Json reasonOf(const Reason& reason) {
    return {{"code", reason.code}, {"member", memberOf(reason.member)}, {"text", textOf(reason.text)}};
}

std::string lineOf(const Json& object) { return object.dump(-1, ' ', true); }

}  // namespace json
