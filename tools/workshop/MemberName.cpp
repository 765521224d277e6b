#include "MemberName.h"

#include <utility>

#include "JsonText.h"

MemberName::MemberName(std::string text) : _text(std::move(text)), _list(json::memberFrom(_text)) {}

bool MemberName::fits(const MemberPath& member) const { return _list ? member == *_list : joined(member) == _text; }

std::string joined(const MemberPath& member) {
    std::string path;
    for (std::size_t i = 0; i < member.size(); ++i) path.append(i == 0 ? "" : "/").append(member[i]);
    return path;
}

std::string listOf(const MemberPath& member) { return json::lineOf(json::memberOf(member)); }
