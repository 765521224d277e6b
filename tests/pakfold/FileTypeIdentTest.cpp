#include "FileTypeIdent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FileTypeProcessor.h"
#include "support/StringBuffer.h"

namespace ZOV_SPACE {
namespace {

using F = FileTypeIdent;

// The golden file's bytes, with a filler for those that may be any.
std::string bytesOf(std::string text, char filler) {
    std::string bytes;
    if (const std::size_t star = text.find('*'); star != std::string::npos) {
        bytes.assign(std::stoul(text) - 1, filler);
        text.erase(0, star + 1);
    }
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const std::string digits = text.substr(i, 2);
        bytes += digits == "??" ? filler : static_cast<char>(std::stoi(digits, nullptr, 16));
    }
    return bytes;
}

// What the tests say, one row's first. On a copy at the end of an allocation, so that the address sanitizer
// sees reads behind it.
int match(const std::string& bytes, int row) {
    const std::string padded = ' ' + bytes;
    const std::vector<unsigned char> exact(padded.begin(), padded.end());
    return F::priorMatch(exact.data() + 1, static_cast<int>(bytes.size()), row, row);
}

void checkMagic(int row, int code, const std::string& pattern) {
    const std::string found = bytesOf(pattern, 'x'), other = bytesOf(pattern, '\0');
    EXPECT_TRUE(match(found, row) == code && match(other, row) == code);
    if (code == F::kUnknown) return;  // Which it is, too, when no test holds.
    EXPECT_NE(match(found.substr(0, found.size() - 1), row), code);
    EXPECT_NE(F::priorMatch(nullptr, static_cast<int>(found.size()), row, row), code);
    for (std::size_t i = 0; i < found.size(); ++i) {
        std::string damaged = found;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x80);
        EXPECT_EQ(match(damaged, row) == code, found[i] != other[i]) << "byte " << i;
    }
}

void checkContent(const std::string& name, const std::string& type, const std::string& content, int code) {
    StringSource source("skipped" + content, 7);
    StringBuffer buffer(content);
    EXPECT_EQ(F::checkFileType(&buffer, name, type), code);
    EXPECT_EQ(F::checkFileType(&source.stream, name, type), code);
    EXPECT_EQ(source.stream.available(), static_cast<int>(content.size()));
}

// The next word of a line; some of its characters stand for others.
std::string nextWord(std::istream& in) {
    std::string word;
    in >> word;
    std::replace(word.begin(), word.end(), '_', ' ');
    std::replace(word.begin(), word.end(), '~', '\t');
    return word == "-" ? "" : word;
}

int nextNumber(std::istream& in) {
    int number = -1;
    in >> number;
    return number;
}

void checkLine(const std::string& line, int& extensions) {
    std::istringstream in(line);
    const std::string kind = nextWord(in);
    if (kind == "magic") {
        const int row = nextNumber(in), code = nextNumber(in);
        checkMagic(row, code, nextWord(in));
    } else if (kind == "name") {
        const std::string name = nextWord(in);
        const int code = nextNumber(in);
        EXPECT_EQ(F::checkFileType(name.c_str()), code);
        EXPECT_EQ(F::indexTypeTbl(F::fileSuffix(name)), code == F::kUnknown ? -1 : extensions++);
    } else if (kind == "content") {
        const std::string name = nextWord(in), type = nextWord(in), content = bytesOf(nextWord(in), 0);
        checkContent(name, type, content, nextNumber(in));
    } else if (kind == "list") {
        const std::string extension = nextWord(in), list = nextWord(in);
        EXPECT_EQ(F::isExtInList(extension.c_str(), list.c_str()), nextNumber(in));
        EXPECT_EQ(F::isTypeInList(F::extToType(extension.c_str()), list.c_str()), nextNumber(in));
    } else {
        EXPECT_EQ(kind.find_first_not_of('#'), std::string::npos);
    }
    EXPECT_TRUE(in) << "too short";
}

