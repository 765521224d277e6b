#include "FileTypeIdent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FileTypeProcessor.h"
#include "Utils.h"
#include "support/StringBuffer.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_literals;
using F = FileTypeIdent;
using Check = bool (*)(const unsigned char*, int);

// On a copy at the end of an allocation, so that the address sanitizer sees reads behind it.
bool holds(Check test, const std::string& bytes) {
    const std::string padded = ' ' + bytes;
    const std::vector<unsigned char> exact(padded.begin(), padded.end());
    return test(exact.data() + 1, static_cast<int>(bytes.size()));
}

const unsigned char* head(const std::string& bytes) { return reinterpret_cast<const unsigned char*>(bytes.data()); }

std::string filled(std::string pattern, char filler) {
    std::replace(pattern.begin(), pattern.end(), '?', filler);
    return pattern;
}

// The shortest heads that a test accepts; '?' stands for any byte.
const struct Magic {
    Check test;
    int row, code;
    std::vector<std::string> patterns;
} kMagics[] = {
    {F::isHtmFile, 0, 101, {"<hTmL", "<TITLE", "<head", "<!DocType HTML", "<!doctype    html"}},
    {F::isJpgFile, 5, 200, {"\xFF\xD8?"}},
    {F::isGifFile, 6, 201, {"GIF8"}},
    {F::isPicFile, 7, 202, {"\x91\x19?"}},
    {F::isTiffFile, 8, 203, {"IIN1", "MM\0*"s, "II*\0"s}},
    {F::isPngFile, 9, 204, {"?PNG?"}},
    {F::isBmpFile, 10, 205, {"BM?"}},
    {F::isIcoFile, 11, 206, {"IC?"}},
    {F::isMp3File, 12, 400, {"\xFF\xF0?", "\xFF\xFF?"}},
    {F::isWavFile, 13, 401, {"RIFF????WAVE"}},
    {F::isMidFile, 14, 402, {"MThd"}},
    {F::isCorvoPatternFile, 15, 350, {"\x1A\xD1\xBD\x1A"}},
    {F::isMpgFile, 16, 300, {"\0\0\1\xB3"s, "\0\0\1\xBA"s}},
    {F::isAviFile, 17, 301, {"RIFF????AVI"}},
    {F::isFlcFile, 18, 302, {"????\x12\xAF"}},
    {F::isFliFile, 19, 303, {"????\x11\xAF"}},
    {F::isMovFile, 20, 304, {"????moov", "????mdat"}},
    {F::isPdfFile, 21, 502, {"%PDF-"}},
    {F::isExeFile, 22, 500, {"MZ", "NE"}},
    {F::isComFile, 23, 501, {"\xE9", "\xEB"}},
    {F::isChmFile, 24, 507, {"ITSF"}},
    {F::isMsOfficeFile, 25, 999, {"\xFE\x37\0\x23"s, "\xD0\xCF\x11\xE0\xA1\xB1"}},
    {F::isDocFile, 26, 504, {"\xFE\x37\0\x23"s, "\xDB\xA5\x2D\0\0\0"s, "PO^Q`", "\xFFWPC"}},
    {F::isDotFile, 27, 505, {"\xD0\xCF\x11\xE0\xA1\xB1"}},
    {F::isPptFile, 28, 506, {"\xDB\xA5\x2D\0\0\0"s}},
    {F::isZipFile, 29, 700, {"PK\3\4?"}},
    {F::isArcFile, 30, 702, {"\x1A??"}},
    {F::isArjFile, 31, 703, {"\x60\xEA?"}},
    {F::isRarFile, 32, 701, {"Rar!?"}},
    {F::isTarFile, 33, 704, {std::string(257, '?') + "ustar"}},
    {F::isGzipFile, 34, 705, {"\x1F\x8B?"}},
    {F::isZFile, 35, 706, {"\x1F\x9D?"}},
    {F::isMscmpFile, 36, 707, {"SZDD\x88\xF0\x27\x33?", "KWAJ\x88\xF0\x27\xD1?"}},
    {F::isCabFile, 37, 708, {"MSCF\0\0\0\0?"s}},
    {F::isZooFile, 38, 709, {std::string(20, '?') + "\xDC\xA7\xC4\xFD?"}},
};

void checkMagic(const Magic& m, const std::string& pattern) {
    SCOPED_TRACE(testing::Message() << "row " << m.row << ", " << testing::PrintToString(pattern));
    const std::string found = filled(pattern, 'x');
    const int length = static_cast<int>(found.size());
    EXPECT_TRUE(holds(m.test, found) && holds(m.test, filled(pattern, '\0')));
    EXPECT_FALSE(holds(m.test, found.substr(1)) || holds(m.test, found.substr(0, found.size() - 1)));
    EXPECT_FALSE(m.test(nullptr, length) || m.test(head(found), -length));
    EXPECT_EQ(F::priorMatch(head(found), length, m.row, m.row), m.code);
    for (std::size_t i = 0; i < found.size(); ++i) {
        std::string damaged = found;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x80);
        EXPECT_EQ(holds(m.test, damaged), pattern[i] == '?') << "byte " << i;
    }
}

