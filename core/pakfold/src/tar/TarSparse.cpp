#include "tar/TarSparse.h"

#include <algorithm>
#include <memory>
#include <string>

#include "OfferedEntry.h"
#include "tar/TarExtensions.h"
#include "tar/TarHeader.h"

namespace ZOV_SPACE {
namespace {

void writeZeros(std::int64_t count, OutputStream& out) {
    static constexpr char kZeros[16384]{};
    for (std::int64_t left = count; left > 0; left -= sizeof kZeros) {
        out.write(kZeros, static_cast<int>(std::min<std::int64_t>(left, sizeof kZeros)));
    }
}

}  // namespace

TarSparseMap TarSparseMap::parse(std::string_view numbers, char separator) {
    TarSparseMap map;
    for (bool isOffset = true; !numbers.empty(); isOffset = !isOffset) {
        const std::size_t end = std::min(numbers.find(separator), numbers.size());
        const std::int64_t number = decimal(numbers.substr(0, end)).value_or(-1);
        if (isOffset) {
            map.add(number, -1);
        } else {
            map.setLastSize(number);
        }
        numbers.remove_prefix(std::min(end + 1, numbers.size()));
    }
    return map;
}

TarSparseMap TarSparseMap::readFromData(ContentBytes& bytes, std::int64_t& position, std::int64_t end) {
    constexpr std::size_t kMostBytes = TarExtensions::kMostBytes;
    const std::int64_t room = std::max<std::int64_t>(end - position, 0);
    const auto most = static_cast<std::size_t>(std::min<std::int64_t>(room, kMostBytes));
    const std::span<const char> there = bytes.at(position, most);
    const std::string_view text(there.data(), there.size());
    const std::size_t first = text.find('\n');
    const auto count = decimal(text.substr(0, first));
    TarSparseMap none;
    none.add(-1, -1);
    if (first == text.npos || !count || *count > static_cast<std::int64_t>(kMostBytes)) return none;
    std::size_t behind = first;
    for (std::int64_t line = 0; line < 2 * *count && behind != text.npos; ++line) behind = text.find('\n', behind + 1);
    if (behind == text.npos) return none;
    constexpr std::size_t kRecord = TarHeader::kRecord;
    position += static_cast<std::int64_t>((behind + kRecord) / kRecord * kRecord);
    return parse(text.substr(first + 1, behind - first), '\n');
}

void TarSparseMap::setLastSize(std::int64_t size) {
    if (_pieces.empty()) add(-1, -1);
    _pieces.back().size = size;
}

void TarSparseMap::addFields(std::span<const char> fields, std::size_t count) {
    constexpr std::size_t kField = 12;
    for (std::size_t i = 0; i < count; ++i) {
        const std::span<const char> pair = fields.subspan(2 * i * kField, 2 * kField);
        if (pair[0] == 0 && pair[kField] == 0) return;
        add(TarHeader::number(pair.first(kField)), TarHeader::number(pair.last(kField)));
    }
}

bool TarSparseMap::fits(std::int64_t fileSize, std::int64_t dataSize) const {
    std::int64_t end = 0, data = 0;
    for (const Piece& piece : _pieces) {
        if (piece.offset < end || piece.size < 0 || piece.offset > fileSize) return false;
        if (piece.size > fileSize - piece.offset || piece.size > dataSize - data) return false;
        end = piece.offset + piece.size;
        data += piece.size;
    }
    return data == dataSize;
}

void TarSparseMap::expand(BufferBase& buffer, std::int64_t start, std::int64_t fileSize, OutputStream& out) const {
    std::int64_t written = 0;
    for (const Piece& piece : _pieces) {
        writeZeros(piece.offset - written, out);
        copyRange(buffer, start, piece.size, out);
        start += piece.size;
        written = piece.offset + piece.size;
    }
    writeZeros(fileSize - written, out);
}

}  // namespace ZOV_SPACE
