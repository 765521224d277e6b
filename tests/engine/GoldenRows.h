// goldenRows(): the cases of answers.txt, whose head describes their form.
#ifndef TESTS_ENGINE_GOLDENROWS_H
#define TESTS_ENGINE_GOLDENROWS_H

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iomanip>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

// With the bytes that stand in braces.
inline std::string withBytes(std::string text) {
    static const std::regex kByte("\\{([0-9A-F]{2})(?:\\*([0-9]+))?\\}");
    for (std::smatch found; std::regex_search(text, found, kByte);) {
        const std::size_t count = found[2].matched ? std::stoul(found[2]) : 1;
        const std::string bytes(count, static_cast<char>(std::stoi(found[1], nullptr, 16)));
        text = found.prefix().str() + bytes + found.suffix().str();
    }
    return text;
}

// The rows of a kind, each as its fields.
template <std::size_t kFields>
std::vector<std::array<std::string, kFields>> goldenRows(const std::string& kind) {
    std::vector<std::array<std::string, kFields>> rows;
    std::ifstream golden(VOLE_ENGINE_ANSWERS);
    for (std::string line, word; std::getline(golden, line);) {
        std::istringstream in(line);
        if (!(in >> word) || word != kind) continue;
        for (std::string& field : rows.emplace_back()) {
            in >> std::quoted(field);
            field = withBytes(field);
        }
        EXPECT_TRUE(in && in.peek() == EOF) << line;
    }
    EXPECT_FALSE(rows.empty()) << kind;
    return rows;
}

#endif  // TESTS_ENGINE_GOLDENROWS_H
