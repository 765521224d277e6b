// ZipHeaderView: local headers, wherever they stand.
#ifndef PAKFOLD_ZIP_DEEP_ZIPHEADERVIEW_H
#define PAKFOLD_ZIP_DEEP_ZIPHEADERVIEW_H

#include <cstdint>
#include <optional>
#include <string>

#include "ContentBytes.h"
#include "zip/deep/ZipClaim.h"

namespace ZOV_SPACE {

class ZipHeaderView {
public:
    explicit ZipHeaderView(ContentBytes& bytes) : _bytes(bytes) {}

    // Nothing when none begins there, or when the buffer ends inside of it.
    std::optional<ZipClaim> read(std::int64_t position);
    // Whether all of a header is as a writer would have it: for one that nothing else points to, and that could be any
    // bytes.
    bool isPlausible(const ZipClaim& header);
    std::string nameOf(const ZipClaim& claim);

private:
    bool isNamePlausible(const ZipClaim& header);
    bool isExtraPlausible(const ZipClaim& header);

    ContentBytes& _bytes;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPHEADERVIEW_H
