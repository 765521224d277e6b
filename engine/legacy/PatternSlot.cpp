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

PatternSet takeSet(PatternSlot& slot) { return {std::move(slot.paList), std::move(slot.patterns)}; }

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

PatternSlot* exchangeActive(PatternSlot* slot) {
    const Monitor guard(switchMutex);
    return activeSlot.exchange(slot, std::memory_order_acq_rel);
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
    PatternSet unused{nullptr, nullptr};
    std::unique_ptr<PatternSlot> unusedSlot;
    {
        const Monitor guard(_slot->mutex);
        if (--_slot->busyCount != 0) return;
        if (_slot->abandoned) unusedSlot.reset(_slot);
        if (_slot->replaced) unused = takeSet(*_slot);
    }
}

bool renewStandby(PatternSlot* slot) {
    PatternSet set;
    {
        const Monitor switchGuard(switchMutex);
        if (!slot) return false;
        const Monitor slotGuard(slot->mutex);
        if (slot->busyCount != 0) return false;
        slot->replaced = false;
        std::swap(static_cast<PatternSet&>(*slot), set);
    }
    return true;
}

void emptyStandby(PatternSlot* slot) {
    PatternSet unused{nullptr, nullptr};
    const Monitor guard(slot->mutex);
    slot->replaced = true;
    if (slot->busyCount == 0) unused = takeSet(*slot);
}

void activate(PatternSlot* slot) {
    if (PatternSlot* const earlier = exchangeActive(slot)) emptyStandby(earlier);
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
    exchangeActive(nullptr);  // First of all, so that no scan can acquire a slot that is about to go.
    releaseSlot(slotA);
    releaseSlot(slotB);
}
