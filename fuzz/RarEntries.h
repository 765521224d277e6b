// RarEntries.h: the packed data of two entries, of which the second one continues the first.
#ifndef FUZZ_RARENTRIES_H
#define FUZZ_RARENTRIES_H

#include <string_view>

// Input: three sizes of 16 bits each, little-endian: the packed one of the first entry, and what both unpack to at
// most; the first entry's data; the rest is the second one's.
void unpackEntries(std::string_view input, int version);

#endif  // FUZZ_RARENTRIES_H
