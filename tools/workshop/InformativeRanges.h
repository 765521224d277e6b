// InformativeRanges.h: where bytes tell most. Stateless; the same answer everywhere.
#ifndef VOLE_WORKSHOP_INFORMATIVE_RANGES_H
#define VOLE_WORKSHOP_INFORMATIVE_RANGES_H

#include <cstddef>
#include <span>
#include <vector>

// Begins of at most `most` ranges of that length that do not overlap, best first: those with the most different bytes
// and pairs of neighbours. What repeats itself too much to tell anything, such as padding, is not among them, nor is
// what begins with four equal bytes. REQUIRES: bytes.size() <= 1 << 20, 4 <= length <= 255.
std::vector<std::size_t> informativeRanges(std::span<const unsigned char> bytes, std::size_t length, std::size_t most);

#endif  // VOLE_WORKSHOP_INFORMATIVE_RANGES_H
