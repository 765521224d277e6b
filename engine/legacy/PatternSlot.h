// PatternSlot: one complete, independently loaded set of signatures and lists.
//
// Two exist while the engine is initialised: one is active and serves scans, the other stands by. reload() fills the
// one that stands by, which nobody looks at, and then makes it the active one by changing a pointer, so that scans
// never wait for a load and never see half of one. Who uses the active slot counts itself in its busyCount; the count
// and the pointer are read together under switchMutex, so that a slot's count cannot rise any more once it has been
// replaced. Whoever brings the count of a replaced slot down to 0 lets go of its set: memory is held twice for no
// longer than somebody reads the old set. A slot that is still in use is not refilled.
//
// Lock order, where more than one is held: engineMutex, switchMutex, a slot's mutex. No diagnostic line is sent while
// the latter two are held, and no set is destroyed: that may take long.
#ifndef ENGINE_LEGACY_PATTERNSLOT_H
#define ENGINE_LEGACY_PATTERNSLOT_H

#include <atomic>
#include <memory>
#include <utility>

#include "Mutex.h"
#include "PatternContainer.h"
#include "VirusList.h"

// What a slot holds. The lists are null only while the slot stands by.
struct PatternSet {
    std::unique_ptr<VirusList> paList = std::make_unique<VirusList>();
    std::unique_ptr<PatternContainer> patterns = std::make_unique<PatternContainer>();
};

struct PatternSlot : PatternSet {
    PatternSlot* partner = nullptr;  // The other slot of the pair.

    ZOV_SPACE::Mutex mutex;
    int busyCount VOLE_GUARDED_BY(mutex) = 0;       // Operations that use this slot's lists.
    bool replaced VOLE_GUARDED_BY(mutex) = false;   // Stands by: the last user lets go of the set.
    bool abandoned VOLE_GUARDED_BY(mutex) = false;  // Released by the engine: the last user deletes it.
};

// The engine's state, defined in Load.cpp. activeSlot, null while nothing is loaded, is written under engineMutex and
// switchMutex, and read under the latter together with busyCount.
extern ZOV_SPACE::Mutex engineMutex;
extern ZOV_SPACE::Mutex switchMutex;
extern ZOV_SPACE::Mutex heuMutex;
extern PatternSlot* slotA VOLE_GUARDED_BY(engineMutex);
extern PatternSlot* slotB VOLE_GUARDED_BY(engineMutex);
extern std::atomic<PatternSlot*> activeSlot;

// SlotLease: keeps the active slot busy while it lives, so that its lists are neither refilled nor deleted. False when
// nothing is loaded. No lock is held in between.
class SlotLease {
public:
    static SlotLease acquire();

    SlotLease(SlotLease&& other) noexcept : _slot(std::exchange(other._slot, nullptr)) {}
    SlotLease& operator=(SlotLease&&) = delete;
    ~SlotLease();

    explicit operator bool() const { return _slot != nullptr; }
    PatternSlot* operator->() const { return _slot; }

private:
    explicit SlotLease(PatternSlot* slot) : _slot(slot) {}

    PatternSlot* _slot;
};

// Gives a slot that stands by new empty lists, to be filled; false when a scan still uses it or there is none. Throws
// std::bad_alloc with nothing changed.
bool renewStandby(PatternSlot* slot);

// Lets go of what a slot that stands by holds, at once or with its last user.
void emptyStandby(PatternSlot* slot);

// From now on scans use `slot`. What they used before is let go of with its last user.
void activate(PatternSlot* slot) VOLE_REQUIRES(engineMutex);

// Creates the pair; false when memory is short, with nothing left behind and `secondFailed` telling which it was.
bool createSlots(bool& secondFailed) VOLE_REQUIRES(engineMutex);

// Unloads: later scans find nothing. Slots in use are deleted by their last user. Never waits.
void releaseSlots() VOLE_REQUIRES(engineMutex);

#endif  // ENGINE_LEGACY_PATTERNSLOT_H
