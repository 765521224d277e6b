// The formats whose archives are found and walked as any unpacker may do it, instead of by their rules alone.
#ifndef PAKFOLD_UNARCHIVER_DEEPFORMATS_H
#define PAKFOLD_UNARCHIVER_DEEPFORMATS_H

#include "io/BufferBase.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// The format in which a content is to be walked: `plain`, what VoleEngineFactory makes of its beginning, or a deep form
// of it, or of another one whose members are in the content. Such formats open buffers only. Throws what the buffer
// throws.
const ArchiveId& deepFormat(BufferBase& content, const ArchiveId& plain);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_DEEPFORMATS_H
