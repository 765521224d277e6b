// TarRecipe.h: tar archives that rows of text describe.
#ifndef TESTS_SUPPORT_TARRECIPE_H
#define TESTS_SUPPORT_TARRECIPE_H

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <string>

#include "GoldenRows.h"

inline std::string paddedRecord(std::string bytes) { return bytes.resize((bytes.size() + 511) / 512 * 512), bytes; }

// A header and its data. `values`: name, content, type, mark, prefix, and fields that are not as they would be: size,
// sum; "at386" and the like have bytes for that place. In all of them '~' is a blank.
inline std::string tarEntry(GoldenValues values) {
    std::string header(512, '\0');
    const auto put = [&](std::size_t at, const std::string& bytes) { header.replace(at, bytes.size(), bytes); };
    const auto octal = [](int width, std::size_t number) {
        std::ostringstream digits;
        digits << std::oct << std::setw(width) << std::setfill('0') << number;
        return digits.str();
    };
    for (auto& [key, bytes] : values) std::replace(bytes.begin(), bytes.end(), '~', ' ');
    const std::string content = values["content"];
    put(0, values["name"]);
    put(124, values.contains("size") ? values["size"] : octal(11, content.size()));
    put(156, values.contains("type") ? values["type"] : "0");
    put(257, values.contains("mark") ? values["mark"] : std::string("ustar\00000", 8));
    put(345, values["prefix"]);
    for (const auto& [key, bytes] : values) {
        if (key.starts_with("at")) put(std::stoul(key.substr(2)), bytes);
    }
    put(148, "        ");
    std::size_t sum = 0;
    for (const char byte : header) sum += static_cast<unsigned char>(byte);
    put(148, values.contains("sum") ? values["sum"] : octal(6, sum));
    return header + paddedRecord(content);
}

// What words say one after the other: entries by their keys, "zero" for an empty record, "end" for two of them, "cut"
// for the loss of the last 512 bytes; all others stand for themselves, and fill records.
inline std::string tarOfRecipe(const char* rows, const std::string& recipe) {
    std::map<std::string, GoldenValues> known;
    for (const GoldenRow& row : goldenRows(rows, "entry")) known[row[0]] = valuesIn(row[1]);
    std::istringstream words(recipe);
    std::string bytes;
    for (std::string word; words >> word;) {
        if (known.contains(word)) {
            bytes += tarEntry(known[word]);
        } else if (word == "zero" || word == "end") {
            bytes.append(word == "zero" ? 512 : 1024, '\0');
        } else if (word == "cut") {
            bytes.resize(bytes.size() - 512);
        } else {
            bytes += paddedRecord(word);
        }
    }
    return bytes;
}

#endif  // TESTS_SUPPORT_TARRECIPE_H
