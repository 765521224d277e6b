// ZipWays: the ways in which records say that one member's data is to be read, each once.
#ifndef PAKFOLD_ZIP_DEEP_ZIPWAYS_H
#define PAKFOLD_ZIP_DEEP_ZIPWAYS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "zip/deep/ZipMethods.h"
#include "zip/deep/ZipReading.h"

namespace ZOV_SPACE {

inline bool endsItself(unsigned method) {
    const ZipMethod* const known = findZipMethod(method);
    return known && known->endsItself;
}

struct ZipWay {
    ZipReading reading;
    const ZipClaim* claim;  // The first that says so.
};

class ZipWays {
public:
    // `bufferSize`: where all data ends, whatever a record says.
    explicit ZipWays(std::int64_t bufferSize) : _bufferSize(bufferSize) {}

    // So many bytes, which may differ from the claim's. The claim is borrowed. Data that ends itself is read as far as
    // any record allows.
    void add(const ZipClaim& claim, std::uint32_t packedSize) {
        if (packedSize == 0) return;
        ZipReading reading = ZipReading::of(claim);
        const bool isOpen = endsItself(reading.method);
        const std::int64_t left = _bufferSize - claim.dataStart;
        // One byte too many shows that the data is cut.
        reading.packedSize = static_cast<std::uint32_t>(std::min<std::int64_t>(packedSize, isOpen ? left : left + 1));
        const auto same = std::find_if(_ways.begin(), _ways.end(), [&](const ZipWay& way) {
            return way.reading.method == reading.method && (isOpen || way.reading.packedSize == reading.packedSize);
        });
        if (same == _ways.end()) {
            _ways.push_back({reading, &claim});
        } else {
            same->reading.packedSize = std::max(same->reading.packedSize, reading.packedSize);
        }
    }

    const std::vector<ZipWay>& all() const { return _ways; }

private:
    std::int64_t _bufferSize;
    std::vector<ZipWay> _ways;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPWAYS_H
