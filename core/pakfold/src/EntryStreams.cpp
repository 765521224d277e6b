#include "EntryStreams.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Exception.h"
#include "IOUtils.h"
#include "Raise.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Rar"};

[[noreturn]] void raiseUnimplemented() { kUnit.raise<IOException>("Unimplemented"); }

}  // namespace

BoundedInputStream::~BoundedInputStream() = default;

int BoundedInputStream::available() { return static_cast<int>(std::min<std::int64_t>(_in->available(), _left)); }

void BoundedInputStream::close() { _in->close(); }

int BoundedInputStream::read() {
    char byte;
    return read(&byte, 1) == 1 ? static_cast<unsigned char>(byte) : -1;
}

int BoundedInputStream::read(char* buf, int len) {
    const int wanted = static_cast<int>(std::min<std::int64_t>(len, _left));
    if (wanted < 1) return 0;
    const int count = _in->read(buf, wanted);
    _left -= std::max(count, 0);
    return count;
}

long BoundedInputStream::skip(long n) {
    const long wanted = static_cast<long>(std::min<std::int64_t>(n, _left));
    if (wanted < 1) return 0;
    const long count = _in->skip(wanted);
    _left -= std::max(count, 0L);
    return count;
}

bool BoundedInputStream::skipRest() {
    while (_left > 0 && skip(std::numeric_limits<long>::max()) > 0) continue;
    return _left == 0;
}

PumpInputStream::~PumpInputStream() = default;

int PumpInputStream::available() { return _in->available(); }

void PumpInputStream::close() { _in->close(); }

int PumpInputStream::read() {
    char byte;
    return read(&byte, 1) == 1 ? static_cast<unsigned char>(byte) : -1;
}

int PumpInputStream::read(char* buf, int len) {
    if (buf == nullptr || len < 1) return 0;
    const int count = IOUtils::readFull(*_in, buf, len);
    std::memset(buf + count, 0, static_cast<std::size_t>(len - count));
    if (_copy) _copy->write(buf, len);
    return count;
}

long PumpInputStream::skip(long n) {
    if (_copy) {
        IOUtils::readAndWrite(*_in, *_copy, n);
    } else {
        _in->skip(n);
    }
    return n;
}

void PumpInputStream::mark(int) { raiseUnimplemented(); }

void PumpInputStream::reset() { raiseUnimplemented(); }

NullOutputStream::~NullOutputStream() = default;

void NullOutputStream::close() {}

int NullOutputStream::write(char) {
    ScanBudget::chargeDiscardedBytes(1);
    return 1;
}

int NullOutputStream::write(const char*, int len) {
    ScanBudget::chargeDiscardedBytes(std::max(len, 0));
    return len;
}

TakenOutputStream::~TakenOutputStream() = default;

void TakenOutputStream::close() {}

int TakenOutputStream::write(char c) { return write(&c, 1); }

int TakenOutputStream::write(const char* buf, int len) {
    charge(len);
    return _out->write(buf, len);
}

std::span<char> TakenOutputStream::lendSpace() { return _out->lendSpace(); }

void TakenOutputStream::commitSpace(long n) {
    charge(n);
    _out->commitSpace(n);
}

bool TakenOutputStream::discards() const { return _out->discards(); }

bool TakenOutputStream::takesAtOnce(std::int64_t n) const {
    return n <= ScanBudget::takenBytesLeft() && _out->takesAtOnce(n);
}

void TakenOutputStream::commitSummed(long n, std::uint32_t checkSum) {
    charge(n);
    _out->commitSummed(n, checkSum);
}

void TakenOutputStream::charge(std::int64_t n) {
    ScanBudget::chargeTakenBytes(n);
    _taken += n;
}

CutOffOutputStream::~CutOffOutputStream() = default;

void CutOffOutputStream::close() {}

int CutOffOutputStream::write(char c) { return write(&c, 1); }

int CutOffOutputStream::write(const char* buf, int len) {
    if (_out && _processor && _processor->getAction() == DecompressProcessor::kStop) _out = nullptr;
    if (!_out) return _rest.write(buf, len);
    try {
        return _out->write(buf, len);
    } catch (const UnarchiveRatioExceed&) {
        _out = nullptr;
        return len;
    }
}

}  // namespace ZOV_SPACE
