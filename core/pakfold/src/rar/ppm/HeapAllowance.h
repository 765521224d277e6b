// HeapAllowance: the address space that the heaps of PPM models may take together, in all threads. An archive asks for
// up to 256 MiB in a few bytes, and where addresses have 32 bits a handful of scans would leave none to each other: a
// scan waits for its heap instead of failing.
//
// No deadlock: a thread waits only while it holds none. A scan opens one archive at a time, members that are archives
// after the one they lie in, so that it has one heap at most; the exception is a scan that a host begins from within
// another one's call-back, which takes what it needs beyond the allowance.
#ifndef PAKFOLD_RAR_PPM_HEAPALLOWANCE_H
#define PAKFOLD_RAR_PPM_HEAPALLOWANCE_H

#include <cstdint>

#include "Mutex.h"

namespace ZOV_SPACE {

// Any thread may call everything.
class HeapAllowance {
public:
    explicit constexpr HeapAllowance(std::int64_t bytes) : _left(bytes), _returned(_mutex) {}

    // Process-wide, because address space is the process's. How many shares a thread holds stands in its WorkScope.
    static HeapAllowance& ofProcess();

    // Takes so many bytes as soon as they are there, in about the order of arrival. Waiting is a cancellation point.
    // REQUIRES: not more than the whole allowance.
    void take(std::uint32_t bytes);
    // REQUIRES: the thread took them.
    void giveBack(std::uint32_t bytes);

private:
    Mutex _turn;  // Whoever waits holds it, so that small requests do not overtake a large one for ever. Before _mutex.
    Mutex _mutex;
    std::int64_t _left VOLE_GUARDED_BY(_mutex);  // Negative beyond the allowance.
    Condition _returned;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_HEAPALLOWANCE_H
