// ScratchSet.h: sets of signatures for one command's own use.
#ifndef VOLE_WORKSHOP_SCRATCH_SET_H
#define VOLE_WORKSHOP_SCRATCH_SET_H

#include <string_view>

#include "VoleLibrary.h"

// The check-sum records of these lines, as the library loads them from a folder, which it does not have to look for
// afterwards; without any line an empty set, with which contents can be walked. Throws LoadError, also when a line is
// no record.
SignaturesHandle scratchSet(std::string_view checkSumLines);

#endif  // VOLE_WORKSHOP_SCRATCH_SET_H
