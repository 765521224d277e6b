// JsonText.h: what every report in JSON has in common: texts of any bytes, members, findings, lines.
//   Threads: no state.
#ifndef VOLE_TOOL_JSON_TEXT_H
#define VOLE_TOOL_JSON_TEXT_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "FileReport.h"

namespace json {

using Json = nlohmann::ordered_json;

// JSON has characters only. What is none in a name is not replaced, because two names must never look the same: the
// name is then given by its bytes, {"bytes": "666f6f"}.
Json textOf(std::string_view text);

Json memberOf(const MemberPath& member);
// The names that such a list in JSON has; nothing when the text is none, or has no names.
std::optional<MemberPath> memberFrom(std::string_view text);
Json findingOf(const Finding& finding);
Json reasonOf(const Reason& reason);

// One line, without its line feed. ASCII alone, so that no name can steer a terminal.
std::string lineOf(const Json& object);

}  // namespace json

#endif  // VOLE_TOOL_JSON_TEXT_H
