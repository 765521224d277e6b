// MakeCheckSum.h: check-sum records of contents, proven before they are handed out.
#ifndef VOLE_WORKSHOP_MAKE_CHECK_SUM_H
#define VOLE_WORKSHOP_MAKE_CHECK_SUM_H

#include <string>
#include <vector>

#include "ChosenContents.h"
#include "NewRecords.h"
#include "RangeSource.h"
#include "RecordNames.h"

struct CheckSumTerms {
    Anchor anchor = {};
    std::uint8_t length = 128;        // Of each range, in bytes: 4 to 255.
    std::vector<std::string> corpus;  // Paths of files that no record may match.
};

// One of each content, from two ranges that tell much and that no content in the corpus has at these places, or where
// there are no such ranges, that none has both of. Each record was found by a scan in its content, and by none in the
// corpus. False when a content has no such ranges, or something could not be read; that was noted. Throws LoadError.
bool makeCheckSumRecords(const std::vector<std::string>& files, const ContentChoice& choice, const CheckSumTerms& how,
                         const RecordNames& names, const ReadingTerms& terms, NewRecords& records);

#endif  // VOLE_WORKSHOP_MAKE_CHECK_SUM_H