TEST(FileTypeIdent, testsWantEveryByteOfTheirMagicAndTheLength) {
    for (const Magic& m : kMagics) {
        for (const std::string& pattern : m.patterns) checkMagic(m, pattern);
    }
    for (const std::string& notHtml :
         {"<!doctypehtml     "s, "<!doctype\thtml  "s, "<!doctype xhtml   "s, "<!doctype         "s, "<!doctype  htm"s,
          "<!doctype \0html   "s, "<!--  doctype html"s}) {
        EXPECT_FALSE(holds(F::isHtmFile, notHtml)) << testing::PrintToString(notHtml);
    }
}

TEST(FileTypeIdent, textIsJudgedByItsFirst200Bytes) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        const bool plain = (byte >= 0x20 && byte <= 0x7E) || "\a\b\t\n\f\r\x1B\x85"s.find(one) != std::string::npos;
        EXPECT_EQ(holds(F::isPlainTxtFile, one), plain) << byte;
        EXPECT_EQ(holds(F::isTxtFile, one), plain || byte >= 0x80) << byte;
    }
    const std::string text(200, 'a');
    for (const Check test : {F::isTxtFile, F::isPlainTxtFile, F::isBatFile, F::isVbsFile, F::isJsFile}) {
        EXPECT_TRUE(holds(test, text + '\0') && holds(test, ""));
        EXPECT_FALSE(holds(test, text.substr(1) + '\0') || test(nullptr, 5));
        EXPECT_EQ(test(nullptr, 0), test == F::isTxtFile || test == F::isPlainTxtFile);
    }
}

TEST(FileTypeIdent, extensionsSelectTheirRows) {
    std::istringstream table(
        "html 101 htm 101 txt 100 bat 104 vbs 102 js 103 jpg 200 jpeg 200 gif 201 pic 202 tiff 203 tif 203 png 204 "
        "bmp 205 ico 206 mp3 400 wav 401 mid 402 mpg 300 mpeg 300 avi 301 fli 302 flc 303 mov 304 pdf 502 exe 500 "
        "com 501 chm 507 doc 504 dot 505 ppt 506 zip 700 arc 702 arj 703 rar 701 tar 704 gz 705 z 706 cab 708 zoo 709");
    int row = 0, code = 0;
    for (std::string extension; table >> extension >> code; ++row) {
        EXPECT_EQ(F::extToType(extension.c_str()), code) << extension;
        StringHelper::toupper(extension);
        EXPECT_EQ(F::checkFileType(("dir.d/a.b." + extension).c_str()), code) << extension;
        EXPECT_EQ(F::indexTypeTbl(extension), row) << extension;
    }
    EXPECT_EQ(row, 40);
    for (const char* name : {"", "zip", "photo.", "a.zip.", "a.xyz", "a.zi", "a.zipp", "a.zip "}) {
        EXPECT_EQ(F::checkFileType(name), 999) << name;
    }
    EXPECT_TRUE(F::checkFileType(nullptr) == 999 && F::extToType(nullptr) == 999);
    EXPECT_TRUE(F::extToType(".zip") == 999 && F::indexTypeTbl("") == -1 && F::indexTypeTbl(".zip") == -1);
}

void checkContent(const std::string& name, const std::string& type, const std::string& content, int code) {
    SCOPED_TRACE(testing::Message() << "name " << name << ", type " << type << ", " << testing::PrintToString(content));
    StringSource source("skipped" + content, 7);
    StringBuffer buffer(content);
    EXPECT_EQ(F::checkFileType(&buffer, name, type), code);
    EXPECT_EQ(F::checkFileType(&source.stream, name, type), code);
    EXPECT_EQ(source.stream.available(), static_cast<int>(content.size()));
}

