// ZipRecipe.h: ZIP archives that rows of text describe.
#ifndef TESTS_SUPPORT_ZIPRECIPE_H
#define TESTS_SUPPORT_ZIPRECIPE_H

#include <map>
#include <sstream>
#include <string>

#include "GoldenRows.h"
#include "ZipBuilder.h"

// The members that archives of text rows have, by their keys, which are their names, too, unless they have others.
inline std::map<std::string, ZipMember> zipMembers(const char* rows) {
    std::map<std::string, ZipMember> members;
    for (const GoldenRow& row : goldenRows(rows, "member")) {
        GoldenValues values = valuesIn(row[1]);
        const auto number = [&](const char* key) { return numberIn(values, key); };
        const auto small = [&](const char* key, unsigned usual) {
            return static_cast<int>(number(key).value_or(usual));
        };
        ZipMember& member = members[row[0]];
        member.name = values.contains("name") ? values["name"] : row[0];
        member.content = values["content"], member.extra = values["extra"];
        member.method = small("method", 8), member.descriptor = small("descriptor", 0);
        member.flags = small("flags", 0);
        if (values.contains("data")) member.data = values["data"];
        member.packed = number("packed"), member.unpacked = number("unpacked"), member.checkSum = number("checkSum");
    }
    return members;
}

// What words say one after the other: entries by their keys, "-key" for one in the directory only, "directory" for it
// and the end record, "headers" for it alone, "a/b" for a of which the directory says what it would of b, "next" for
// the next archive; all others stand for themselves.
inline std::string zipOfRecipe(const char* rows, const std::string& recipe) {
    static std::map<std::string, std::map<std::string, ZipMember>> known;
    auto& members = known[rows];
    if (members.empty()) members = zipMembers(rows);
    std::istringstream words(recipe);
    std::string bytes;
    ZipBuilder all;
    for (std::string word; std::getline(words, word, ' ');) {
        const std::size_t size = all.entries().size(), slash = word.find('/');
        if (members.contains(word)) {
            bytes += all.add(members.at(word)).entries().substr(size);
        } else if (slash != word.npos && members.contains(word.substr(0, slash))) {
            all.addAs(members.at(word.substr(0, slash)), members.at(word.substr(slash + 1)));
            bytes += all.entries().substr(size);
        } else if (word == "next") {
            all = ZipBuilder();
        } else if (word.starts_with('-')) {
            all.add(members.at(word.substr(1)));
        } else if (word == "directory" || word == "headers") {
            const std::string directory = all.archive().substr(size);
            bytes += directory.substr(0, word == "headers" ? directory.find("PK\5\6") : directory.size());
        } else {
            bytes += word;
        }
    }
    return bytes;
}

#endif  // TESTS_SUPPORT_ZIPRECIPE_H
