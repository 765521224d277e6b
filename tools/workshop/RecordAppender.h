// RecordAppender.h: adds records to a pattern file. Stateless; several processes may add to one file at the same time.
#ifndef VOLE_WORKSHOP_RECORD_APPENDER_H
#define VOLE_WORKSHOP_RECORD_APPENDER_H

#include <string>
#include <vector>

#include "RecordFiles.h"
#include "VoleLibrary.h"

// Adds the lines, without their line feeds, which are as recordLine() writes them and all different, behind the file's
// own; makes the file when it is missing. Under its name is the old file or the whole new one at any time, with the old
// one's mode, and owner where that may be. Records that the file has are left out. Notes that, and what it repairs.
// Throws LoadError when the file cannot be written, is not one for records of the kind, or announces fewer than it
// would have, so that a load would drop them.
void appendRecords(const std::string& file, RecordKind kind, const std::vector<std::string>& lines,
                   const NoteProblem& note);

#endif  // VOLE_WORKSHOP_RECORD_APPENDER_H
