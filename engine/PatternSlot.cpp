#include "PatternSlot.h"

#include <new>

using ZOV_SPACE::Monitor;

namespace {

PatternSlot* newSlot() {
    try {
        return std::make_unique<PatternSlot>().release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void releaseSlot(PatternSlot*& slot) {
    std::unique_ptr<PatternSlot> owner(std::exchange(slot, nullptr));
    if (!owner) return;
    bool inUse;
    {
        const Monitor guard(owner->mutex);
        inUse = owner->busyCount > 0;
        owner->abandoned = inUse;
    }
    // The last user deletes it. It may have done so by now: the pointer must not be followed any more.
    if (inUse) static_cast<void>(owner.release());
}

}  // namespace

SlotLease SlotLease::acquire() {
    const Monitor switchGuard(switchMutex);
    PatternSlot* const slot = activeSlot.load(std::memory_order_acquire);
    if (slot) {
        const Monitor slotGuard(slot->mutex);
        ++slot->busyCount;
    }
    return SlotLease(slot);
}

SlotLease::~SlotLease() {
    if (!_slot) return;
    bool last;
    {
        const Monitor guard(_slot->mutex);
        last = --_slot->busyCount == 0 && _slot->abandoned;
    }
    if (last) std::unique_ptr<PatternSlot>(_slot).reset();
}

bool renewStandby(PatternSlot* slot) {
    auto lists = std::make_unique<VirusList>();
    auto patterns = std::make_unique<PatternContainer>();
    {
        const Monitor switchGuard(switchMutex);
        if (!slot) return false;
        const Monitor slotGuard(slot->mutex);
        if (slot->busyCount != 0) return false;
        slot->paList.swap(lists);
        slot->patterns.swap(patterns);
    }
    return true;  // The old lists go here, with no lock held: that may take long.
}

bool createSlots(bool& secondFailed) {
    secondFailed = false;
    slotA = newSlot();
    if (!slotA) return false;
    slotB = newSlot();
    if (!slotB) {
        secondFailed = true;
        releaseSlot(slotA);
        return false;
    }
    slotA->partner = slotB;
    slotB->partner = slotA;
    return true;
}

void releaseSlots() {
    {
        // First of all, so that no scan can acquire a slot that is about to go.
        const Monitor guard(switchMutex);
        activeSlot.store(nullptr, std::memory_order_release);
    }
    releaseSlot(slotA);
    releaseSlot(slotB);
}
