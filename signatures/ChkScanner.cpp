// What a scan does: it finds out whether the content is a PE executable, has the index name the records whose check
// string stands at its place, and tries those, newest first, as if they were all there are. A record is tried by its
// two CRC-32 values; families of records share ranges, so the last 64 results are kept.
//
// The index may be used only when every byte that a record asks for can be read. Otherwise the order counts, because a
// read that comes short ends the whole check: then every record is tried, as if there were no index.
#include <unistd.h>

#include <algorithm>

#include "ByteOrder.h"
#include "Exception.h"
#include "VoleScanner.h"
#include "io/SmartBufferBase.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"

using ZOV_SPACE::IOBuffer;

namespace {

constexpr diag::Unit kDiag{"VoleScanner"};

}  // namespace

void ChkScanner::begin(unsigned int size) {
    _size = size;
    _failed = false;
    _peState = PeState::unknown;
    _crcMemo.fill({});
}

bool ChkScanner::scan(IOBuffer* buf, unsigned int size, std::string& virusName, TARGET_TYPE target) {
    FirstMatchName first(virusName);
    return scan(buf, size, first, target);
}

bool ChkScanner::scan(IOBuffer* buf, unsigned int size, MatchVisitor& visitor, TARGET_TYPE target) {
    begin(size);
    target = targetFor(buf, target);
    kDiag.at().dbg("chk scan iob: get target code = %d.", static_cast<int>(target));
    return verifyCheckSum(buf, target, visitor);
}

bool ChkScanner::scan(int fd, unsigned int size, std::string& virusName, TARGET_TYPE target) {
    begin(size);
    try {
        const off_t end = ::lseek(fd, 0, SEEK_END);
        if (end < 0) {
            _failed = true;
            return false;
        }
        const auto view = ZOV_SPACE::SmartBufferBase::viewOf(fd, static_cast<long>(std::min<off_t>(end, INT32_MAX)));
        IOBuffer buf(view.get());
        return verifyCheckSum(&buf, targetFor(&buf, target), virusName);
    } catch (const ZOV_SPACE::ScanStoppedException&) {
        throw;
    } catch (ZOV_SPACE::Exception&) {
        _failed = true;
        return false;
    }
}

TARGET_TYPE ChkScanner::getTargetCode(IOBuffer* buf) { return VoleUtil::checkPeFile(buf) ? kTargetPe : kTargetAny; }

TARGET_TYPE ChkScanner::targetFor(IOBuffer* buf, TARGET_TYPE asked) {
    if (asked != kTargetAny) return asked;
    return VoleUtil::checkPeFile(buf, &_failed) ? kTargetPe : kTargetAny;
}

// Null when the headers cannot be read, which is remembered too.
const PeInfo2* ChkScanner::peInfo(IOBuffer* buf) {
    if (_peState == PeState::unknown) {
        _peState = VoleUtil::getPeInfo(buf, &_peInfo, &_failed) == 0 ? PeState::readable : PeState::unreadable;
    }
    return _peState == PeState::readable ? &_peInfo : nullptr;
}

// The position that offsets of this type count from.
std::optional<std::int64_t> ChkScanner::basePosition(IOBuffer* buf, std::uint8_t type, std::uint8_t parameter) {
    if (type == kFromStart) return 0;
    if (type == kFromEnd) return _size;
    const PeInfo2* const info = peInfo(buf);
    if (!info) return std::nullopt;
    if (type == kFromEntryPoint) return info->entryRaw;
    if (parameter >= info->sectionCount) return std::nullopt;
    return info->sections[parameter].PointerToRawData;
}

bool ChkScanner::getOffset(IOBuffer* buf, unsigned short target, unsigned char type, unsigned char param, short offset,
                           unsigned int* out) {
    if (type >= kOffsetTypeCount) return false;
    if (type <= kFromEnd && offset < 0) return false;
    if (type >= kFromEntryPoint && target != kTargetPe) return false;
    const auto base = basePosition(buf, type, param);
    if (!base) return false;
    const std::int64_t position = type == kFromEnd ? *base - offset : *base + offset;
    // An offset from the start may lie beyond the end; the range check that follows answers for it.
    const bool bounded = type != kFromStart;
    if (position < 0 || (bounded && position > _size)) return false;
    *out = static_cast<unsigned int>(position);
    return true;
}

bool ChkScanner::getOffset(IOBuffer* buf, const CheckSumFields* pattern, unsigned int* off1, unsigned int* off2) {
    const auto resolve = [&](short offset, unsigned int* out) {
        return getOffset(buf, pattern->target, pattern->offsetType, pattern->offsetParameter, offset, out);
    };
    return resolve(pattern->offset1, off1) && resolve(pattern->offset2, off2);
}

// Up to `length` bytes at a position, fewer when the stream ends sooner; valid until the next call.
std::span<const char> ChkScanner::bytesAt(IOBuffer* buf, std::uint32_t offset, std::size_t length) {
    // A position beyond the largest `long` would be taken for the start on a 32-bit system; no stream reaches it.
    const std::size_t due = std::min<std::size_t>(length, _size - std::min(offset, _size));
    if (offset > INT32_MAX) {
        _failed = _failed || due > 0;
        return {};
    }
    buf->seek(SEEK_SET, static_cast<long>(offset));
    const auto inMemory = buf->view();
    if (inMemory.size() >= length) return inMemory.first(length);
    if (_buffer.size() < length) _buffer.resize(length);
    const auto got =
        static_cast<std::size_t>(std::max(VoleUtil::readn(buf, _buffer.data(), static_cast<int>(length)), 0));
    _failed = _failed || got < due;
    return {_buffer.data(), got};
}

