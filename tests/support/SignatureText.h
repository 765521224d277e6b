// SignatureText.h: records of pattern files, made from the contents that they are to match.
#ifndef TESTS_SUPPORT_SIGNATURETEXT_H
#define TESTS_SUPPORT_SIGNATURETEXT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "Md5.h"
#include "utils/Crc.h"

inline std::string toHex(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char c : bytes) text.append({kDigits[c / 16], kDigits[c % 16]});
    return text;
}

inline std::string md5Of(std::string_view content) {
    std::string digest(Md5::kDigestSize, '\0');
    Md5 md5;
    md5.MD5Update(content.data(), content.size());
    md5.MD5Final(reinterpret_cast<unsigned char*>(digest.data()));
    return digest;
}

// A line of an ".hdb" file, with its newline.
inline std::string md5Record(std::string_view content, const std::string& name) {
    return toHex(md5Of(content)) + ":" + std::to_string(content.size()) + ":" + name + "\n";
}

// The CRC-32 of the bytes as a ".chk" file writes it, least significant byte first.
inline std::string crcField(std::string_view bytes) {
    ZOV_SPACE::Iso3309Crc crc;
    crc.add(bytes.data(), static_cast<unsigned int>(bytes.size()));
    const std::uint32_t sum = crc.crc();
    return toHex({reinterpret_cast<const char*>(&sum), sizeof sum});
}

// A line of a ".chk" file, with its newline, for files that are no PE executables and begin with `start`, which has 4
// to 255 bytes.
inline std::string startRecord(std::string_view start, const std::string& name) {
    return "00:0000:0000:" + toHex(std::string(1, static_cast<char>(start.size()))) + ":" + toHex(start.substr(0, 4)) +
           ":" + crcField(start) + ":0:0:" + crcField("") + ":" + name + "\n";
}

#endif  // TESTS_SUPPORT_SIGNATURETEXT_H
