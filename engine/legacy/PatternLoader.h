// PatternLoader.h: loading a pattern directory's signatures and lists.
#ifndef ENGINE_LEGACY_PATTERNLOADER_H
#define ENGINE_LEGACY_PATTERNLOADER_H

#include <string>

class PatternContainer;
class VirusList;

// The path of a file in a directory, which may be given with or without a "/" at its end.
std::string pathIn(const std::string& directory, const char* name);

// Loads every regular file of the directory, in the order of its listing, into the container. 0, or one of the codes
// VOLE_ALREADY_LOADED (kept as is: for a null container), VOLE_INVALID_DIRECTORY and VOLE_INVALID_PATTERN, with their
// text in `message`. What was loaded before a failure stays in the container.
int load_pattern(PatternContainer* container, const char* directory, std::string& message);

// Fills a list from "pattern_assistant.xml" in a pattern directory. 0, VOLE_INVALID_LIST when it is empty afterwards,
// VOLE_LIST_LOADED when `list` is null, VOLE_OUT_OF_MEMORY when there is no XML parser.
int loadVirusList(VirusList* list, const std::string& directory);

#endif  // ENGINE_LEGACY_PATTERNLOADER_H
