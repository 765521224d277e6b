// How records are found: there are at least as many chains as records, and their number is a power of two. The highest
// bits of a digest's hash choose the chain, and the five bits below those one of 32 bits in the chain's head. A digest
// whose bit is not set there is none of the chain's, so most lookups of clean contents end after one access to memory.
// Digests spread well by themselves; the mixing below is for pattern files whose digests differ in few bytes. When the
// signatures are few, the bits by bucket key, three bytes of the digest, answer before that from the processor's cache.
//
// How sizes are kept: repeats of the one before are dropped on the way in, as files sorted by size have them; the rest
// waits in a queue until index() can make room for all at once.
//
// How two threads share the work: what is added is handed over in batches, each of which has all that entering it takes
// to know; the blocks that its records lie in do not move. Links and tables depend on the records, their order and
// their number only, so it makes no difference who entered which.
//
// Both tables are far larger than the caches when they are filled, so the entry that comes 16 later is fetched ahead.
#include "BmList.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "ByteOrder.h"
#include "PatternLineReader.h"
#include "PlainLine.h"
#include "Raise.h"
#include "RecordText.h"
#include "SecondThread.h"
#include "util/Diag.h"

using ZOV_SPACE::Exception;

namespace {

constexpr diag::Unit kDiag{"VolePattern"};

constexpr std::size_t kDigestDigits = 2 * Md5::kDigestSize;
constexpr std::size_t kFewestChains = 1024;
static_assert(PatternLineReader::kSlack >= plain::kSlack);

constexpr std::uint32_t kPrefetchAhead = 16;  // Entries between a prefetch and its use.

constexpr const char* kTooManyRecords = "current_sig >= total_sigs";

// Such a record is sound: without it the list would be incomplete, so it must not be passed over like a malformed one.
[[noreturn]] void raiseOutOfMemory(const char* text) { ZOV_SPACE::raise<ZOV_SPACE::OutOfMemoryException>(text); }

// The digest's 128 bits mixed into 64, so that digests that differ in a few bytes only still spread. The highest bits
// choose the chain, the next five the bit in its filter.
std::uint64_t hashOf(const unsigned char* digest) {
    const std::uint64_t folded = ZOV_SPACE::loadU64(digest) ^ std::rotl(ZOV_SPACE::loadU64(digest + 8), 29);
    return (folded ^ (folded >> 32)) * 0x9E3779B97F4A7C15U;
}

// The chain, of 2^(64 - chainShift), that the hash belongs to.
std::size_t chainOf(std::uint64_t hash, unsigned chainShift) { return static_cast<std::size_t>(hash >> chainShift); }

std::size_t chainsFor(std::size_t records) { return std::bit_ceil(std::max(records, kFewestChains)); }

std::uint32_t filterBit(std::uint64_t hash, unsigned chainShift) {
    return std::uint32_t{1} << ((hash >> (chainShift - 5)) & 31);
}

}  // namespace

std::size_t BmList::bucketKey(const unsigned char* digest) {
    const unsigned char* d = digest + (minLength - 3);
    return d[0] * 211U + d[1] * 37U + d[2];
}

// Makes room for `n` more records. Blocks stay untouched until they are filled, so room costs no memory yet.
bool BmList::reserveRecords(std::size_t n) {
    const std::size_t blocksBefore = _starts.size();
    try {
        while (_starts.size() * kBlockRecords < _currentSig + n) {
            _starts.push_back(_blocks.emplace_back(kBlockRecords).data());
        }
        return true;
    } catch (const std::bad_alloc&) {
        _blocks.resize(blocksBefore);
        _starts.resize(blocksBefore);
        return false;
    }
}

