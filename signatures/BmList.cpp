#include "BmList.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "ByteOrder.h"
#include "Decimal.h"
#include "PatternParser.h"
#include "Raise.h"
#include "Utils.h"
#include "util/Diag.h"

using ZOV_SPACE::Exception;
using ZOV_SPACE::Utils;

namespace {

constexpr diag::Unit kDiag{"VolePattern"};

constexpr std::size_t kDigestDigits = 2 * Md5::kDigestSize;
constexpr const char* kFieldSeparator = ":";
constexpr int kNameField = 2;

constexpr std::size_t kSmallestBlock = 64;  // Records a block holds: doubled from block to block between these two.
constexpr std::size_t kLargestBlock = 65536;
constexpr std::size_t kFewestChains = 1024;

constexpr const char* kTooManyRecords = "current_sig >= total_sigs";

std::string malformed(std::string_view line) {
    return Utils::formatString("Malformed md5 pattern [%s]", std::string(line).c_str());
}

// The digest's 128 bits mixed into 64, so that digests that differ in a few bytes only still spread.
std::uint64_t hashOf(const unsigned char* digest) {
    const std::uint64_t folded = ZOV_SPACE::loadU64(digest) ^ std::rotl(ZOV_SPACE::loadU64(digest + 8), 29);
    return (folded ^ (folded >> 32)) * 0x9E3779B97F4A7C15U;
}

}  // namespace

int BmList::minLength = 10;

std::size_t BmList::bucketKey(const unsigned char* digest) {
    const unsigned char* d = digest + (minLength - 3);
    return d[0] * 211U + d[1] * 37U + d[2];
}

std::size_t BmList::chainOf(const unsigned char* digest) const {
    return static_cast<std::size_t>(hashOf(digest) >> _chainShift);
}

bool BmList::reserveNodes(std::size_t n) {
    const auto nodes = new (std::nothrow) BmPatternNode[n];
    if (!nodes) return false;
    _blocks.push_back({std::unique_ptr<BmPatternNode[]>(nodes), n, 0});
    return true;
}

void BmList::allocate(int n, std::size_t plausible) {
    if (n <= 0) return;
    const std::size_t wanted = std::min(static_cast<std::size_t>(n), plausible);
    const std::size_t spare = _blocks.empty() ? 0 : _blocks.back().capacity - _blocks.back().used;
    if (wanted > spare && !reserveNodes(wanted)) {
        kDiag.at().err("fail to allocate bmNodes");
        return;
    }
    _totalSigs = _currentSig + static_cast<std::uint32_t>(n);
}

BmPatternNode* BmList::takeNode() {
    if (_blocks.empty() || _blocks.back().used == _blocks.back().capacity) {
        const std::size_t previous = _blocks.empty() ? 0 : _blocks.back().capacity;
        if (!reserveNodes(std::clamp(2 * previous, kSmallestBlock, kLargestBlock))) return nullptr;
    }
    return &_blocks.back().nodes[_blocks.back().used];
}

bool BmList::addNewMd5PatSize(std::uint32_t size) {
    if (_lastSize == size) return true;
    try {
        _newSizes.push_back(size);
    } catch (const std::bad_alloc&) {
        kDiag.at().dbg("realloc sectionSize failed");
        return false;
    }
    _lastSize = size;
    return true;
}

std::optional<std::string> BmList::append(std::string_view line) {
    if (line.size() <= kDigestDigits || line[kDigestDigits] != ':') return malformed(line);
    const auto name = Utils::field(line, kNameField, kFieldSeparator);
    if (!name || name->empty()) return malformed(line);

    // The size enters the list even when the rest of the line is refused below.
    if (!addNewMd5PatSize(static_cast<std::uint32_t>(decimalPrefix(line.substr(kDigestDigits + 1))))) {
        kDiag.at().err("failed to addNewMd5PatSize");
        return "failed to addNewMd5PatSize";
    }
    if (_totalSigs != 0 && _currentSig >= _totalSigs) {
        kDiag.at().err("%s", kTooManyRecords);
        return kTooManyRecords;
    }
    BmPatternNode* const node = takeNode();
    if (!node) return "Alloacate bm pattern fail";
    if (auto fault = PatternParser::tryHex2str(line.substr(0, kDigestDigits), node->pattern.digest, kDigestDigits)) {
        return fault;
    }
    node->pattern.name = _names.store(*name);
    node->next = nullptr;
    ++_blocks.back().used;
    ++_currentSig;
    return std::nullopt;
}

void BmList::addString(const char* line) {
    const auto fault = append(line);
    index();
    if (fault) ZOV_SPACE::raise<Exception>(*fault);
}

void BmList::index() {
    indexSizes();
    indexRecords();
}

void BmList::indexSizes() {
    constexpr std::size_t kAhead = 16;  // Entries between a prefetch and its use.
    _sizes.reserve(_newSizes.size());
    for (auto size = _newSizes.cbegin(); size != _newSizes.cend(); ++size) {
        if (static_cast<std::size_t>(_newSizes.cend() - size) > kAhead) _sizes.prefetch(size[kAhead]);
        _sizes.insert(*size);
    }
    _newSizes.clear();
    _newSizes.shrink_to_fit();
}

void BmList::init() {
    const std::size_t wanted = std::bit_ceil(std::max<std::size_t>(_currentSig, kFewestChains));
    if (wanted <= bm_suffix.size()) return;
    try {
        if (bm_shift.empty()) bm_shift.assign(kBucketCount, 1);
        std::vector<const BmPatternNode*>(wanted, nullptr).swap(bm_suffix);
    } catch (const std::bad_alloc&) {
        ZOV_SPACE::raise<Exception>(" allocate bm_shift&bm_suffix fail ");
    }
    _chainShift = 64 - static_cast<unsigned>(std::countr_zero(wanted));
    _indexedSigs = 0;  // Every record goes into the new chains.
}

void BmList::indexRecords() {
    constexpr std::size_t kAhead = 16;
    if (_indexedSigs == _currentSig) return;
    init();
    std::size_t skip = _indexedSigs;
    for (Block& block : _blocks) {
        for (std::size_t i = std::min(skip, block.used); i < block.used; ++i) {
            if (block.used - i > kAhead) {
                __builtin_prefetch(&bm_suffix[chainOf(block.nodes[i + kAhead].pattern.digest)], 1);
            }
            addPattern(block.nodes[i]);
        }
        skip -= std::min(skip, block.used);
    }
    _indexedSigs = _currentSig;
}

void BmList::addPattern(BmPatternNode& node) {
    bm_shift[bucketKey(node.pattern.digest)] = 0;
    const BmPatternNode*& head = bm_suffix[chainOf(node.pattern.digest)];
    node.next = head;
    head = &node;
}

const BmPattern* BmList::virusFoundMD5(const unsigned char* digest) const {
    if (bm_shift.empty() || bm_shift[bucketKey(digest)] != 0) return nullptr;
    return matchPatternListMD5(digest, bm_suffix[chainOf(digest)]);
}

const BmPattern* BmList::matchPatternListMD5(const unsigned char* digest, const BmPatternNode* head) {
    for (; head; head = head->next) {
        if (std::memcmp(head->pattern.digest, digest, Md5::kDigestSize) == 0) return &head->pattern;
    }
    return nullptr;
}

void BmList::reset() {
    bm_shift = {};
    bm_suffix = {};
    _chainShift = 0;
    _currentSig = _totalSigs = _indexedSigs = 0;
    _blocks.clear();
    _newSizes.clear();
    _lastSize.reset();
    _sizes.clear();
    _names.clear();
}
