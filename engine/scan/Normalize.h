// Normalize.h: the form of a text that signatures are also matched against: its non-blank lines, trimmed, in lower
// case, each with a line feed at its end. Scripts that differ in indentation, letter case or line ends share it.
//
// Nearly every content is ruled out by its size or its first 64 bytes. What is left is read in one piece, in place
// where the buffer allows it, and written into one buffer that is large enough from the start: a line only ever becomes
// shorter, but for the line feed of a text's last line and of lines that are cut for their length.
#ifndef ENGINE_SCAN_NORMALIZE_H
#define ENGINE_SCAN_NORMALIZE_H

#include <memory>

#include "io/IOBuffer.h"
#include "io/SmartBufferBase.h"

// The normalised text of a stream; null when it is longer than 65536 bytes, does not begin like plain text (only its
// first 64 bytes are looked at) or cannot be read. Moves the cursor. Throws what reading throws.
// A line of more than 1023 bytes counts as several. A NUL ends its line's text. `failed`, which may be null, becomes
// true when there was no memory for a text that would have been normalised.
std::unique_ptr<ZOV_SPACE::SmartBufferBase> normalize(ZOV_SPACE::IOBuffer* input, bool* failed = nullptr);

#endif  // ENGINE_SCAN_NORMALIZE_H
