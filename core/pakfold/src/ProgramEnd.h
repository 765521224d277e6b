// ProgramEnd.h: how far executables reach, behind which installers and self-extractors have their archives.
#ifndef PAKFOLD_PROGRAMEND_H
#define PAKFOLD_PROGRAMEND_H

#include <cstdint>
#include <optional>

#include "ContentBytes.h"

namespace ZOV_SPACE {

// Where the last section of a program for Windows (PE) ends, or the table of sections of one for Linux (ELF); 0 for a
// program that has neither, nothing for a content that is none. May lie behind the content's end.
std::optional<std::int64_t> endOfProgram(ContentBytes& content);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_PROGRAMEND_H
