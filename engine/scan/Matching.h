// Matching.h: the scanners over one stream of bytes.
#ifndef ENGINE_SCAN_MATCHING_H
#define ENGINE_SCAN_MATCHING_H

#include "PatternContainer.h"
#include "SignatureMatch.h"
#include "io/IOBuffer.h"

struct Matched {
    bool enough = false;  // The visitor had enough.
    bool failed = false;  // Something that a signature asks about could not be read.
};

// Tells the visitor of the signatures of a set that the content has: MD5 first, then checksums. A scanner that fails
// is logged, and the other one runs. `digest` is the content's MD5 digest, if it is known already. Throws
// ScanStoppedException and std::bad_alloc.
Matched matchSignatures(const PatternContainer& patterns, ZOV_SPACE::IOBuffer& content, long size,
                        MatchVisitor& visitor, const Md5Digest* digest = nullptr);

#endif  // ENGINE_SCAN_MATCHING_H
