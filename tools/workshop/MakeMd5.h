// MakeMd5.h: MD5 records of contents.
#ifndef VOLE_WORKSHOP_MAKE_MD5_H
#define VOLE_WORKSHOP_MAKE_MD5_H

#include <string>
#include <vector>

#include "ChosenContents.h"
#include "NewRecords.h"
#include "RecordNames.h"

// One of each content that is not empty, since empty ones never match. False when there was none in a file, or
// something could not be read; that was noted. Throws LoadError.
bool makeMd5Records(const std::vector<std::string>& files, const ContentChoice& choice, const RecordNames& names,
                    const ReadingTerms& terms, NewRecords& records);

#endif  // VOLE_WORKSHOP_MAKE_MD5_H
