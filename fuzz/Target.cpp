#include "Target.h"

#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"
#include "utils/Crc.h"

using ZOV_SPACE::ScanBudget;

static ZOV_SPACE::Iso3309Crc outcomes;

constinit const Target* Target::_latest = nullptr;

Target::Target(const char* name, void (*run)(std::string_view)) : _name(name), _run(run), _next(_latest) {
    _latest = this;
    diag::setSink(3, [](const char*) {});
}

const Target* Target::find(std::string_view name) {
    const Target* target = _latest;
    while (target && target->_name != name) target = target->_next;
    return target;
}

void Target::operator()(std::string_view input) const {
    ScanBudget budget;
    const ScanBudget::Scope spending(budget);
    // Most of it is spent already: what a little work does not find, more of the same does not find either.
    ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - (std::int64_t{16} << 20));
    ScanBudget::takeVmInstructions(ScanBudget::kVmInstructions - 100'000);
    noteRefusal([&] { _run(input); });
}

void note(std::string_view outcome) { outcomes.add(outcome.data(), static_cast<unsigned>(outcome.size())); }

std::uint32_t noted() { return outcomes.crc(); }
