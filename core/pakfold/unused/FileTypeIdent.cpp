// One table of tests, in the order in which they are tried, and two tables of hints, extensions and content types, that
// point into it: a hint names a range of tests to try first. All else is looking rows up.
#include "FileTypeIdent.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>

#include "Text.h"
#include "io/BufferBase.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {
namespace {

using Ident = FileTypeIdent;

struct TestRow {
    bool (*test)(const unsigned char* head, int length);
    Ident::Code code;
};

// Where several tests hold, the first one decides. Kept as is: a compound document is unknown unless a hint points at
// one of the three kinds behind it.
constexpr TestRow kTests[] = {
    {Ident::isHtmFile, Ident::kHtml},  // 0
    {Ident::isTxtFile, Ident::kPlainText},
    {Ident::isBatFile, Ident::kBatch},
    {Ident::isVbsFile, Ident::kVbScript},
    {Ident::isJsFile, Ident::kJavaScript},
    {Ident::isJpgFile, Ident::kJpeg},  // 5
    {Ident::isGifFile, Ident::kGif},
    {Ident::isPicFile, Ident::kPic},
    {Ident::isTiffFile, Ident::kTiff},
    {Ident::isPngFile, Ident::kPng},
    {Ident::isBmpFile, Ident::kBmp},  // 10
    {Ident::isIcoFile, Ident::kIco},
    {Ident::isMp3File, Ident::kMp3},
    {Ident::isWavFile, Ident::kWav},
    {Ident::isMidFile, Ident::kMidi},
    {Ident::isCorvoPatternFile, Ident::kPatternFile},  // 15
    {Ident::isMpgFile, Ident::kMpegVideo},
    {Ident::isAviFile, Ident::kAvi},
    {Ident::isFlcFile, Ident::kFlc},
    {Ident::isFliFile, Ident::kFli},
    {Ident::isMovFile, Ident::kQuickTime},  // 20
    {Ident::isPdfFile, Ident::kPdf},
    {Ident::isExeFile, Ident::kExe},
    {Ident::isComFile, Ident::kCom},
    {Ident::isChmFile, Ident::kChm},
    {Ident::isMsOfficeFile, Ident::kUnknown},  // 25
    {Ident::isDocFile, Ident::kWordDocument},
    {Ident::isDotFile, Ident::kWordTemplate},
    {Ident::isPptFile, Ident::kPowerPoint},
    {Ident::isZipFile, Ident::kZip},
    {Ident::isArcFile, Ident::kArc},  // 30
    {Ident::isArjFile, Ident::kArj},
    {Ident::isRarFile, Ident::kRar},
    {Ident::isTarFile, Ident::kTar},
    {Ident::isGzipFile, Ident::kGzip},
    {Ident::isZFile, Ident::kCompress},  // 35
    {Ident::isMscmpFile, Ident::kMsCompress},
    {Ident::isCabFile, Ident::kCab},
    {Ident::isZooFile, Ident::kZoo},
    {Ident::isNullFile, Ident::kUnknown},
};

constexpr int kTestCount = static_cast<int>(std::size(kTests));

struct ExtensionRow {
    std::string_view extension;
    int test;
};

// Kept as is: "fli" and "flc" point at each other's test.
constexpr ExtensionRow kExtensions[] = {
    {"html", 0}, {"htm", 0},  {"txt", 1},  {"bat", 2},   {"vbs", 3},  {"js", 4},   {"jpg", 5},  {"jpeg", 5},
    {"gif", 6},  {"pic", 7},  {"tiff", 8}, {"tif", 8},   {"png", 9},  {"bmp", 10}, {"ico", 11}, {"mp3", 12},
    {"wav", 13}, {"mid", 14}, {"mpg", 16}, {"mpeg", 16}, {"avi", 17}, {"fli", 18}, {"flc", 19}, {"mov", 20},
    {"pdf", 21}, {"exe", 22}, {"com", 23}, {"chm", 24},  {"doc", 26}, {"dot", 27}, {"ppt", 28}, {"zip", 29},
    {"arc", 30}, {"arj", 31}, {"rar", 32}, {"tar", 33},  {"gz", 34},  {"Z", 35},   {"cab", 37}, {"zoo", 38},
};

struct ContentTypeRow {
    std::string_view contentType;
    int firstTest;
    int lastTest;
};

// Kept as is: "audid", and ranges that begin or end one test off.
constexpr ContentTypeRow kContentTypes[] = {
    {"text/html", 0, 0},         {"text", 1, 1},         {"image/jpeg", 5, 5},    {"image/gif", 6, 6},
    {"image/tiff", 8, 8},        {"image", 5, 11},       {"audio/mpeg", 12, 12},  {"audio/midi", 14, 14},
    {"audid", 12, 14},           {"video/mpeg", 15, 16}, {"video/fli", 17, 18},   {"video/flc", 18, 19},
    {"video/quicktime", 19, 20}, {"video", 15, 20},      {"application", 20, 38},
};

template <class Row, std::size_t n, class Predicate>
int firstRow(const Row (&table)[n], Predicate predicate) {
    const auto row = std::find_if(std::begin(table), std::end(table), predicate);
    return row == std::end(table) ? -1 : static_cast<int>(row - std::begin(table));
}

int rowOfExtension(std::string_view extension) {
    return firstRow(kExtensions,
                    [=](const ExtensionRow& row) { return text::sameIgnoringCase(row.extension, extension); });
}

struct TestRange {
    int first;
    int last;
};

// The tests that the hints prefer; nothing when there is a hint and no table has it.
std::optional<TestRange> preferredTests(const std::string& suffix, const std::string& contentType) {
    if (!suffix.empty()) {
        const int row = Ident::indexTypeTbl(suffix);
        if (row < 0) return std::nullopt;
        return TestRange{kExtensions[row].test, kExtensions[row].test};
    }
    if (!contentType.empty()) {
        const int row = Ident::indexContentTbl(contentType);
        if (row < 0) return std::nullopt;
        return TestRange{kContentTypes[row].firstTest, kContentTypes[row].lastTest};
    }
    return TestRange{0, kTestCount - 1};
}

// `length` is what reading the head returned.
int identify(const char* head, int length, const std::string& fileName, const std::string& contentType) {
    if (length < 0) return Ident::kUnknown;
    const auto range = preferredTests(Ident::fileSuffix(fileName), contentType);
    if (!range) return Ident::kUnknown;
    return Ident::priorMatch(reinterpret_cast<const unsigned char*>(head), length, range->first, range->last);
}

int codeOfExtension(std::string_view extension) {
    const int row = rowOfExtension(extension);
    return row < 0 ? Ident::kUnknown : kTests[kExtensions[row].test].code;
}

template <class Predicate>
bool anyInList(const char* list, Predicate holds) {
    text::Fields fields(list, ",");
    for (std::string_view field; fields.next(field);) {
        if (!field.empty() && holds(text::trim(field))) return true;
    }
    return false;
}

}  // namespace

