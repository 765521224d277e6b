// Two digits make a byte, the first one its upper half. Faults are values here and become exceptions at the surface:
// a file may have millions of malformed lines, and unwinding for each would take longer than everything else.
#include "PatternParser.h"

#include <new>
#include <utility>

#include "Ascii.h"
#include "Raise.h"
#include "Text.h"
#include "Utils.h"

using ZOV_SPACE::Exception;
using ZOV_SPACE::Utils;

namespace text = ZOV_SPACE::text;

std::string RecordFault::message() const {
    std::string result = text;
    // The number first, because the part of the line may hold anything.
    for (const auto& [mark, value] : {std::pair("%d", std::to_string(number)), {"%s", std::string(part)}}) {
        const std::size_t place = result.find(mark);
        if (place != std::string::npos) result.replace(place, 2, value);
    }
    return Utils::formatString("%s", result.c_str());
}

std::optional<RecordFault> PatternParser::tryHex2str(std::string_view hex, unsigned char* out, unsigned int length) {
    const int number = static_cast<int>(length);
    if (length % 2 != 0) return RecordFault{"in PatternParser::hex2str, length = [%d]", {}, number};
    if (hex.size() != length) return RecordFault{"Malformed signature :[%s] length is not %d", hex, number};
    if (text::decodeHex(hex, out) == length / 2) return std::nullopt;
    // Kept as is: the text names the chk-sum string for MD5 records too.
    return RecordFault{"Malformed [%s] in chk-sum string .", hex};
}

void PatternParser::hex2str(const char* hex, unsigned char* out, unsigned int length) {
    if (const auto fault = tryHex2str(hex, out, length)) ZOV_SPACE::raise<Exception>(fault->message());
}

std::unique_ptr<unsigned char[]> PatternParser::hex2str(const char* hex) {
    const std::string_view digits(hex);
    const std::size_t length = digits.size() / 2;
    if (digits.size() % 2 != 0) ZOV_SPACE::raise<Exception>("Malformed signature");
    std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[length + 1]);
    if (!bytes) ZOV_SPACE::raise<Exception>("allocate mem fail");
    if (text::decodeHex(digits, bytes.get()) != length) ZOV_SPACE::raise<Exception>("Invalid hex string");
    bytes[length] = 0;
    return bytes;
}

short PatternParser::hex2int(char c) {
    const int value = ZOV_SPACE::ascii::hexValue(c);
    if (value < 0) ZOV_SPACE::raise<Exception>("Invalid hex string");
    return static_cast<short>(value);
}
