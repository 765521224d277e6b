// SetImage: a set of signatures as other processes can map it. A compiled set is its own file; of any other set a
// compiled copy is made in memory that has no name, which all workers share, and which goes with the last of them.
#ifndef ENGINE_ISOLATION_SETIMAGE_H
#define ENGINE_ISOLATION_SETIMAGE_H

#include <memory>

#include "Signatures.h"
#include "io/OwnFd.h"

namespace isolation {

// To be kept while workers are started from it. Null, with errno set, where it cannot be made. Throws std::bad_alloc.
// Any thread.
std::shared_ptr<const ZOV_SPACE::OwnFd> imageOf(const vole_signatures& set);

}  // namespace isolation

#endif  // ENGINE_ISOLATION_SETIMAGE_H
