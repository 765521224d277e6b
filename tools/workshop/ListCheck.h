// ListCheck: remarks on a file of lists: what the loader passes over in it, and names in it that no record has. Comes
// in the order of the document; columns count characters.
#ifndef VOLE_WORKSHOP_LIST_CHECK_H
#define VOLE_WORKSHOP_LIST_CHECK_H

#include <string>

#include "PatternContainer.h"
#include "Remark.h"

// `set` is what the names are of; null when there are no records to compare with. Throws std::bad_alloc, and what
// `take` throws.
void checkLists(const std::string& file, const PatternContainer* set, const TakeRemark& take);

#endif  // VOLE_WORKSHOP_LIST_CHECK_H
