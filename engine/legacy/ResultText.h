// ResultText.h: the message texts of the result codes.
#ifndef ENGINE_LEGACY_RESULTTEXT_H
#define ENGINE_LEGACY_RESULTTEXT_H

#include <string>

// Replaces `message` by the text of a result code, empty for a code that has none. Some texts name `arg`, a path;
// a null stands as "[NULL]" in them, but as nothing in the text of VOLE_INVALID_DIRECTORY.
void resultMessage(int code, const char* arg, std::string& message);

#endif  // ENGINE_LEGACY_RESULTTEXT_H
