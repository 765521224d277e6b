#include "FileTypeIdent.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "FileTypeProcessor.h"
#include "support/GoldenRows.h"
#include "support/StringBuffer.h"

namespace ZOV_SPACE {
namespace {

using F = FileTypeIdent;

// The golden file's bytes, with a filler for those that may be any.
std::string bytesOf(const std::string& text, char filler) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const std::string digits = text.substr(i, 2);
        bytes += digits == "??" ? filler : static_cast<char>(std::stoi(digits, nullptr, 16));
    }
    return bytes;
}

// What the rows' tests say. On a copy at the end of an allocation, so that the address sanitizer sees reads behind it.
int match(const std::string& bytes, int first, int last) {
    const std::string padded = ' ' + bytes;
    const std::vector<unsigned char> exact(padded.begin(), padded.end());
    return F::priorMatch(exact.data() + 1, static_cast<int>(bytes.size()), first, last);
}

void checkMagic(int row, int code, const std::string& pattern) {
    const std::string found = bytesOf(pattern, 'x'), other = bytesOf(pattern, '\0');
    EXPECT_TRUE(match(found, row, row) == code && match(other, row, row) == code);
    if (code == F::kUnknown) return;  // Which it is, too, when no test holds.
    EXPECT_NE(match(found.substr(0, found.size() - 1), row, row), code);
    EXPECT_NE(F::priorMatch(nullptr, static_cast<int>(found.size()), row, row), code);
    for (std::size_t i = 0; i < found.size(); ++i) {
        std::string damaged = found;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x80);
        EXPECT_EQ(match(damaged, row, row) == code, found[i] != other[i]) << "byte " << i;
    }
}

void checkContent(const std::string& name, const std::string& type, const std::string& content, int code) {
    StringSource source("skipped" + content, 7);
    StringBuffer buffer(content);
    EXPECT_EQ(F::checkFileType(&buffer, name, type), code);
    EXPECT_EQ(F::checkFileType(&source.stream, name, type), code);
    EXPECT_EQ(source.stream.available(), static_cast<int>(content.size()));
}

TEST(FileTypeIdent, answersAsTheGoldenFileSays) {
    for (const GoldenRow& row : goldenRows(VOLE_FILE_TYPES, "magic")) {
        SCOPED_TRACE(row[0] + " " + row[2]);
        checkMagic(std::stoi(row[0]), std::stoi(row[1]), row[2]);
    }
    for (const GoldenRow& row : goldenRows(VOLE_FILE_TYPES, "range")) {
        EXPECT_EQ(match(bytesOf(row[2], 0), std::stoi(row[0]), std::stoi(row[1])), std::stoi(row[3])) << row[0];
    }
    int extensions = 0;
    for (const GoldenRow& row : goldenRows(VOLE_FILE_TYPES, "name")) {
        EXPECT_EQ(F::checkFileType(textOrNull(row[0])), std::stoi(row[1])) << row[0];
        EXPECT_EQ(F::indexTypeTbl(F::fileSuffix(row[0])), row[1] == "999" ? -1 : extensions++) << row[0];
    }
    EXPECT_EQ(extensions, 40);
    for (const GoldenRow& row : goldenRows(VOLE_FILE_TYPES, "content")) {
        SCOPED_TRACE(row[0] + " " + row[1] + " " + row[2]);
        checkContent(row[0], row[1], bytesOf(row[2], 0), std::stoi(row[3]));
    }
    for (const GoldenRow& row : goldenRows(VOLE_FILE_TYPES, "list")) {
        const char *const extension = textOrNull(row[0]), *const list = textOrNull(row[1]);
        EXPECT_EQ(F::isExtInList(extension, list), std::stoi(row[2])) << row[0] << " " << row[1];
        EXPECT_EQ(F::isTypeInList(F::extToType(extension), list), std::stoi(row[3])) << row[0] << " " << row[1];
    }
    EXPECT_EQ(F::checkFileType(static_cast<BufferBase*>(nullptr), "a.txt", ""), F::kUnknown);
    EXPECT_EQ(F::checkFileType(static_cast<InputStream*>(nullptr), "a.txt", ""), F::kUnknown);
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

struct Echo : FileTypeProcessor::CallBack {
    int getAction(int code) override { return code; }
};

TEST(FileTypeProcessor, asksTheCallBackAndKeepsItsAnswer) {
    Echo echo;
    StringSource ole("\xD0\xCF\x11\xE0\xA1\xB1"), wav("RIFF    WAVE");
    std::string none, name = "a.doc", type = "audid";
    FileTypeProcessor file;
    const int without[] = {FileTypeProcessor::setCallBack(&echo), file.check(&ole.buffer), file.setFileName(name)};
    EXPECT_EQ(testing::PrintToString(without), "{ 0, 1, 1 }") << "which sets nothing: a default answers 1";
    FileTypeProcessor::call_back = &echo;
    const int with[] = {file.check(&ole.stream),   file.setFileName(none),  file.check(&ole.buffer),
                        file.setContentType(type), file.check(&wav.buffer), file.init(),
                        file.check(&wav.buffer)};
    EXPECT_EQ(testing::PrintToString(with), "{ 504, 504, 999, 999, 401, 0, 100 }");
    FileTypeProcessor::call_back = nullptr;
}

}  // namespace
}  // namespace ZOV_SPACE
