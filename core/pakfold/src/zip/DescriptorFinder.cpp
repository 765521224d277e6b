#include "zip/DescriptorFinder.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "unarchiver/ScanBudget.h"
#include "zip/WholeInflate.h"

namespace ZOV_SPACE {

std::optional<ZipDescriptor> DescriptorFinder::behind(std::int64_t start) {
    try {
        return findBehind(start);
    } catch (const IOException&) {
        return std::nullopt;  // Whoever reads as far shows it.
    }
}

std::optional<ZipDescriptor> DescriptorFinder::findBehind(std::int64_t start) {
    if (start < _from || start > _next) _from = _next = start;
    const std::int64_t lookedAt = _next;
    if (!findSignature(start + InflatedAs::kMostPacked)) return std::nullopt;
    std::array<char, ZipDescriptor::kLookAhead> bytes{};
    const std::span<const char> there = _bytes.at(_next, bytes.size());
    std::copy(there.begin(), there.end(), bytes.begin());
    const auto descriptor = ZipDescriptor::read(bytes.data());
    if (!descriptor || descriptor->packedSize != _next - start) return std::nullopt;
    ScanBudget::returnTrialBytes(_next - lookedAt);
    return descriptor;
}

// Moves _next to the next signature. False if there is none before `end`.
bool DescriptorFinder::findSignature(std::int64_t end) {
    constexpr std::string_view kSignature{"PK\x07\x08"};
    while (_next < end) {
        const std::span<const char> block = _bytes.restOfBlock(_next);
        const std::string_view text(block.data(), block.size());
        const std::size_t found = text.find(kSignature);
        // The overlap is looked through again: what begins in it may end behind it.
        const std::size_t whole =
            text.size() > ContentBytes::kOverlap ? text.size() - ContentBytes::kOverlap : text.size();
        const auto passed = static_cast<std::int64_t>(std::min(found, whole));
        if (passed > 0 && !ScanBudget::takeTrialBytes(passed)) return false;
        _next += passed;
        if (found <= whole) return _next < end;
        if (text.size() < kSignature.size()) return false;
    }
    return false;
}

}  // namespace ZOV_SPACE