TEST(FileTypeIdent, answersAsTheGoldenFileSays) {
    std::ifstream golden(VOLE_FILE_TYPES);
    int extensions = 0;
    for (std::string line; std::getline(golden, line);) {
        SCOPED_TRACE(line);
        checkLine(line, extensions);
    }
    EXPECT_EQ(extensions, 40);
}

TEST(FileTypeIdent, takesNothingForUnknown) {
    const int codes[] = {F::checkFileType(nullptr), F::extToType(nullptr), F::extToType(".zip"),
                         F::checkFileType(static_cast<BufferBase*>(nullptr), "a.txt", ""),
                         F::checkFileType(static_cast<InputStream*>(nullptr), "a.txt", "")};
    EXPECT_EQ(testing::PrintToString(codes), "{ 999, 999, 999, 999, 999 }");
    EXPECT_FALSE(F::isExtInList(nullptr, "zip") || F::isExtInList("zip", nullptr) || F::isTypeInList(700, nullptr));
    // Ranges that lie outside the table, or hold nothing.
    const unsigned char text[] = "text";
    using Range = std::pair<int, int>;
    for (const auto& [first, last] : {Range{-5, -1}, Range{40, 10000}, Range{2, 1}, Range{-5, 10000}}) {
        EXPECT_EQ(F::priorMatch(text, 4, first, last), 100) << first;
    }
    EXPECT_EQ(F::priorMatch(text, 4, 39, 39), 999);
    EXPECT_EQ(F::priorMatch(nullptr, 4, 0, 10000), 999);
}

TEST(FileTypeIdent, textIsJudgedByItsFirst200Bytes) {
    const auto head = [](const std::string& bytes) { return reinterpret_cast<const unsigned char*>(bytes.data()); };
    for (int byte = 0; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        const bool plain =
            (byte >= 0x20 && byte <= 0x7E) || std::string("\a\b\t\n\f\r\x1B\x85").find(one) != std::string::npos;
        EXPECT_EQ(F::isPlainTxtFile(head(one), 1), plain) << byte;
        EXPECT_EQ(F::isTxtFile(head(one), 1), plain || byte >= 0x80) << byte;
    }
    const std::string text = std::string(200, 'a') + '\0';
    for (const auto test : {F::isTxtFile, F::isPlainTxtFile, F::isBatFile, F::isVbsFile, F::isJsFile}) {
        EXPECT_TRUE(test(head(text), 201) && test(head(text), 0));
        EXPECT_FALSE(test(head(text) + 1, 200) || test(nullptr, 5));
        EXPECT_EQ(test(nullptr, 0), test == F::isTxtFile || test == F::isPlainTxtFile);
    }
}

TEST(FileTypeProcessor, asksTheCallBackAndKeepsItsAnswer) {
    struct Echo : FileTypeProcessor::CallBack {
        int getAction(int code) override { return code; }
    } echo;
    StringSource ole("\xD0\xCF\x11\xE0\xA1\xB1"), wav("RIFF    WAVE");
    std::string none, name = "a.doc", type = "audid";
    FileTypeProcessor file;
    const int without[] = {file.getAction(), FileTypeProcessor::setCallBack(&echo), file.check(&ole.buffer),
                           file.setFileName(name)};
    EXPECT_EQ(testing::PrintToString(without), "{ 0, 0, 1, 1 }") << "which sets nothing: a default answers 1";
    FileTypeProcessor::call_back = &echo;
    const int with[] = {file.check(&ole.stream),   file.setFileName(none),  file.check(&ole.buffer),
                        file.setContentType(type), file.check(&wav.buffer), file.init(),
                        file.check(&wav.buffer)};
    EXPECT_EQ(testing::PrintToString(with), "{ 504, 504, 999, 999, 401, 0, 100 }");
    FileTypeProcessor::call_back = nullptr;
}

}  // namespace
}  // namespace ZOV_SPACE
