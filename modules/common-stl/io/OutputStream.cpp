#include "io/OutputStream.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "StreamSupport.h"

namespace ZOV_SPACE {

namespace {

[[noreturn]] void raiseUnimplemented() { kOutputHeaderUnit.raise<IOException>("Unimplemented"); }

}  // namespace

OutputStream::~OutputStream() = default;

void OutputStream::close() { raiseUnimplemented(); }
void OutputStream::flush() {}
int OutputStream::write(char) { raiseUnimplemented(); }

int OutputStream::write(const char* s) {
    if (s == nullptr) return 0;
    return write(s, static_cast<int>(std::min<std::size_t>(std::strlen(s), INT_MAX)));
}

int OutputStream::write(const char*, int) { raiseUnimplemented(); }

std::span<char> OutputStream::lendSpace() { return {}; }
void OutputStream::commitSpace(long) { raiseUnimplemented(); }
bool OutputStream::discards() const { return false; }
bool OutputStream::takesAtOnce(std::int64_t) const { return false; }
void OutputStream::commitSummed(long n, std::uint32_t) { commitSpace(n); }

}  // namespace ZOV_SPACE