TEST(FileTypeIdent, contentIsTriedByTheHintFirst) {
    const std::string ole = "\xD0\xCF\x11\xE0\xA1\xB1", zip = "PK\3\4\x14", avi = "RIFF    AVI ", wav = "RIFF    WAVE";
    const std::string zoo = std::string(20, ' ') + "\xDC\xA7\xC4\xFD ";
    const struct {
        std::string name, type;
        std::vector<std::pair<std::string, int>> contents;
    } cases[] = {
        // Without a hint the order of the tests decides: most magic is text as well.
        {"", "", {{"", 100}, {"<html>", 101}, {"GIF89a", 100}, {zip, 700}, {"PK\3\4", 999}, {ole, 999}}},
        {"a.doc", "", {{ole, 504}}},
        {"a.PPT", "", {{ole, 506}}},
        {"a.txt", "", {{ole, 999}, {zip, 700}, {"<html>", 100}}},
        {"a.bat", "", {{"<html>", 104}}},
        {"a.zip", "", {{"<html>", 101}}},
        {"a.fli", "", {{"    \x12\xAF", 302}, {"    \x11\xAF", 303}}},
        {"a.xyz", "application", {{zip, 999}}},
        {"photo.", "", {{zip, 700}}},
        {"photo", "image/gif", {{"GIF89a", 201}}},
        {"a.gif", "text/html", {{"GIF89a", 201}}},
        // Contents outside the rows of a content type end as text.
        {"", "text", {{"MZ", 100}}},
        {"", "image", {{"\xFF\xD8 ", 200}, {"GIF89a", 100}}},
        {"", "IMAGE/TI", {{"IIN1", 203}, {"BM ", 100}}},
        {"", "audio", {{wav, 100}}},
        {"", "audio/midi", {{"MThd", 402}, {wav, 100}}},
        {"", "audid", {{wav, 401}, {"MThd", 402}}},
        {"", "video/mpeg", {{avi, 100}}},
        {"", "video/fl", {{avi, 301}}},
        {"", "video/flc", {{avi, 100}}},
        {"", "video/quicktime", {{"    moov", 304}, {"%PDF-1", 100}}},
        {"", "application", {{"    moov", 304}, {avi, 100}, {ole, 999}, {"PO^Q`", 504}, {zoo, 709}}},
        {"", "text/html; charset=x", {{"<html>", 999}}},
        {"", "image/png", {{zip, 999}}},
    };
    for (const auto& c : cases) {
        for (const auto& [content, code] : c.contents) checkContent(c.name, c.type, content, code);
    }
    EXPECT_EQ(F::checkFileType(static_cast<BufferBase*>(nullptr), "a.txt", ""), 999);
    EXPECT_EQ(F::checkFileType(static_cast<InputStream*>(nullptr), "a.txt", ""), 999);
    // Ranges that lie outside the table, or hold nothing.
    using Range = std::pair<int, int>;
    for (const auto& [first, last] : {Range{-5, -1}, Range{40, 10000}, Range{2, 1}, Range{-5, 10000}}) {
        EXPECT_EQ(F::priorMatch(head("text"), 4, first, last), 100) << first;
    }
    EXPECT_EQ(F::priorMatch(head("text"), 4, 39, 39), 999);
    EXPECT_EQ(F::priorMatch(nullptr, 4, 0, 10000), 999);
}

TEST(FileTypeIdent, listsOfExtensions) {
    const struct {
        const char* extension;
        const char* list;
        bool inList, typeInList;
    } cases[] = {
        {"zip", "zip , rar", true, true}, {"RAR", "zip ,\trar\r\n", true, true}, {" rar ", ",,Rar", true, false},
        {"jpg", "gif,jpeg", false, true}, {"xyz", "xyz", true, false},           {"zip", "zip;rar", false, false},
        {"zip", "z ip", false, false},    {"zip", nullptr, false, false},        {"", "zip", false, false},
        {nullptr, "zip", false, false},   {"zip", ".zip", false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(F::isExtInList(c.extension, c.list), c.inList) << testing::PrintToString(c.list);
        EXPECT_EQ(F::isTypeInList(F::extToType(c.extension), c.list), c.typeInList) << testing::PrintToString(c.list);
    }
}

TEST(FileTypeProcessor, asksTheCallBackAndKeepsItsAnswer) {
    struct Echo : FileTypeProcessor::CallBack {
        int getAction(int code) override { return code; }
    } echo;
    StringSource ole("\xD0\xCF\x11\xE0\xA1\xB1"), wav("RIFF    WAVE");
    std::string none, name = "a.doc", type = "audid";
    FileTypeProcessor processor;
    EXPECT_EQ(processor.getAction(), 0);
    EXPECT_EQ(FileTypeProcessor::setCallBack(&echo), 0);
    EXPECT_EQ(processor.check(&ole.buffer), 1);
    EXPECT_EQ(processor.setFileName(name), 1);
    FileTypeProcessor::call_back = &echo;
    EXPECT_EQ(processor.check(&ole.stream), 504);
    EXPECT_EQ(processor.setFileName(none), 504);
    EXPECT_EQ(processor.check(&ole.buffer), 999);
    EXPECT_EQ(processor.setContentType(type), 999);
    EXPECT_EQ(processor.check(&wav.buffer), 401);
    EXPECT_EQ(processor.init(), 0);
    EXPECT_EQ(processor.check(&wav.buffer), 100);
    FileTypeProcessor::call_back = nullptr;
}

}  // namespace
}  // namespace ZOV_SPACE
