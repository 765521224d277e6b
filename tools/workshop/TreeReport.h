// TreeReport.h: a tree of contents for people and for programs.
//   Threads: no state.
#ifndef VOLE_WORKSHOP_TREE_REPORT_H
#define VOLE_WORKSHOP_TREE_REPORT_H

#include <ostream>

#include "ContentTree.h"
#include "FileReport.h"

// A table: a row for each content, indented by level; below it in lines of their own what is to be said of it; last the
// outcome. Names and texts are escaped for one line.
void writeTable(const ContentTree& tree, const FileReport& report, std::ostream& out);

// An object a line for each content, and one of the file: see docs/formats/workshop-json.md.
void writeJson(const ContentTree& tree, const FileReport& report, std::ostream& out);

#endif  // VOLE_WORKSHOP_TREE_REPORT_H
