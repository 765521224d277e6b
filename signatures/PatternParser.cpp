#include "PatternParser.h"

#include <array>
#include <cstring>
#include <new>

#include "Ascii.h"
#include "Raise.h"
#include "Utils.h"

using ZOV_SPACE::Exception;
using ZOV_SPACE::Utils;

namespace {

constexpr unsigned char kNotHex = 0xFF;

constexpr std::array<unsigned char, 256> makeHexValues() {
    std::array<unsigned char, 256> values{};
    for (unsigned i = 0; i < values.size(); ++i) {
        const int value = i < 128 ? ZOV_SPACE::ascii::hexValue(static_cast<char>(i)) : -1;
        values[i] = value < 0 ? kNotHex : static_cast<unsigned char>(value);
    }
    return values;
}

constexpr std::array<unsigned char, 256> kHexValues = makeHexValues();

unsigned hexValueOf(char c) { return kHexValues[static_cast<unsigned char>(c)]; }

}  // namespace

std::optional<std::string> PatternParser::tryHex2str(std::string_view hex, unsigned char* out, unsigned int length) {
    if (length % 2 != 0) return Utils::formatString("in PatternParser::hex2str, length = [%d]", length);
    if (hex.size() != length) {
        return Utils::formatString("Malformed signature :[%s] length is not %d", std::string(hex).c_str(), length);
    }
    for (unsigned i = 0; i < length; i += 2) {
        const unsigned high = hexValueOf(hex[i]);
        const unsigned low = hexValueOf(hex[i + 1]);
        if ((high | low) == kNotHex) {
            // Kept as is: the text names the chk-sum string for MD5 records too.
            return Utils::formatString("Malformed [%s] in chk-sum string .", std::string(hex).c_str());
        }
        *out++ = static_cast<unsigned char>(high * 16 + low);
    }
    return std::nullopt;
}

void PatternParser::hex2str(const char* hex, unsigned char* out, unsigned int length) {
    if (const auto fault = tryHex2str(hex, out, length)) ZOV_SPACE::raise<Exception>(*fault);
}

std::unique_ptr<unsigned char[]> PatternParser::hex2str(const char* hex) {
    const std::size_t length = std::strlen(hex);
    if (length % 2 != 0) ZOV_SPACE::raise<Exception>("Malformed signature");
    std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[length / 2 + 1]);
    if (!bytes) ZOV_SPACE::raise<Exception>("allocate mem fail");
    for (std::size_t i = 0; i < length / 2; ++i) {
        bytes[i] = static_cast<unsigned char>(hex2int(hex[2 * i]) * 16 + hex2int(hex[2 * i + 1]));
    }
    bytes[length / 2] = 0;
    return bytes;
}

short PatternParser::hex2int(char c) {
    const int value = ZOV_SPACE::ascii::hexValue(c);
    if (value < 0) ZOV_SPACE::raise<Exception>("Invalid hex string");
    return static_cast<short>(value);
}
