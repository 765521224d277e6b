#include "MemberSink.h"

#include <new>

#include "Exception.h"

using ZOV_SPACE::BufferBaseOutputStream;

namespace {

constexpr long kSmallestLoan = 64L << 10;

}  // namespace

MemberSink::MemberSink(ScanFace& face, WorkList& workList, _st_ArchEntry& record, WrappedLimitedBufferBase& content,
                       long announced, bool countsCheckSum)
    : BufferBaseOutputStream(&content),
      _face(face),
      _workList(workList),
      _record(record),
      _content(content),
      _announced(announced),
      _countsCheckSum(countsCheckSum) {}

MemberSink::~MemberSink() {
    if (_complete) return;
    try {
        _content.useSharedBarrier();
    } catch (const ZOV_SPACE::Exception&) {
    } catch (const std::bad_alloc&) {
    }
    _workList.recount(_record);
}

int MemberSink::write(char c) { return write(&c, 1); }

int MemberSink::write(const char* buf, int len) {
    try {
        const int written = BufferBaseOutputStream::write(buf, len);
        taken(buf, written);
        return written;
    } catch (const ZOV_SPACE::UnarchiveRatioExceed&) {
        _cut = true;
        throw;
    } catch (ZOV_SPACE::IOException& e) {
        _face.onUnseen(Unseen::io, _record, nullptr, e.toString());
        throw;
    }
}

std::span<char> MemberSink::lendSpace() {
    if (_complete) return {};
    const long size = _content.getSize();
    if (_announced > kMostInMemory || size > kMostInMemory - kSmallestLoan) return {};
    const auto space = _content.appendSpace(_announced > size ? _announced - size : kSmallestLoan);
    _lent = space.data();
    return space;
}

void MemberSink::commitSpace(long n) {
    _content.commitAppend(n);
    advance(n);
    taken(_lent, n);
}

void MemberSink::commitSummed(long n, std::uint32_t checkSum) {
    if (_bytes > 0) return commitSpace(n);
    _content.commitAppend(n);
    advance(n);
    _crc = ZOV_SPACE::Iso3309Crc(checkSum);
    counted(n);
}

void MemberSink::taken(const char* bytes, long n) {
    if (n <= 0) return;
    if (_countsCheckSum) _crc.add(bytes, static_cast<unsigned>(n));
    counted(n);
}

void MemberSink::counted(long n) {
    _bytes += n;
    _face.onUnpacked(n);
}
