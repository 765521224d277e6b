// Md5Lanes.h: the digests of several contents at once. MD5 waits for itself at each step, so one content leaves most of
// a processor idle; with AVX2 eight go side by side in the lanes of a vector.
#ifndef SIGNATURES_MD5LANES_H
#define SIGNATURES_MD5LANES_H

#include <span>

#include "Md5.h"

struct Md5Content {
    std::span<const char> bytes;
    Md5Digest digest = {};  // Set by digestTogether().
};

// Any number of contents of any lengths. Best when there are many, or few of about the same length: when fewer than
// three are left, or without AVX2, it is one after the other. Throws std::bad_alloc. Any thread.
void digestTogether(std::span<Md5Content> contents);

#endif  // SIGNATURES_MD5LANES_H
