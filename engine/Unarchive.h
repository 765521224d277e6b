// Unarchive.h: the scan's step into archives.
#ifndef ENGINE_UNARCHIVE_H
#define ENGINE_UNARCHIVE_H

#include "VoleOptions.h"
#include "WorkList.h"

// Dumps an extracted content when the host asks for dumps, and, when the content is an archive in one of the formats
// that the engine knows and nested less than maxDepth deep, appends a record for each accepted entry to the work list.
// 0; VOLE_CANNOT_READ without a buffer; VOLE_SCAN_FAILED when it had to give the archive up, after logging why.
int unarchiveOneFile(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record);

#endif  // ENGINE_UNARCHIVE_H
