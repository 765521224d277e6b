// NoCancel: keeps the cancellation of the calling thread pending for the length of a scope. For destructors that call
// a cancellation point such as close(): a cancelled thread unwinds, and unwinding out of a destructor ends the process.
#ifndef COMMON_STL_NOCANCEL_H
#define COMMON_STL_NOCANCEL_H

#include <pthread.h>

namespace ZOV_SPACE {

class NoCancel {
public:
    NoCancel() { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_previous); }
    NoCancel(const NoCancel&) = delete;
    NoCancel& operator=(const NoCancel&) = delete;
    ~NoCancel() { ::pthread_setcancelstate(_previous, nullptr); }

private:
    int _previous = PTHREAD_CANCEL_ENABLE;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_NOCANCEL_H