void BmList::allocate(int n, std::size_t plausible) {
    if (n <= 0) return;
    if (!reserveRecords(std::min(static_cast<std::size_t>(n), plausible))) {
        kDiag.at().err("fail to allocate bmNodes");
        return;
    }
    _totalSigs = _currentSig + static_cast<std::uint32_t>(n);
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

std::optional<RecordFault> BmList::append(std::string_view line) {
    Md5Text fields;
    if (auto fault = splitMd5Record(line, fields)) return fault;

    // The size enters the list even when the rest of the line is refused below.
    if (!addNewMd5PatSize(fields.size)) {
        kDiag.at().err("failed to addNewMd5PatSize");
        raiseOutOfMemory("failed to addNewMd5PatSize");
    }
    if (_totalSigs != 0 && _currentSig >= _totalSigs) {
        kDiag.at().err("%s", kTooManyRecords);
        return RecordFault{kTooManyRecords, {}, 0, RecordFault::Kind::unannounced};
    }
    if (!reserveRecords(1)) raiseOutOfMemory("Alloacate bm pattern fail");
    BmRecord& record = ownRecord(_currentSig);
    if (auto fault = decodeMd5Digits(fields.digits, record.digest)) return fault;
    try {
        record.name = _names.store(fields.name);
    } catch (const std::bad_alloc&) {
        raiseOutOfMemory("Alloacate patternNode fail");
    }
    ++_currentSig;
    return std::nullopt;
}

std::size_t BmList::appendPlain(std::string_view text) {
    constexpr std::size_t kSizeField = kDigestDigits + 1;
    const bool hasRoom = _currentSig < _starts.size() * kBlockRecords && (_totalSigs == 0 || _currentSig < _totalSigs);
    char* const copy = _names.room(PatternLineReader::kMaxLine + plain::kSlack);
    if (!plain::kAvailable || !hasRoom || !copy || text.size() < kMinLineLength) return 0;
    text = text.substr(0, PatternLineReader::kMaxLine);
    BmRecord& record = ownRecord(_currentSig);
    if (!plain::decodeDigest(text.data(), record.digest) || text[kDigestDigits] != ':') return 0;
    const char* name = text.data() + kSizeField;
    const plain::Number size = plain::takeSize(name);
    if (size.digits == 0) return 0;
    const std::size_t length = plain::copyName(name, text.data() + text.size(), copy);
    if (length == 0 || !addNewMd5PatSize(size.value)) return 0;
    record.name = _names.keep(length);
    ++_currentSig;
    return static_cast<std::size_t>(name + length + 1 - text.data());
}

void BmList::addString(const char* line) {
    const auto fault = append(line);
    index();
    if (fault) ZOV_SPACE::raise<Exception>(fault->message());
}

void BmList::index() {
    if (_second) {
        SecondThread& second = *_second;
        handOver(_currentSig);
        _second = nullptr;
        second.finish();
        // Not that both take memory at once; and none at all where there are no records after all.
        if (_currentSig == 0 || chainsFor(_currentSig) != bm_suffix.size()) dropChains();
    }
    enterSizes(_newSizes);
    _newSizes.clear();
    _newSizes.shrink_to_fit();
    indexRecords();
}

void BmList::finish() {
    index();
    try {
        _sizes.fit();
    } catch (const std::bad_alloc&) {
        // Then it stays as it is.
    }
}

void BmList::handOver(std::uint64_t expected) {
    const auto records =
        std::max<std::size_t>(static_cast<std::size_t>(std::min(expected, kMostExpected)), _currentSig);
    if (_handedOver == 0) _second->post([this, records] { expect(records); });
    do {
        const auto batch = std::make_shared<Batch>();
        batch->records = blockFrom(_handedOver);
        batch->first = _handedOver;
        batch->sizes = std::exchange(_newSizes, {});
        _second->post([this, batch] { enter(*batch); });
        _handedOver += static_cast<std::uint32_t>(batch->records.size());
    } while (_handedOver < _currentSig);
}

// Sets room aside, as much as index() would if it came to that many records. What is wrong with that is put right in
// the end: what is short grows, and chains of another number are made anew.
void BmList::expect(std::size_t records) {
    try {
        _sizes.reserve(records);
        init(chainsFor(records));
    } catch (const std::bad_alloc&) {
        // Then what is entered has to do without.
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
    }
}

void BmList::enter(const Batch& batch) {
    enterSizes(batch.sizes);
    if (bm_suffix.empty()) return;
    enterRecords(batch.records, batch.first);
    _indexedSigs = batch.first + static_cast<std::uint32_t>(batch.records.size());
}

void BmList::enterSizes(const Sizes& sizes) {
    _sizes.reserve(sizes.size());
    for (auto size = sizes.cbegin(); size != sizes.cend(); ++size) {
        if (sizes.cend() - size > std::ptrdiff_t{kPrefetchAhead}) _sizes.prefetch(size[kPrefetchAhead]);
        _sizes.insert(*size);
    }
}

void BmList::dropChains() {
    bm_shift = {};
    bm_suffix = {};
    _indexedSigs = 0;
}

// Has so many chains, which hold no record then unless there were as many before.
void BmList::init(std::size_t wanted) {
    if (wanted == bm_suffix.size()) return;
    try {
        if (bm_shift.empty()) bm_shift = Table<std::uint32_t>(kBucketWords);
        bm_suffix = Chains(wanted);
    } catch (const std::bad_alloc&) {
        raiseOutOfMemory(" allocate bm_shift&bm_suffix fail ");
    }
    _chainShift = 64 - static_cast<unsigned>(std::countr_zero(wanted));
    _indexedSigs = 0;
}

void BmList::indexRecords() {
    if (_indexedSigs == _currentSig) return;
    init(chainsFor(_currentSig));
    while (_indexedSigs < _currentSig) {
        const auto records = blockFrom(_indexedSigs);
        enterRecords(records, _indexedSigs);
        _indexedSigs += static_cast<std::uint32_t>(records.size());
    }
}

// The records from that one on that lie behind it.
std::span<BmRecord> BmList::blockFrom(std::uint32_t first) {
    if (first == _currentSig) return {};
    const std::size_t left = kBlockRecords - first % kBlockRecords;
    return {&ownRecord(first), std::min<std::size_t>(left, _currentSig - first)};
}

void BmList::enterRecords(std::span<BmRecord> records, std::uint32_t first) {
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (records.size() - i > kPrefetchAhead) {
            const std::uint64_t hash = hashOf(records[i + kPrefetchAhead].digest);
            __builtin_prefetch(&bm_suffix[chainOf(hash, _chainShift)], 1);
        }
        enterRecord(records[i], first + static_cast<std::uint32_t>(i) + 1);
    }
}

