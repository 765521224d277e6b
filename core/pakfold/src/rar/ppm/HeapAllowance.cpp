#include "rar/ppm/HeapAllowance.h"

#include "util/WorkScope.h"

namespace ZOV_SPACE {
namespace {

// A quarter of what 32 bits address; where there are 64, as many as should share the memory anyway.
constexpr std::int64_t kBytesOfProcess = std::int64_t{sizeof(void*) == 4 ? 1 : 16} << 30;

// Never taken down: threads may still scan, or wait here, while the process exits.
union Everlasting {
    constexpr Everlasting() : allowance(kBytesOfProcess) {}
    Everlasting(const Everlasting&) = delete;
    Everlasting& operator=(const Everlasting&) = delete;
    ~Everlasting() {}  // NOLINT(modernize-use-equals-default): it would be deleted.

    HeapAllowance allowance;
};
constinit Everlasting ofAllScans;

}  // namespace

HeapAllowance& HeapAllowance::ofProcess() { return ofAllScans.allowance; }

void HeapAllowance::take(std::uint32_t bytes) {
    int& sharesOfThread = WorkScope::ofThread().heapShares;
    if (sharesOfThread == 0) {
        Monitor turn(_turn);
        Monitor guard(_mutex);
        while (_left < bytes) _returned.wait();
        _left -= bytes;
    } else {
        Monitor guard(_mutex);
        _left -= bytes;
    }
    ++sharesOfThread;
}

void HeapAllowance::giveBack(std::uint32_t bytes) {
    --WorkScope::ofThread().heapShares;
    Monitor guard(_mutex);
    _left += bytes;
    _returned.notify();
}

}  // namespace ZOV_SPACE
