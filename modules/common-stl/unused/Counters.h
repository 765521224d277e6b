// Counters.h: counting for the threads of one process. Nothing throws: results are POSIX results (0 on success) or -1.
// Every operation is safe from any thread.
//
// A caller error (a semaphore of 0, a negative start, an empty reservation) stops the process through the platform's
// assertion facility, in release builds too.
#ifndef COMMON_STL_UNUSED_COUNTERS_H
#define COMMON_STL_UNUSED_COUNTERS_H

#include "CPObject.h"
#include "Mutex.h"

namespace ZOV_SPACE {

class Semaphore : public CPObject {
public:
    // Kept as is: a semaphore cannot start closed; a count below 1 stops the process.
    explicit Semaphore(int count);
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    int wait();     // Blocks while the count is below 1, then takes one. 0.
    int trywait();  // 0, or -1 when the count is below 1.
    int post();     // 0, or -1 when the count is at its largest value.

private:
    int _count VOLE_GUARDED_BY(_mutex);
    Mutex _mutex;
    Condition _condition;
};

// Hands out ascending numbers from `initVal`, which must not be negative. After the largest one follow 0, 0, 1, 2, ...
class Sequence : public CPObject {
public:
    explicit Sequence(int initVal);
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

    int getNext();
    int getNext(unsigned int size);  // Reserves `size` numbers, at least 1, and returns the first.

private:
    int advance(unsigned int step, unsigned int nextAfterWrap);

    int _next VOLE_GUARDED_BY(_mutex);
    Mutex _mutex;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UNUSED_COUNTERS_H
