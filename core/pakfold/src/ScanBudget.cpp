#include "unarchiver/ScanBudget.h"

#include <limits>

#include "Raise.h"

namespace ZOV_SPACE {

static constexpr ThrowUnit kUnit{"ScanBudget"};

OutOfBudgetException::~OutOfBudgetException() = default;
ScanStoppedException::~ScanStoppedException() = default;

bool ScanBudget::take(std::int64_t ScanBudget::*units, std::int64_t n) {
    ScanBudget* const budget = current();
    if (!budget) return true;
    std::int64_t& left = budget->*units;
    const bool enough = n <= left;
    left = enough ? left - n : 0;
    return enough;
}

std::int64_t ScanBudget::left(const std::int64_t ScanBudget::*units) {
    const ScanBudget* const budget = current();
    return budget ? budget->*units : std::numeric_limits<std::int64_t>::max();
}

static void require(bool enough) {
    if (!enough) kUnit.raise<OutOfBudgetException>("Out of budget");
}

void ScanBudget::chargeDiscardedBytes(std::int64_t n) {
    require(takeDiscardedBytes(n));
    worked(0);
}

void ScanBudget::chargeTakenBytes(std::int64_t n) {
    require(take(&ScanBudget::_takenBytes, n));
    worked(0);
}

bool ScanBudget::takeDiscardedBytes(std::int64_t n) { return take(&ScanBudget::_discardedBytes, n); }

std::int64_t ScanBudget::discardedBytesLeft() { return left(&ScanBudget::_discardedBytes); }

std::int64_t ScanBudget::takenBytesLeft() { return left(&ScanBudget::_takenBytes); }

bool ScanBudget::takeTrialBytes(std::int64_t n) {
    return n <= left(&ScanBudget::_trialBytes) && take(&ScanBudget::_trialBytes, n);
}

void ScanBudget::returnTrialBytes(std::int64_t n) {
    if (ScanBudget* const budget = current()) budget->_trialBytes += n;
}

bool ScanBudget::takeVmInstructions(std::int64_t n) {
    worked(0);
    return take(&ScanBudget::_vmInstructions, n);
}

bool ScanBudget::takeVmCodeBytes(std::int64_t n) { return take(&ScanBudget::_vmCodeBytes, n); }

std::int64_t ScanBudget::vmInstructionsLeft() { return left(&ScanBudget::_vmInstructions); }

}  // namespace ZOV_SPACE
