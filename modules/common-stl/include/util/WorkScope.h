// WorkScope: what belongs to the work that a thread is at, and cannot be handed down to where it is needed, because the
// operations in between have no parameter for it: the contracts of streams, archives and scanners are fixed.
//
// It is the only state that code below the engine's faces finds without being given it. Whoever begins some work sets a
// field for its duration and puts back what was there before: diag::ListenerScope and ScanBudget::Scope do.
#ifndef COMMON_STL_UTIL_WORKSCOPE_H
#define COMMON_STL_UTIL_WORKSCOPE_H

namespace diag {
class Listener;
}

namespace ZOV_SPACE {

class ScanBudget;

struct WorkScope {
    diag::Listener* listener = nullptr;  // Who hears diagnostic lines; null: nobody.
    ScanBudget* budget = nullptr;        // What unpacking spends; null: it is free.
    int heapShares = 0;                  // Of the process's allowance for heaps; see HeapAllowance.

    static WorkScope& ofThread();
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UTIL_WORKSCOPE_H