// The CRC-32 of a range; nothing when the range cannot be read whole.
std::optional<std::uint32_t> ChkScanner::crcOf(IOBuffer* buf, std::uint32_t offset, std::uint32_t length) {
    MemoEntry& memo = _crcMemo[(offset * 31 + length) % _crcMemo.size()];
    if (memo.offset != offset || memo.length != length) {
        const auto bytes = bytesAt(buf, offset, length);
        if (bytes.size() < length) {
            kDiag.at().dbg("fail to getBuffer[%08x][%08x].", offset, length);
            return std::nullopt;
        }
        _crc.reset();
        _crc.add(bytes.data(), length);
        memo = {offset, length, _crc.crc()};
    }
    return memo.crc;
}

ChkScanner::Verdict ChkScanner::compare(IOBuffer* buf, const CheckSumFields& pattern, unsigned int& off1) {
    unsigned int off2;
    if (!getOffset(buf, &pattern, &off1, &off2)) return Verdict::mismatch;
    if (off1 > _size || pattern.length1 > _size - off1) return Verdict::mismatch;
    if (off2 > _size || pattern.length2 > _size - off2) return Verdict::mismatch;

    const auto check = bytesAt(buf, off1, ChkIndex::kCheckStringSize);
    if (check.size() < ChkIndex::kCheckStringSize) return Verdict::mismatch;
    if (ZOV_SPACE::loadU32(check.data()) != pattern.checkString) return Verdict::mismatch;

    const auto crc1 = crcOf(buf, off1, pattern.length1);
    if (!crc1) return Verdict::shortRead;
    if (*crc1 != pattern.checkSum1) return Verdict::mismatch;
    const auto crc2 = crcOf(buf, off2, pattern.length2);
    if (!crc2) return Verdict::shortRead;
    return *crc2 == pattern.checkSum2 ? Verdict::match : Verdict::mismatch;
}

// As compare() says, but a match which is not enough for the visitor is passed over like a mismatch.
ChkScanner::Verdict ChkScanner::tryRecord(IOBuffer* buf, const CheckSumRecord& record, MatchVisitor& visitor) {
    unsigned int off1;
    const Verdict verdict = compare(buf, record, off1);
    if (verdict == Verdict::match && !visitor.onMatch({_list.nameOf(record), off1})) return Verdict::mismatch;
    return verdict;
}

bool ChkScanner::tryAll(IOBuffer* buf, TARGET_TYPE target, MatchVisitor& visitor) {
    const auto records = _list.records(target);
    for (auto record = records.rbegin(); record != records.rend(); ++record) {
        const Verdict verdict = tryRecord(buf, *record, visitor);
        if (verdict != Verdict::mismatch) return verdict == Verdict::match;
    }
    return false;
}

std::vector<std::uint32_t> ChkScanner::findCandidates(IOBuffer* buf, const ChkIndex& index) {
    std::vector<std::uint32_t> candidates;
    for (const ChkIndex::Plane& plane : index.planes()) {
        const auto base = basePosition(buf, plane.offsetType(), plane.offsetParameter());
        if (!base) continue;
        const auto range = plane.groupsWithin(*base, _size);
        if (range.empty()) continue;
        const std::size_t length = plane.windowLength(range);
        const auto window = bytesAt(buf, static_cast<std::uint32_t>(*base + plane.windowStart(range)), length);
        if (window.size() == length) plane.collect(range, window, candidates);
    }
    return candidates;
}

bool ChkScanner::tryCandidates(IOBuffer* buf, TARGET_TYPE target, const ChkIndex& index, MatchVisitor& visitor) {
    std::vector<std::uint32_t> candidates = findCandidates(buf, index);
    std::sort(candidates.begin(), candidates.end(), std::greater<>());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    const auto records = _list.records(target);
    for (const std::uint32_t number : candidates) {
        if (number >= records.size()) continue;  // Only where a file is damaged.
        const Verdict verdict = tryRecord(buf, records[number], visitor);
        if (verdict != Verdict::mismatch) return verdict == Verdict::match;
    }
    return false;
}

bool ChkScanner::verifyCheckSum(IOBuffer* buf, TARGET_TYPE target, std::string& virusName) {
    FirstMatchName first(virusName);
    return verifyCheckSum(buf, target, first);
}

bool ChkScanner::verifyCheckSum(IOBuffer* buf, TARGET_TYPE target, MatchVisitor& visitor) {
    if (!buf) return false;
    try {
        // Candidates may be picked ahead only where no read can come short: a short read ends the check, and records
        // that the index rules out could have met one first.
        const ChkIndex* const index = _list.indexOf(target);
        const bool wholeStream = static_cast<std::uint64_t>(buf->getSize()) == _size;
        return index && wholeStream ? tryCandidates(buf, target, *index, visitor) : tryAll(buf, target, visitor);
    } catch (const ZOV_SPACE::ScanStoppedException&) {
        throw;
    } catch (ZOV_SPACE::Exception&) {
        _failed = true;
        return false;
    }
}
