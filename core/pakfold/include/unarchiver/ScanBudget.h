// ScanBudget: work that one scan may spend on unpacking: bytes that somebody takes, bytes which nobody looks at, and
// what an archive's own programs ask for. The archives themselves bound none of it: archives in archives are unpacked
// again and again, and an entry that is skipped may have to be decoded all the same.
//
// The scan keeps a budget and installs it for its thread; whoever spends asks for the current one. Without one, as in
// tools and tests of single parts, spending is free.
//
// Whoever does the work of a scan tells it as it goes along, so that somebody may watch: show progress, or stop it.
#ifndef PAKFOLD_UNARCHIVER_SCANBUDGET_H
#define PAKFOLD_UNARCHIVER_SCANBUDGET_H

#include <cstdint>
#include <utility>

#include "Exception.h"
#include "util/WorkScope.h"

namespace ZOV_SPACE {

// The scan has spent what it may; ends the archive at hand, whatever else could be tried.
class OutOfBudgetException : public ArchivingException {
public:
    using ArchivingException::ArchivingException;
    ~OutOfBudgetException() override;
};

// The watch wants the scan to end, now and everywhere. Whoever catches other exceptions in order to go on, passes this
// one through.
class ScanStoppedException : public OutOfBudgetException {
public:
    using OutOfBudgetException::OutOfBudgetException;
    ~ScanStoppedException() override;
};

// Told of work while it is done, on the scan's thread and often: it should be quick.
class ScanWatch {
public:
    ScanWatch() = default;
    ScanWatch(const ScanWatch&) = delete;
    ScanWatch& operator=(const ScanWatch&) = delete;
    virtual ~ScanWatch() = default;

    // So many more bytes went through; 0 for work that has none. May throw ScanStoppedException.
    virtual void onWork(std::int64_t bytes) = 0;
};

class ScanBudget {
public:
    static constexpr std::int64_t kDiscardedBytes = std::int64_t{1} << 30;
    static constexpr std::int64_t kTakenBytes = std::int64_t{4} << 30;
    // A byte from a PPM model counts as so many, taken or dropped.
    static constexpr std::int64_t kBytesPerPpmSymbol = 16;
    static constexpr std::int64_t kTrialBytes = std::int64_t{256} << 20;
    static constexpr std::int64_t kVmInstructions = 250'000'000;
    static constexpr std::int64_t kVmCodeBytes = std::int64_t{16} << 20;

    ScanBudget() = default;
    // The watch must outlive the budget.
    explicit ScanBudget(ScanWatch* watch) : _watch(watch) {}

    // Makes this budget the thread's, until the object dies.
    class Scope {
    public:
        explicit Scope(ScanBudget& budget) : _outer(std::exchange(WorkScope::ofThread().budget, &budget)) {}
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope() { WorkScope::ofThread().budget = _outer; }

    private:
        ScanBudget* _outer;
    };

    // Tells the watch, if there is one. The charging functions below, and takeVmInstructions(), tell it of work without
    // bytes, because what they charge is no count of bytes.
    static void worked(std::int64_t bytes) {
        const ScanBudget* const budget = current();
        if (budget && budget->_watch) budget->_watch->onWork(bytes);
    }

    // For output that is decoded and dropped, and for work without output that costs as much as so many bytes. Throws
    // OutOfBudgetException "Out of budget" once more than kDiscardedBytes were.
    static void chargeDiscardedBytes(std::int64_t n);
    // The same without a throw, for what shows to be dropped while something else is thrown.
    static bool takeDiscardedBytes(std::int64_t n);
    static std::int64_t discardedBytesLeft();  // A very large number without a budget.

    // For output that somebody takes. Throws OutOfBudgetException "Out of budget" once more than kTakenBytes were.
    static void chargeTakenBytes(std::int64_t n);
    static std::int64_t takenBytesLeft();  // A very large number without a budget.

    // For what is tried first because it is fast, and may turn out to be for nothing. Without a budget, or while one
    // has so many left, they are taken and it may be tried; they are returned when something came of it.
    static bool takeTrialBytes(std::int64_t n);
    static void returnTrialBytes(std::int64_t n);

    // Take `n` units and return true, or return false when fewer are left; then the rest is gone, too.
    static bool takeVmInstructions(std::int64_t n);
    static bool takeVmCodeBytes(std::int64_t n);
    // How many are left; a very large number without a budget.
    static std::int64_t vmInstructionsLeft();

private:
    static bool take(std::int64_t ScanBudget::*units, std::int64_t n);
    static std::int64_t left(const std::int64_t ScanBudget::*units);

    static ScanBudget* current() { return WorkScope::ofThread().budget; }

    ScanWatch* _watch = nullptr;
    std::int64_t _discardedBytes = kDiscardedBytes;
    std::int64_t _takenBytes = kTakenBytes;
    std::int64_t _trialBytes = kTrialBytes;
    std::int64_t _vmInstructions = kVmInstructions;
    std::int64_t _vmCodeBytes = kVmCodeBytes;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_SCANBUDGET_H
