// CrcRun.h: the inner loop of the checksums, in one version for each kind of processor.
#ifndef PAKFOLD_CRCRUN_H
#define PAKFOLD_CRCRUN_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ZOV_SPACE {

// The register after `n` further bytes.
using CrcRun = std::uint32_t (*)(std::uint32_t reg, const unsigned char* bytes, std::size_t n);

// The versions that this processor can run, the fastest one last. All give the same results.
std::vector<CrcRun> availableCrcRuns();

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_CRCRUN_H
