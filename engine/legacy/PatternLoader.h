// PatternLoader.h: loading a pattern directory's signatures.
#ifndef ENGINE_LEGACY_PATTERNLOADER_H
#define ENGINE_LEGACY_PATTERNLOADER_H

#include <string>

class PatternContainer;

// The path of a file in a directory, which may be given with or without a "/" at its end.
std::string pathIn(const std::string& directory, const char* name);

// Loads every regular file of the directory, in the order of its listing, into the container. 0, or one of the codes
// VOLE_ALREADY_LOADED (kept as is: for a null container), VOLE_INVALID_DIRECTORY and VOLE_INVALID_PATTERN, with their
// text in `message`. What was loaded before a failure stays in the container.
int load_pattern(PatternContainer* container, const char* directory, std::string& message);

#endif  // ENGINE_LEGACY_PATTERNLOADER_H
