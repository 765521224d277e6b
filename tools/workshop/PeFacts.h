// PeFacts.h: where in a PE file the positions are that check-sum records count from, as the scanner has them.
#ifndef VOLE_WORKSHOP_PE_FACTS_H
#define VOLE_WORKSHOP_PE_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "io/BufferBase.h"

struct PeSection {
    std::string name;  // Any bytes; empty when it has none.
    std::uint32_t virtualAddress = 0;
    std::uint32_t virtualSize = 0;
    std::uint32_t rawPosition = 0;  // In the file; of the first section as the scanner rounds it, like the next one.
    std::uint32_t rawSize = 0;
};

struct PeFacts {
    // In the file. Without it, records that count from the entry point or from a section never match.
    std::optional<std::uint32_t> entry;
    unsigned sectionCount = 0;
    std::vector<PeSection> sections;  // The first 256, which are all that records can name.
};

// Nothing when the content is no PE file. Throws std::bad_alloc.
std::optional<PeFacts> peFactsOf(ZOV_SPACE::BufferBase& content);

#endif  // VOLE_WORKSHOP_PE_FACTS_H
