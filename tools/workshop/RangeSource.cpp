#include "RangeSource.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "ByteOrder.h"
#include "ContentBuffer.h"
#include "Exception.h"
#include "InformativeRanges.h"
#include "VoleLibrary.h"
#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "utils/Crc.h"

namespace {

constexpr std::size_t kCheckString = 4;  // Bytes, and so the least that a range has.

// Positions in the content: where offsets count from, and the bytes to choose from.
struct Region {
    std::int64_t base;
    std::int64_t begin;
    std::int64_t end;
};

const _SECTION* sectionAt(const PeInfo2& pe, std::int64_t position) {
    for (unsigned i = 0; i < pe.sectionCount; ++i) {
        const std::int64_t begin = pe.sections[i].PointerToRawData;
        if (begin <= position && position < begin + pe.sections[i].SizeOfRawData) return &pe.sections[i];
    }
    return nullptr;
}

Region partOfPe(const PeInfo2& pe, const Anchor& anchor, std::int64_t size) {
    if (anchor.type == kFromSection && anchor.section >= pe.sectionCount) {
        throw LoadError("it has " + std::to_string(pe.sectionCount) + " sections only");
    }
    const bool isEntry = anchor.type == kFromEntryPoint;
    const std::int64_t base = isEntry ? pe.entryRaw : pe.sections[anchor.section].PointerToRawData;
    const _SECTION* const section = isEntry ? sectionAt(pe, base) : &pe.sections[anchor.section];
    const std::int64_t end = section ? std::int64_t{section->PointerToRawData} + section->SizeOfRawData : size;
    return {base, base, std::min(end, size)};
}

// The part of a content that is much the same in all of its kind.
std::int64_t headersOf(const PeInfo2& pe, bool isPe, std::int64_t size) {
    constexpr std::int64_t kMagics = 64, kPeHeaders = 1024;
    if (!isPe) return std::min(kMagics, size / 8);
    std::int64_t end = kPeHeaders;
    for (unsigned i = 0; i < pe.sectionCount; ++i) {
        if (const std::int64_t begin = pe.sections[i].PointerToRawData) end = std::min(end, begin);
    }
    return end;
}

Range rangeAt(std::span<const unsigned char> bytes, std::int64_t offset) {
    ZOV_SPACE::Iso3309Crc crc;
    crc.add(bytes.data(), static_cast<unsigned>(bytes.size()));
    return {static_cast<std::int16_t>(offset), static_cast<std::uint8_t>(bytes.size()),
            ZOV_SPACE::loadU32(bytes.data()), crc.crc()};
}

// One content that ranges are looked for in.
class Search {
public:
    Search(const vole_content& content, const Anchor& anchor, std::uint8_t length)
        : _anchor(anchor), _length(length), _buffer(content), _size(_buffer.getSize()) {
        ZOV_SPACE::IOBuffer cursor(&_buffer);
        _isPe = VoleUtil::checkPeFile(&cursor);
        _isReadablePe = VoleUtil::getPeInfo(&cursor, &_pe) == 0;
    }

    RangeSource run() {
        RangeSource found;
        found.common.target = static_cast<std::uint8_t>(_isPe ? kTargetPe : kTargetAny);
        found.common.offsetType = _anchor.type;
        found.common.offsetParameter = _anchor.section;
        const Region region = regionWithinReach();
        Region inner = region;
        if (_anchor.type <= kFromEnd) inner.begin = std::max(inner.begin, headersOf(_pe, _isPe, _size));
        found.ranges = rangesIn(inner);
        if (found.ranges.empty() && inner.begin != region.begin) found.ranges = rangesIn(region);
        return found;
    }

private:
    Region regionWithinReach() const {
        if (_anchor.type == kFromStart) return reached({0, 0, _size});
        if (_anchor.type == kFromEnd) return {_size, std::max<std::int64_t>(_size - RangeSource::kReach, 0), _size};
        if (!_isReadablePe) throw LoadError("it is no PE executable whose headers can be read");
        return reached(partOfPe(_pe, _anchor, _size));
    }

    Region reached(Region region) const {
        region.end = std::min(region.end, region.base + RangeSource::kReach + _length);
        return region;
    }

    std::vector<Range> rangesIn(const Region& region) {
        const std::int64_t room = region.end - region.begin;
        if (room < static_cast<std::int64_t>(kCheckString)) return {};
        // Wherever one lies, there is room for another one, unless the content is tiny.
        const auto most = std::max<std::int64_t>(room / 3, kCheckString);
        const auto length = static_cast<std::size_t>(std::min<std::int64_t>(_length, most));
        std::vector<unsigned char> bytes(static_cast<std::size_t>(room));
        ZOV_SPACE::IOBuffer cursor(&_buffer);
        cursor.seek(SEEK_SET, static_cast<long>(region.begin));
        const int count = VoleUtil::readn(&cursor, reinterpret_cast<char*>(bytes.data()), static_cast<int>(room));
        if (count != room) throw LoadError("the content cannot be read");
        std::vector<Range> ranges;
        for (const std::size_t at : informativeRanges(bytes, length, RangeSource::kMostRanges)) {
            const std::int64_t distance = region.begin + static_cast<std::int64_t>(at) - region.base;
            ranges.push_back(
                rangeAt(std::span(bytes).subspan(at, length), _anchor.type == kFromEnd ? -distance : distance));
        }
        return ranges;
    }

    Anchor _anchor;
    std::uint8_t _length;
    ContentBuffer _buffer;
    std::int64_t _size;
    bool _isPe;
    bool _isReadablePe;
    PeInfo2 _pe;
};

}  // namespace

std::optional<Anchor> parseAnchor(const std::string& text) {
    if (text == "start") return Anchor{kFromStart, 0};
    if (text == "end") return Anchor{kFromEnd, 0};
    if (text == "entry") return Anchor{kFromEntryPoint, 0};
    constexpr std::string_view kSection = "section:";
    if (!text.starts_with(kSection)) return std::nullopt;
    Anchor anchor{kFromSection, 0};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + kSection.size(), end, anchor.section);
    return error == std::errc() && stop == end ? std::optional(anchor) : std::nullopt;
}

CheckSumFields RangeSource::recordOf(const Range& first, const Range& second) const {
    CheckSumFields record = common;
    record.checkString = first.checkString;
    record.checkSum1 = first.checkSum;
    record.checkSum2 = second.checkSum;
    record.offset1 = first.offset;
    record.offset2 = second.offset;
    record.length1 = first.length;
    record.length2 = second.length;
    return record;
}

RangeSource rangesOf(const vole_content& content, const Anchor& anchor, std::uint8_t length) {
    try {
        return Search(content, anchor, length).run();
    } catch (const ZOV_SPACE::Exception&) {
        throw LoadError("the content cannot be read");
    }
}
