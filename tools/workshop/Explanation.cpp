#include "Explanation.h"

#include <array>
#include <optional>

#include "ByteOrder.h"
#include "ContentBuffer.h"
#include "Contents.h"
#include "Exception.h"
#include "RecordWriter.h"
#include "Text.h"
#include "VoleScanner.h"
#include "io/IOBuffer.h"
#include "utils/Crc.h"

namespace {

using ZOV_SPACE::IOBuffer;

constexpr std::size_t kCheckString = 4;  // Bytes.

std::string number(std::int64_t value) { return std::to_string(value); }

// Of a list's only record.
bool verdictOf(const Record& record, IOBuffer& cursor, unsigned size) {
    std::string name;
    if (record.kind == RecordKind::md5) {
        BmList list;
        const auto fault = list.append(record.text);
        list.index();
        return !fault && Md5Scanner(list).scan(&cursor, size, name);
    }
    CheckSumList list;
    const auto fault = list.append(record.text);
    list.index();
    ChkScanner scanner(list);
    const bool found = !fault && scanner.scan(&cursor, size, name, kTargetAny);
    if (scanner.failed()) throw LoadError("the content cannot be read");
    return found;
}

// The comparison of one check-sum record with one content.
class CheckSumSteps {
public:
    CheckSumSteps(const CheckSumFields& record, IOBuffer& cursor)
        : _record(record), _cursor(cursor), _size(cursor.getSize()) {}

    Explanation run() {
        if (auto failed = targetFails()) return *failed;
        if (auto failed = structureFails()) return *failed;
        _position1 = positionOf(_record.offset1);
        _position2 = positionOf(_record.offset2);
        if (auto failed = offsetFails(MatchStep::offset1, _record.offset1, _position1)) return *failed;
        if (auto failed = offsetFails(MatchStep::offset2, _record.offset2, _position2)) return *failed;
        if (auto failed = rangeFails(MatchStep::range1, "the first range", _position1, _record.length1)) return *failed;
        if (auto failed = rangeFails(MatchStep::range2, "the second range", _position2, _record.length2))
            return *failed;
        if (auto failed = rangeFails(MatchStep::checkString, "the check string", _position1, kCheckString)) {
            return *failed;
        }
        if (auto failed = checkStringFails()) return *failed;
        if (auto failed = sumFails(MatchStep::checkSum1, _position1, _record.length1, _record.checkSum1))
            return *failed;
        if (auto failed = sumFails(MatchStep::checkSum2, _position2, _record.length2, _record.checkSum2))
            return *failed;
        return {MatchStep::none};
    }

private:
    using Failed = std::optional<Explanation>;

    Failed targetFails() {
        const TARGET_TYPE target = ChkScanner::getTargetCode(&_cursor);
        if (_record.target == target) return std::nullopt;
        Explanation e{MatchStep::target, "", number(_record.target), number(target)};
        const bool isPe = target == kTargetPe;
        if (_record.target != kTargetAny && _record.target != kTargetPe) {
            e.text = "target " + e.expected + " never matches";
        } else {
            e.text = "the record's target is " + e.expected + ", the content's is " + e.actual +
                     (isPe ? " (a PE executable)" : " (no PE executable)");
        }
        return e;
    }

    Failed structureFails() {
        if (_record.offsetType == kFromStart) return std::nullopt;
        if (_record.offsetType == kFromEnd) {
            _base = _size;
            return std::nullopt;
        }
        PeInfo2 pe;
        if (VoleUtil::getPeInfo(&_cursor, &pe) != 0) {
            return Explanation{MatchStep::structure, "entry point or sections of the PE executable cannot be read"};
        }
        if (_record.offsetType == kFromEntryPoint) {
            _base = pe.entryRaw;
        } else if (_record.offsetParameter < pe.sectionCount) {
            _base = pe.sections[_record.offsetParameter].PointerToRawData;
        } else {
            return Explanation{MatchStep::structure, "there is no section " + number(_record.offsetParameter) +
                                                         ", only " + number(pe.sectionCount) + " of them"};
        }
        return std::nullopt;
    }

    std::int64_t positionOf(std::int16_t offset) const {
        return _record.offsetType == kFromEnd ? _base - offset : _base + offset;
    }

    Failed offsetFails(MatchStep step, std::int16_t offset, std::int64_t position) const {
        const bool mayBeNegative = _record.offsetType >= kFromEntryPoint;
        if (offset < 0 && !mayBeNegative) {
            return Explanation{step, "offset " + number(offset) + " is negative, which never matches here"};
        }
        const char* const where = step == MatchStep::offset1 ? "the first range" : "the second range";
        if (position < 0) return outside(step, where, position, "in front of the content's begin");
        const bool isBeyond = _record.offsetType != kFromStart && position > _size;
        return isBeyond ? outside(step, where, position, "beyond the content's end") : std::nullopt;
    }