// The number is counted from 1.
void BmList::enterRecord(BmRecord& added, std::uint32_t number) {
    const std::size_t key = bucketKey(added.digest);
    bm_shift.at(key / 32) |= std::uint32_t{1} << key % 32;
    const std::uint64_t hash = hashOf(added.digest);
    Chain& chain = bm_suffix.at(chainOf(hash, _chainShift));
    added.next = chain.newest;
    chain.newest = number;
    chain.filter |= filterBit(hash, _chainShift);
}

// The newest record of the chain that records with this digest are in, counted from 1; 0 when there are none.
std::uint32_t BmList::chainFor(const unsigned char* digest) const {
    const std::size_t key = bucketKey(digest);
    if (bm_shift.empty() || !(bm_shift[key / 32] >> key % 32 & 1)) return 0;
    const std::uint64_t hash = hashOf(digest);
    const Chain& chain = bm_suffix[chainOf(hash, _chainShift)];
    if (!(chain.filter & filterBit(hash, _chainShift))) return 0;
    return chain.newest <= _currentSig ? chain.newest : 0;
}

const char* BmList::virusFoundMD5(const unsigned char* digest) const {
    const std::uint32_t found = firstWith(digest, chainFor(digest));
    return found ? _names.at(record(found - 1).name) : nullptr;
}

std::uint32_t BmList::firstWith(const unsigned char* digest, std::uint32_t number) const {
    while (number && std::memcmp(record(number - 1).digest, digest, Md5::kDigestSize) != 0) number = olderThan(number);
    return number;
}

std::size_t BmList::memoryBytes() const {
    return _blocks.size() * kBlockRecords * sizeof(BmRecord) + _blocks.capacity() * sizeof(Block) +
           _starts.capacity() * sizeof(void*) + bm_suffix.memoryBytes() + bm_shift.memoryBytes() +
           _newSizes.size() * sizeof(std::uint32_t) + _sizes.memoryBytes() + _names.memoryBytes();
}

void BmList::save(TableSink& sink) const {
    sink.beginTable(sizeof(BmRecord));
    for (std::size_t first = 0; first < _currentSig; first += kBlockRecords) {
        sink.append(std::span(&record(first), std::min<std::size_t>(kBlockRecords, _currentSig - first)));
    }
    sink.table(bm_shift.elements());
    sink.table(bm_suffix.elements());
    _sizes.save(sink);
    _names.save(sink);
}

void BmList::map(TableSource& source) {
    const auto records = source.table<BmRecord>();
    bm_shift = Table(source.table<std::uint32_t>());
    bm_suffix = Chains(source.table<Chain>());
    TableSource::require(records.size() < UINT32_MAX && bm_shift.size() == (records.empty() ? 0 : kBucketWords));
    TableSource::require(records.empty() ||
                         (bm_suffix.size() >= kFewestChains && std::has_single_bit(bm_suffix.size())));
    _chainShift = 64 - static_cast<unsigned>(std::countr_zero(bm_suffix.size()));
    _currentSig = _indexedSigs = static_cast<std::uint32_t>(records.size());
    for (std::size_t i = 0; i < records.size(); i += kBlockRecords) _starts.push_back(&records[i]);
    _sizes.map(source);
    _names.map(source);
}

void BmList::reset() {
    bm_shift = {};
    bm_suffix = {};
    _chainShift = 0;
    _currentSig = _totalSigs = _indexedSigs = 0;
    _blocks.clear();
    _starts.clear();
    _newSizes.clear();
    _lastSize.reset();
    _sizes.clear();
    _names.clear();
    _second = nullptr;
    _handedOver = 0;
}
