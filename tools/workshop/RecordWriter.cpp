#include "RecordWriter.h"

#include <array>
#include <concepts>

#include "ByteOrder.h"
#include "Text.h"

namespace {

using ZOV_SPACE::text::hexOf;

// All digits of the number, most significant first.
template <std::unsigned_integral Number>
std::string digitsOf(Number number) {
    std::array<unsigned char, sizeof number> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(std::uint32_t{number} >> 8 * (bytes.size() - 1 - i));
    }
    return hexOf(bytes);
}

std::string digitsOf(std::int16_t offset) { return digitsOf(static_cast<std::uint16_t>(offset)); }

}  // namespace

std::string wordDigits(std::uint32_t word) {
    std::array<char, sizeof word> bytes;
    ZOV_SPACE::storeLittleEndian(bytes.data(), word);
    return hexOf(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

std::string md5RecordLine(std::span<const unsigned char, Md5::kDigestSize> digest, std::uint32_t size,
                          std::string_view name) {
    return hexOf(digest) + ':' + std::to_string(size) + ':' + std::string(name);
}

std::string checkSumRecordLine(const CheckSumFields& fields, std::string_view name) {
    return digitsOf(fields.target) + ':' + digitsOf(fields.offsetType) + digitsOf(fields.offsetParameter) + ':' +
           digitsOf(fields.offset1) + ':' + digitsOf(fields.length1) + ':' + wordDigits(fields.checkString) + ':' +
           wordDigits(fields.checkSum1) + ':' + digitsOf(fields.offset2) + ':' + digitsOf(fields.length2) + ':' +
           wordDigits(fields.checkSum2) + ':' + std::string(name);
}

std::string recordLine(const Record& record) {
    return record.kind == RecordKind::md5 ? md5RecordLine(record.digest, record.size, record.name)
                                          : checkSumRecordLine(record.checkSum, record.name);
}
