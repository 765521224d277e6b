#include "JsonText.h"

#include <span>

#include "Text.h"
#include "Utf8.h"

namespace json {

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
