#include "WrappedLimitedBufferBase.h"

#include <algorithm>
#include <utility>

#include "Raise.h"
#include "util/Diag.h"

namespace {

constexpr diag::Unit kDiag{"Unarchive"};
constexpr ZOV_SPACE::ThrowUnit kUnit{"Unarchive"};
constexpr const char* kExceeded = "BufferBase exceeded size limit";

}  // namespace

WrappedLimitedBufferBase::WrappedLimitedBufferBase(std::unique_ptr<ZOV_SPACE::SmartBufferBase> inner, long limit)
    : FilteredBufferBase(inner.get()), _owned(std::move(inner)), _limit(limit > 0 ? limit : kHighestLimit) {
    _type = kTypeWrappedLimited;
}

WrappedLimitedBufferBase::~WrappedLimitedBufferBase() = default;

std::span<char> WrappedLimitedBufferBase::appendSpace(long wanted) {
    const long room = std::min(wanted, _limit - _inner->getSize());
    return room > 0 ? _owned->appendSpace(room) : std::span<char>{};
}

void WrappedLimitedBufferBase::raiseExceeded() {
    if (!std::exchange(_reported, true)) kDiag.at().err("Unarchive Exception: %s", kExceeded);
    kUnit.raise<ZOV_SPACE::UnarchiveRatioExceed>(kExceeded);
}

template <class Operation>
int WrappedLimitedBufferBase::limited(long long end, int n, Operation operation) {
    if (end <= _limit) return operation(n);
    const auto fitting = static_cast<int>(std::max<long long>(n - (end - _limit), 0));
    if (fitting > 0) operation(fitting);
    raiseExceeded();
}

int WrappedLimitedBufferBase::write(long pos, char c) { return write(pos, &c, 1); }

int WrappedLimitedBufferBase::write(long pos, const char* buf, int n) {
    const long long end = static_cast<long long>(pos) + n;
    return limited(end, n, [&](int count) { return _inner->write(pos, buf, count); });
}

int WrappedLimitedBufferBase::insert(long pos, char c) { return insert(pos, &c, 1); }

// An insertion makes the content longer by all its bytes, or by more when it begins behind the end.
int WrappedLimitedBufferBase::insert(long pos, const char* buf, int n) {
    const long long end = std::max<long long>(pos, _inner->getSize()) + n;
    return limited(end, n, [&](int count) { return _inner->insert(pos, buf, count); });
}

int WrappedLimitedBufferBase::append(char c) { return append(&c, 1); }

int WrappedLimitedBufferBase::append(const char* buf, int n) {
    const long long end = static_cast<long long>(_inner->getSize()) + n;
    return limited(end, n, [&](int count) { return _inner->append(buf, count); });
}
