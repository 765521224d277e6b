// GoldenRows.h: rows of test data from a text file, with '|' between their fields. "\0a" stands for the byte 0x0A,
// and "{3*ab}" for ababab; a brace itself is "\7b".
#ifndef TESTS_SUPPORT_GOLDENROWS_H
#define TESTS_SUPPORT_GOLDENROWS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

// The fields; the last says why the row is there.
using GoldenRow = std::vector<std::string>;

inline std::string unescaped(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\') {
            bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else if (text[at] == '{') {
            const std::size_t piece = text.find('*', at) + 1, end = text.find('}', at);
            const std::string repeated = unescaped(text.substr(piece, end - piece));
            for (auto count = std::stoul(text.substr(at + 1)); count > 0; --count) bytes += repeated;
            at = end;
        } else {
            bytes += text[at];
        }
    }
    return bytes;
}

// Null for "null".
inline const char* textOrNull(const std::string& field) { return field == "null" ? nullptr : field.c_str(); }

// The hexadecimal numbers in a field, with blanks between them.
inline std::vector<std::uint32_t> numbersIn(const std::string& field) {
    std::istringstream words(field);
    std::vector<std::uint32_t> numbers;
    for (std::string word; words >> word;) numbers.push_back(static_cast<std::uint32_t>(std::stoul(word, nullptr, 16)));
    return numbers;
}

using GoldenValues = std::map<std::string, std::string>;

// What a field of words like "key=value" says; words alone are their own values.
inline GoldenValues valuesIn(const std::string& field) {
    GoldenValues values;
    std::istringstream words(field);
    for (std::string word; std::getline(words, word, ' ');) {
        values[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    }
    return values;
}

inline std::optional<std::uint32_t> numberIn(const GoldenValues& values, const char* key) {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(numbersIn(found->second)[0]);
}

// The rows whose first field, which is left out, is `kind`.
inline std::vector<GoldenRow> goldenRows(const char* path, const std::string& kind) {
    std::vector<GoldenRow> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with(kind + "|")) continue;
        std::istringstream fields(line.substr(kind.size() + 1));
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, '|');) rows.back().push_back(unescaped(field));
    }
    EXPECT_FALSE(rows.empty()) << kind;
    return rows;
}

// The same where each row has that many fields, of which the last may be empty.
template <std::size_t kFields>
std::vector<std::array<std::string, kFields>> goldenRows(const char* path, const std::string& kind) {
    std::vector<std::array<std::string, kFields>> rows;
    for (const GoldenRow& row : goldenRows(path, kind)) {
        EXPECT_TRUE(row.size() == kFields || row.size() + 1 == kFields) << kind << '|' << row.front();
        std::copy_n(row.begin(), std::min(row.size(), kFields), rows.emplace_back().begin());
    }
    return rows;
}

#endif  // TESTS_SUPPORT_GOLDENROWS_H
