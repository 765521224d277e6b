// ContentType.h: what a content is, in words, by the tests that the engine itself has.
#ifndef VOLE_WORKSHOP_CONTENT_TYPE_H
#define VOLE_WORKSHOP_CONTENT_TYPE_H

#include <string>

#include "io/BufferBase.h"

// "PE executable", which check-sum records of target 3 are for, "ZIP archive" and the like; both of a program with an
// archive in it. "data" when no test knows it. Throws what the buffer throws.
std::string typeOf(ZOV_SPACE::BufferBase& content);

#endif  // VOLE_WORKSHOP_CONTENT_TYPE_H
