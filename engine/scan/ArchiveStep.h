// ArchiveStep.h: the scan's step into archives.
#ifndef ENGINE_SCAN_ARCHIVESTEP_H
#define ENGINE_SCAN_ARCHIVESTEP_H

#include "ScanFace.h"
#include "WorkList.h"

enum class ArchiveEnd {
    done,       // Also where there was nothing to open.
    noContent,  // The record has none, and never had.
    givenUp,    // The walk failed; why has been logged and told to the face.
};

// Dumps an extracted content when the listener asks for dumps, and, when the content is an archive in one of the
// formats that the engine knows and the face opens it, appends a record for each accepted entry to the work list.
// Throws ScanStoppedException only.
ArchiveEnd unarchiveOneFile(ScanFace& face, WorkList& workList, const _st_ArchEntry& record);

#endif  // ENGINE_SCAN_ARCHIVESTEP_H
