// Most tests compare a few bytes at a fixed place. Texts have no such magic: they are judged by the kinds of bytes that
// their beginning has, and HTML by its first tag.
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "FileTypeIdent.h"
#include "Text.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

using Bytes = const unsigned char*;

constexpr int kTextBytes = 200;  // That decide whether a file is text.

enum ByteClass : unsigned char { kBinary, kText, kHigh, kHighControl };

constexpr ByteClass classOf(unsigned byte) {
    if (byte >= 0xA0) return kHigh;
    if (byte >= 0x80) return byte == 0x85 ? kText : kHighControl;  // 0x85 is a next-line, or an ellipsis.
    if (byte >= ' ') return byte == 0x7F ? kBinary : kText;
    return byte == 0x1B || (byte >= '\a' && byte <= '\r' && byte != '\v') ? kText : kBinary;
}

constexpr std::array<ByteClass, 256> makeClasses() {
    std::array<ByteClass, 256> classes{};
    for (unsigned byte = 0; byte < classes.size(); ++byte) classes[byte] = classOf(byte);
    return classes;
}

constexpr std::array<ByteClass, 256> kClasses = makeClasses();

template <class Accepted>
bool beginsWithOnly(Bytes head, int length, Accepted accepted) {
    if (length <= 0) return true;
    return head && std::all_of(head, head + std::min(length, kTextBytes),
                               [=](unsigned char byte) { return accepted(kClasses[byte]); });
}

// Whether `needed` bytes are there, `magic` among them at `offset`.
// REQUIRES: needed >= offset + magic.size().
bool has(Bytes head, int length, int needed, std::string_view magic, int offset = 0) {
    return head && length >= needed && std::memcmp(head + offset, magic.data(), magic.size()) == 0;
}

// REQUIRES: as many bytes as the tag has. The tag has no byte 0, so that the comparison also ends at one.
bool hasTag(Bytes bytes, std::string_view tag) {
    return text::sameIgnoringCase({reinterpret_cast<const char*>(bytes), tag.size()}, tag);
}

bool beginsWithTag(Bytes head, int length, std::string_view tag) {
    return length >= static_cast<int>(tag.size()) && hasTag(head, tag);
}

// "<!doctype html", with any number of blanks between the words.
bool hasHtmlDoctype(Bytes head, int length) {
    if (length < 14 || !hasTag(head, "<!doctype ")) return false;
    int position = 9;
    while (position < length - 4 && head[position] == ' ') ++position;
    return hasTag(head + position, "html");
}

}  // namespace

bool FileTypeIdent::isTxtFile(Bytes head, int length) {
    return beginsWithOnly(head, length, [](ByteClass c) { return c != kBinary; });
}
bool FileTypeIdent::isPlainTxtFile(Bytes head, int length) {
    return beginsWithOnly(head, length, [](ByteClass c) { return c == kText; });
}
bool FileTypeIdent::isBatFile(Bytes head, int length) { return head && isTxtFile(head, length); }
bool FileTypeIdent::isVbsFile(Bytes head, int length) { return head && isTxtFile(head, length); }
bool FileTypeIdent::isJsFile(Bytes head, int length) { return head && isTxtFile(head, length); }
bool FileTypeIdent::isHtmFile(Bytes head, int length) {
    if (!head) return false;
    return beginsWithTag(head, length, "<html") || beginsWithTag(head, length, "<title") ||
           beginsWithTag(head, length, "<head") || hasHtmlDoctype(head, length);
}

