#include "Matching.h"

#include "Exception.h"
#include "VoleScanner.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"

namespace {

using ZOV_SPACE::Exception;
using ZOV_SPACE::IOBuffer;

constexpr diag::Unit kDiag{"pattern_assistant"};

void matchMd5(const BmList& list, IOBuffer& content, unsigned int size, const Md5Digest* digest, MatchVisitor& visitor,
              Matched& matched) {
    if (list.count() == 0) return;
    try {
        Md5Scanner scanner(list);
        matched.enough = digest ? scanner.scan(*digest, size, visitor) : scanner.scan(&content, size, visitor);
    } catch (const ZOV_SPACE::ScanStoppedException&) {
        throw;
    } catch (Exception& e) {
        kDiag.at().err("catch Exception from md5Scanner: %s", e.toString());
        matched.failed = true;
    }
}

void matchCheckSums(const CheckSumList& list, IOBuffer& content, unsigned int size, MatchVisitor& visitor,
                    Matched& matched) {
    if (list.count() == 0) return;
    try {
        ChkScanner scanner(list);
        matched.enough = scanner.scan(&content, size, visitor, kTargetAny);
        matched.failed = matched.failed || scanner.failed();
    } catch (const ZOV_SPACE::ScanStoppedException&) {
        throw;
    } catch (Exception& e) {
        kDiag.at().err("catch Exception from chkScanner: %s", e.toString());
        matched.failed = true;
    }
}

}  // namespace

Matched matchSignatures(const PatternContainer& patterns, IOBuffer& content, long size, MatchVisitor& visitor,
                        const Md5Digest* digest) {
    const auto bytes = static_cast<unsigned int>(size);
    Matched matched;
    matchMd5(patterns.md5List(), content, bytes, digest, visitor, matched);
    if (!matched.enough) matchCheckSums(patterns.checkSumList(), content, bytes, visitor, matched);
    return matched;
}