int FileTypeIdent::checkFileType(const char* fileName) {
    return fileName ? extToType(fileSuffix(fileName).c_str()) : kUnknown;
}

int FileTypeIdent::checkFileType(BufferBase* buffer, const std::string& fileName, const std::string& contentType) {
    if (!buffer) return kUnknown;
    char head[kHeadLength];
    const int length = buffer->read(0, head, kHeadLength);
    return identify(head, length, fileName, contentType);
}

int FileTypeIdent::checkFileType(InputStream* in, const std::string& fileName, const std::string& contentType) {
    if (!in) return kUnknown;
    char head[kHeadLength];
    in->mark(kHeadLength);
    const int length = in->read(head, kHeadLength);
    in->reset();
    return identify(head, length, fileName, contentType);
}

int FileTypeIdent::extToType(const char* extension) { return extension ? codeOfExtension(extension) : kUnknown; }

bool FileTypeIdent::isTypeInList(int code, const char* list) {
    if (code == kUnknown || !list) return false;
    return anyInList(list, [=](std::string_view piece) { return codeOfExtension(piece) == code; });
}

bool FileTypeIdent::isExtInList(const char* extension, const char* list) {
    if (!extension || !*extension || !list) return false;
    const std::string_view wanted = text::trim(extension);
    return anyInList(list, [=](std::string_view piece) { return text::sameIgnoringCase(piece, wanted); });
}

int FileTypeIdent::indexTypeTbl(const std::string& extension) { return rowOfExtension(extension); }

int FileTypeIdent::indexContentTbl(const std::string& contentType) {
    return firstRow(kContentTypes, [&](const ContentTypeRow& row) {
        return text::startsWithIgnoringCase(row.contentType, contentType);
    });
}

std::string FileTypeIdent::fileSuffix(const std::string& fileName) {
    const std::size_t dot = fileName.rfind('.');
    return dot == std::string::npos ? std::string() : fileName.substr(dot + 1);
}

int FileTypeIdent::priorMatch(const unsigned char* head, int length, int first, int last) {
    for (int i = std::max(first, 0); i < kTestCount && i <= last; ++i) {
        if (kTests[i].test(head, length)) return kTests[i].code;
    }
    for (int i = 0; i < kTestCount; ++i) {
        const bool tried = i >= first && i <= last;
        if (!tried && kTests[i].test(head, length)) return kTests[i].code;
    }
    return kUnknown;
}

}  // namespace ZOV_SPACE
