// Containers whose members the engine cannot reach, recognised so that nobody takes them for contents without any.
#ifndef PAKFOLD_UNARCHIVER_FOREIGNFORMAT_H
#define PAKFOLD_UNARCHIVER_FOREIGNFORMAT_H

#include <string_view>

#include "unarchiver/ProbedContent.h"

namespace ZOV_SPACE {

// The name of the container format that the content has, static, such as "7z"; null when it has none, or one that can
// be opened. A magic number alone is not enough where other contents begin likewise. Reads a few hundred bytes at most
// from most contents, and 1 MiB of programs. Throws what the buffer throws.
const char* foreignFormat(ProbedContent& content);
const char* foreignFormat(BufferBase& content);

// Whether the content has the format of this name, whatever else it has.
bool hasForeignFormat(ProbedContent& content, std::string_view name);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_FOREIGNFORMAT_H
