#include "RecordFilter.h"

#include <fnmatch.h>

#include <algorithm>

bool RecordFilter::fits(const Record& record) const {
    const bool isMd5 = record.kind == RecordKind::md5;
    if (kind && *kind != record.kind) return false;
    if (size && (!isMd5 || record.size != *size)) return false;
    if (!digest.empty() && (!isMd5 || !std::equal(digest.begin(), digest.end(), record.digest))) return false;
    if (record.text.find(text) == std::string_view::npos) return false;
    return name.empty() || ::fnmatch(name.c_str(), std::string(record.name).c_str(), FNM_CASEFOLD) == 0;
}
