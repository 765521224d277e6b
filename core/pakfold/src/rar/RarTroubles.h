// RarTroubles: what kept an entry from being unpacked as its archive asks, although its decoding went on. Each kind
// counts once for an entry, however often it comes. Used by one thread at a time.
#ifndef PAKFOLD_RAR_RARTROUBLES_H
#define PAKFOLD_RAR_RARTROUBLES_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace ZOV_SPACE {

enum class RarTrouble {
    filterNotRun,       // It makes no sense, came too late or too early, or its parameters do not fit.
    filtersSpent,       // More of them wait than may.
    instructionsSpent,  // A filter's program was cut short, or not run, for the bound or the scan's budget.
    codeSpent,          // A filter's program was not prepared, for the scan's budget.
};

class RarTroubles {
public:
    void note(RarTrouble trouble) { _noted[static_cast<std::size_t>(trouble)] = true; }

    // Calls `tell` with each kind that was noted, and a text for it.
    template <class Tell>
    void forEach(Tell tell) const {
        for (std::size_t i = 0; i < _noted.size(); ++i) {
            if (_noted[i]) tell(static_cast<RarTrouble>(i), kTexts[i]);
        }
    }

private:
    static constexpr std::array<const char*, 4> kTexts{"a filter was not run", "too many filters",
                                                       "instructions for filters ran out",
                                                       "room for filters' code ran out"};

    std::array<bool, kTexts.size()> _noted{};
};

// What came of an entry besides its output.
struct RarOutcome {
    std::int64_t missingBytes = 0;  // That the data did not give, of those that were announced.
    RarTroubles troubles;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARTROUBLES_H