    Failed outside(MatchStep step, const char* what, std::int64_t position, const char* where) const {
        return Explanation{step, std::string(what) + " begins at " + number(position) + ", " + where + " (" +
                                     number(_size) + " bytes; offsets count from " + number(_base) + ")"};
    }

    Failed rangeFails(MatchStep step, const char* what, std::int64_t position, std::size_t length) const {
        if (position + static_cast<std::int64_t>(length) <= _size) return std::nullopt;
        return Explanation{step, std::string(what) + " is " + number(static_cast<std::int64_t>(length)) +
                                     " bytes from " + number(position) + ", and the content ends at " + number(_size)};
    }

    std::string bytesAt(std::int64_t position, std::size_t length) {
        std::string bytes(length, '\0');
        _cursor.seek(SEEK_SET, static_cast<long>(position));
        const int count = VoleUtil::readn(&_cursor, bytes.data(), static_cast<int>(length));
        if (count != static_cast<int>(length)) throw LoadError("the content cannot be read");
        return bytes;
    }

    Failed checkStringFails() {
        const std::string bytes = bytesAt(_position1, kCheckString);
        const std::uint32_t word = ZOV_SPACE::loadU32(bytes.data());
        if (word == _record.checkString) return std::nullopt;
        std::int64_t byte = 0;
        while ((word ^ _record.checkString) >> 8 * byte << (32 - 8) == 0) ++byte;
        Explanation e{MatchStep::checkString, "", wordDigits(_record.checkString), wordDigits(word)};
        e.text = "the check string differs at its byte " + number(byte) + ", position " + number(_position1 + byte) +
                 ": " + e.actual + ", not " + e.expected;
        return e;
    }

    Failed sumFails(MatchStep step, std::int64_t position, std::size_t length, std::uint32_t expected) {
        const std::string bytes = bytesAt(position, length);
        ZOV_SPACE::Iso3309Crc crc;
        crc.add(bytes.data(), static_cast<unsigned>(length));
        if (crc.crc() == expected) return std::nullopt;
        Explanation e{step, "", wordDigits(expected), wordDigits(crc.crc())};
        e.text = std::string("the check-sum of the ") + (step == MatchStep::checkSum1 ? "first" : "second") +
                 " range, " + number(static_cast<std::int64_t>(length)) + " bytes from " + number(position) + ", is " +
                 e.actual + ", not " + e.expected;
        return e;
    }

    const CheckSumFields& _record;
    IOBuffer& _cursor;
    std::int64_t _size;
    std::int64_t _base = 0;
    std::int64_t _position1 = 0;
    std::int64_t _position2 = 0;
};

}  // namespace

const char* nameOf(MatchStep step) {
    constexpr std::array kNames = {"size",    "digest",  "target",       "pe",          "offset-1",    "offset-2",
                                   "range-1", "range-2", "check-string", "check-sum-1", "check-sum-2", "match"};
    return kNames[static_cast<std::size_t>(step)];
}

Explanation Explainer::explainMd5(const Record& record) {
    if (_content.size == 0) return {MatchStep::size, "the content is empty, which no MD5 record matches"};
    if (_digest.empty()) _digest = md5Of(_content);
    const std::string expected = ZOV_SPACE::text::hexOf(record.digest), actual = _digest;
    if (record.size != _content.size) {
        Explanation e{MatchStep::size, "", number(record.size), number(static_cast<std::int64_t>(_content.size))};
        e.text = "the record is for " + e.expected + " bytes, the content has " + e.actual + "; the digest is " +
                 (actual == expected ? "the same, so it matches where any other record of the set is for that size"
                                     : "another one, too");
        return e;
    }
    if (actual == expected) return {MatchStep::none};
    return {MatchStep::digest, "the digest is " + actual + ", not " + expected, expected, actual};
}

Explanation Explainer::explain(const Record& record) {
    try {
        ContentBuffer buffer(_content);
        IOBuffer cursor(&buffer);
        Explanation explanation =
            record.kind == RecordKind::md5 ? explainMd5(record) : CheckSumSteps(record.checkSum, cursor).run();
        if (verdictOf(record, cursor, static_cast<unsigned>(_content.size)) != explanation.matches()) {
            throw LoadError("internal error: the scanner does not agree that the step is \"" +
                            std::string(nameOf(explanation.step)) + '"');
        }
        return explanation;
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (const ZOV_SPACE::Exception&) {
        throw LoadError("the content cannot be read");
    }
}
