// PatternSlot: one complete, independently loaded set of signatures and lists. Two exist while the engine is
// initialised: one is active and serves scans, the other stands by to be refilled by reload().
//
// Lock order, where more than one is held: engineMutex, switchMutex, a slot's mutex. No diagnostic line is sent while
// the latter two are held.
#ifndef ENGINE_PATTERNSLOT_H
#define ENGINE_PATTERNSLOT_H

#include <atomic>
#include <memory>
#include <utility>

#include "Mutex.h"
#include "PatternContainer.h"
#include "VirusList.h"

struct PatternSlot {
    std::unique_ptr<VirusList> paList = std::make_unique<VirusList>();
    std::unique_ptr<PatternContainer> patterns = std::make_unique<PatternContainer>();
    PatternSlot* partner = nullptr;  // The other slot of the pair.

    ZOV_SPACE::Mutex mutex;
    int busyCount VOLE_GUARDED_BY(mutex) = 0;       // Operations that use this slot's lists.
    bool abandoned VOLE_GUARDED_BY(mutex) = false;  // Released by the engine: the last user deletes it.
};

// The engine's state, defined in Load.cpp. The pair is written under engineMutex; activeSlot, null while nothing is
// loaded, is also read together with busyCount under switchMutex.
extern ZOV_SPACE::Mutex engineMutex;
extern ZOV_SPACE::Mutex switchMutex;
extern ZOV_SPACE::Mutex heuMutex;
extern PatternSlot* slotA;
extern PatternSlot* slotB;
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

// Fills standby slots for reload(): gives the slot new empty lists and true, or false when a scan still uses it.
// Throws std::bad_alloc with nothing changed.
bool renewStandby(PatternSlot* slot);

// Creates the pair; false when memory is short, with nothing left behind and `secondFailed` telling which it was.
bool createSlots(bool& secondFailed);

// Unloads: later scans find nothing. Slots in use are deleted by their last user. Never waits.
void releaseSlots();

#endif  // ENGINE_PATTERNSLOT_H