bool FileTypeIdent::isJpgFile(Bytes head, int length) { return has(head, length, 3, "\xFF\xD8"); }
bool FileTypeIdent::isGifFile(Bytes head, int length) { return has(head, length, 4, "GIF8"); }
bool FileTypeIdent::isPicFile(Bytes head, int length) { return has(head, length, 3, "\x91\x19"); }
bool FileTypeIdent::isTiffFile(Bytes head, int length) {
    return has(head, length, 4, "IIN1") || has(head, length, 4, "MM\x00\x2A"sv) || has(head, length, 4, "II\x2A\x00"sv);
}
bool FileTypeIdent::isPngFile(Bytes head, int length) { return has(head, length, 5, "PNG", 1); }
bool FileTypeIdent::isBmpFile(Bytes head, int length) { return has(head, length, 3, "BM"); }
bool FileTypeIdent::isIcoFile(Bytes head, int length) { return has(head, length, 3, "IC"); }
bool FileTypeIdent::isMp3File(Bytes head, int length) {
    return has(head, length, 3, "\xFF") && (head[1] & 0xF0) == 0xF0;
}
bool FileTypeIdent::isWavFile(Bytes head, int length) {
    return has(head, length, 12, "RIFF") && has(head, length, 12, "WAVE", 8);
}
bool FileTypeIdent::isMidFile(Bytes head, int length) { return has(head, length, 4, "MThd"); }
bool FileTypeIdent::isCorvoPatternFile(Bytes head, int length) { return has(head, length, 4, "\x1A\xD1\xBD\x1A"); }
bool FileTypeIdent::isMpgFile(Bytes head, int length) {
    return has(head, length, 4, "\x00\x00\x01\xB3"sv) || has(head, length, 4, "\x00\x00\x01\xBA"sv);
}
bool FileTypeIdent::isAviFile(Bytes head, int length) {
    return has(head, length, 11, "RIFF") && has(head, length, 11, "AVI", 8);
}
bool FileTypeIdent::isFlcFile(Bytes head, int length) { return has(head, length, 6, "\x12\xAF", 4); }
bool FileTypeIdent::isFliFile(Bytes head, int length) { return has(head, length, 6, "\x11\xAF", 4); }
bool FileTypeIdent::isMovFile(Bytes head, int length) {
    return has(head, length, 8, "moov", 4) || has(head, length, 8, "mdat", 4);
}

bool FileTypeIdent::isExeFile(Bytes head, int length) {
    return has(head, length, 2, "MZ") || has(head, length, 2, "NE");
}
bool FileTypeIdent::isComFile(Bytes head, int length) {
    return has(head, length, 1, "\xE9") || has(head, length, 1, "\xEB");
}
bool FileTypeIdent::isPdfFile(Bytes head, int length) { return has(head, length, 5, "%PDF-"); }
bool FileTypeIdent::isChmFile(Bytes head, int length) { return has(head, length, 4, "ITSF"); }
bool FileTypeIdent::isMsOfficeFile(Bytes head, int length) {
    return has(head, length, 4, "\xFE\x37\x00\x23"sv) || has(head, length, 6, "\xD0\xCF\x11\xE0\xA1\xB1") ||
           has(head, length, 6, "\xDB\xA5\x2D\x00\x00\x00"sv);
}
bool FileTypeIdent::isDocFile(Bytes head, int length) {
    return has(head, length, 5, "PO^Q`") || isMsOfficeFile(head, length) || has(head, length, 4, "\xFFWPC");
}
bool FileTypeIdent::isDotFile(Bytes head, int length) { return isMsOfficeFile(head, length); }
bool FileTypeIdent::isPptFile(Bytes head, int length) { return isMsOfficeFile(head, length); }

bool FileTypeIdent::isZipFile(Bytes head, int length) { return has(head, length, 5, "PK\x03\x04"); }
bool FileTypeIdent::isArcFile(Bytes head, int length) { return has(head, length, 3, "\x1A"); }
bool FileTypeIdent::isArjFile(Bytes head, int length) { return has(head, length, 3, "\x60\xEA"); }
bool FileTypeIdent::isRarFile(Bytes head, int length) { return has(head, length, 5, "Rar!"); }
bool FileTypeIdent::isTarFile(Bytes head, int length) { return has(head, length, 262, "ustar", 257); }
bool FileTypeIdent::isGzipFile(Bytes head, int length) { return has(head, length, 3, "\x1F\x8B"); }
bool FileTypeIdent::isZFile(Bytes head, int length) { return has(head, length, 3, "\x1F\x9D"); }
bool FileTypeIdent::isMscmpFile(Bytes head, int length) {
    return has(head, length, 9, "SZDD\x88\xF0\x27\x33") || has(head, length, 9, "KWAJ\x88\xF0\x27\xD1");
}
bool FileTypeIdent::isCabFile(Bytes head, int length) { return has(head, length, 9, "MSCF\0\0\0\0"sv); }
bool FileTypeIdent::isZooFile(Bytes head, int length) { return has(head, length, 25, "\xDC\xA7\xC4\xFD", 20); }

bool FileTypeIdent::isNullFile(Bytes, int) { return true; }

}  // namespace ZOV_SPACE
