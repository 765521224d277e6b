// LatencyHistogram.h: how long requests took, in memory of a fixed size.
#ifndef BENCH_ICAP_LATENCY_HISTOGRAM_H
#define BENCH_ICAP_LATENCY_HISTOGRAM_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

// Buckets are 1/64 of a power of two wide, so a quantile is at most 1.6 percent too large. Never throws.
class LatencyHistogram {
public:
    void add(std::uint64_t microseconds) {
        const std::uint64_t value = std::min(microseconds, kLargest);
        ++_counts[bucketOf(value)];
        ++_total;
        _max = std::max(_max, value);
    }

    // What the given share of all requests took at most; 0 when there was none.
    double milliseconds(double share) const {
        const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(_total));
        std::uint64_t seen = 0;
        for (std::size_t bucket = 0; bucket < _counts.size(); ++bucket) {
            seen += _counts[bucket];
            if (seen > wanted) return inMilliseconds(std::min(topOf(bucket), _max));
        }
        return inMilliseconds(_max);
    }

    double maxMilliseconds() const { return inMilliseconds(_max); }

private:
    static constexpr unsigned kFineBits = 6;
    static constexpr std::uint64_t kFine = 1U << kFineBits;
    static constexpr unsigned kLargestBits = 36;  // 19 hours
    static constexpr std::uint64_t kLargest = (std::uint64_t{1} << kLargestBits) - 1;

    static std::size_t bucketOf(std::uint64_t value) {
        if (value < kFine) return static_cast<std::size_t>(value);
        const auto shift = static_cast<unsigned>(std::bit_width(value)) - kFineBits - 1;
        return static_cast<std::size_t>(kFine * shift + (value >> shift));
    }

    static std::uint64_t topOf(std::size_t bucket) {
        if (bucket < 2 * kFine) return bucket;
        const std::uint64_t shift = bucket / kFine - 1;
        return ((bucket % kFine + kFine + 1) << shift) - 1;
    }

    static double inMilliseconds(std::uint64_t microseconds) { return static_cast<double>(microseconds) / 1000.0; }

    std::array<std::uint64_t, kFine*(kLargestBits - kFineBits + 1)> _counts{};
    std::uint64_t _total = 0;
    std::uint64_t _max = 0;
};

#endif  // BENCH_ICAP_LATENCY_HISTOGRAM_H
