// RarPacker: packs contents as the RAR 2.9 methods do, so that large archives need not be stored anywhere.
#ifndef BENCH_RARPACKER_H
#define BENCH_RARPACKER_H

#include <string>
#include <string_view>

// LZ data in blocks with tables of their own: literals, matches in a window of 4 MiB, repeated distances and matches of
// two bytes, in about the mixture that a search through chains of equal hashes finds. No filters.
std::string packRarLz(std::string_view content);

// PPM data: one block with a new model of order 6 in 16 MiB, which starts afresh when they are full.
std::string packRarPpm(std::string_view content);

#endif  // BENCH_RARPACKER_H
