// BmList: the MD5 signatures of one pattern container, and the file sizes that occur in any of them.
//
// Records live in blocks, in the order in which they were added, and are found through a hash table of chains. They
// refer to each other and to their names by numbers, so the list can be written to a file and searched in it as it
// lies. Adding only appends; index() enters what was added since it last ran, in one pass that sizes its tables once.
// Loading therefore costs the same per record at a thousand records and at ten million, whatever their order, and so
// does each lookup: a digest that is no signature costs one look at the table in most cases, because a chain's head
// tells which hashes its records have. A record costs 24 bytes, plus 8 to 16 for its chain's head, plus 5 to 11 for its
// size, plus its name; the tables lie in large pages where the system has them.
//
// Filled by one thread, which may have a second one enter what it adds, or mapped; then shared read-only by any number.
#ifndef SIGNATURES_BMLIST_H
#define SIGNATURES_BMLIST_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "LargePages.h"
#include "Md5.h"
#include "NameArena.h"
#include "RecordFault.h"
#include "SizeSet.h"
#include "Table.h"
#include "TableFile.h"

// One signature: the digest of a file's bytes, the number of the name to report, and the chain's next record, counted
// from 1, which is always an older one; 0: there is none.
struct BmRecord {
    unsigned char digest[Md5::kDigestSize];
    std::uint32_t name;
    std::uint32_t next;
};
static_assert(sizeof(BmRecord) == 24, "files have it so");

class SecondThread;

class BmList {
public:
    // The bucket key is taken from the three digest bytes that start at minLength - 3.
    static constexpr int minLength = 10;
    // Smallest possible record line: 32 digits, a colon, a size, a colon, a name.
    static constexpr std::size_t kMinLineLength = 36;

    BmList() = default;
    BmList(const BmList&) = delete;
    BmList& operator=(const BmList&) = delete;

    // A new pattern file begins: until allocate() is called, any number of records is accepted.
    void beginFile() { _totalSigs = 0; }

    // Announces `n` more records; once they are in, further ones are refused. Memory is set aside for at most
    // `plausible` of them, because `n` is only a claim of the file. Zero and negative announcements are ignored, and so
    // is one whose memory cannot be had.
    void allocate(int n, std::size_t plausible = SIZE_MAX);

    // Parses one record line (32 hexadecimal digits, ':', size in decimal, ':', name) and enters it. Throws Exception
    // on any fault; the size of a refused line may stay in the size list.
    void addString(const char* line);

    // addString() for the loading of whole files: returns what is wrong with the line instead of throwing it, and
    // leaves the record out of searches until index() is called. Throws OutOfMemoryException.
    std::optional<RecordFault> append(std::string_view line);
    void index();

    // From here to the next index(), which waits for it and throws what it threw, the thread enters what handOver()
    // gives it. What it comes to is the same.
    void shareWith(SecondThread& second) { _second = &second; }
    bool isShared() const { return _second; }
    // Whether that is worth the while now.
    bool hasMuch() const { return _second && _currentSig - _handedOver >= kHandedOver; }
    // Room is made for that many records in all when this is called first. Throws what the thread threw before.
    void handOver(std::uint64_t expected);

    // index() when nothing more is to come: gives back what room turned out not to be needed.
    void finish();

    // append() for the usual kind of line, out of a text that it begins: the line's length with its line feed; 0, and
    // nothing is changed, when it takes append() to tell what the line is. plain::kSlack bytes behind the text are
    // readable, and mean nothing.
    std::size_t appendPlain(std::string_view text);

    // Adds a file size to those that verifyFileSize() knows once index() has run. False when memory is short.
    bool addNewMd5PatSize(std::uint32_t size);

    // Whether any signature has this file size.
    bool verifyFileSize(std::uint32_t size) const { return _sizes.contains(size); }

    // The name of the newest signature with this 16-byte digest, or null. Owned by the list.
    const char* virusFoundMD5(const unsigned char* digest) const;

    // Passes the names of all signatures with this digest to `visit`, newest first, until it answers true: then true.
    template <class Visit>
    bool visitFoundMD5(const unsigned char* digest, Visit visit) const;

    // Passes each two records with one digest of which none lies between them, by their numbers from 0, the older one
    // first; what is older is never found. False when records are so many and so alike that it would take too long to
    // find all, which takes somebody who makes them so.
    // REQUIRES: index() has run since the latest record.
    template <class Visit>
    bool visitRepeats(Visit visit) const;
    const char* nameOf(std::uint32_t number) const { return _names.at(record(number).name); }

    // Signatures added so far.
    std::uint32_t count() const { return _currentSig; }

    // Bytes of memory behind the list, room for more records included.
    std::size_t memoryBytes() const;

    // Back to the empty list.
    void reset();

    // REQUIRES: index() has run since the latest record.
    void save(TableSink& sink) const;
    // Throws Exception when the tables do not fit together, and leaves the list useless then. What is in them is looked
    // at when it is used; no lookup leaves them, whatever that is.
    // REQUIRES: the list is empty, and nothing is added later.
    void map(TableSource& source);

private:
    std::uint32_t firstWith(const unsigned char* digest, std::uint32_t number) const;
    std::uint32_t chainFor(const unsigned char* digest) const;

    static constexpr std::size_t kBucketWords = 65536 / 32;  // A bit for each bucket key.
    static constexpr std::size_t kBlockRecords = ZOV_SPACE::kLargePage / sizeof(BmRecord);
    static constexpr std::uint32_t kHandedOver = 2048;  // Records, at least.
    // Records. Files that are nearly all comments can be large, and address space is short where pointers are.
    static constexpr std::uint64_t kMostExpected = sizeof(void*) == 8 ? 1 << 25 : 1 << 22;

    using Block = std::vector<BmRecord, ZOV_SPACE::LargePageAllocator<BmRecord>>;
    using Sizes = std::deque<std::uint32_t>;

    // What is handed over: records that lie behind each other, the first one's place in the list, and new sizes.
    struct Batch {
        std::span<BmRecord> records;
        std::uint32_t first = 0;
        Sizes sizes;
    };

    struct Chain {
        std::uint32_t newest = 0;  // Its first record, counted from 1; 0: the chain is empty.
        std::uint32_t filter = 0;  // One bit for each record's hash.
    };

    static std::size_t bucketKey(const unsigned char* digest);
    // Counted from 0.
    BmRecord& ownRecord(std::size_t i) { return _blocks[i / kBlockRecords][i % kBlockRecords]; }
    const BmRecord& record(std::size_t i) const { return _starts[i / kBlockRecords][i % kBlockRecords]; }
    // The record behind the one with that number, both counted from 1. In a damaged file a link may lead anywhere;
    // where only older records follow, chains end and stay in the list.
    std::uint32_t olderThan(std::uint32_t number) const {
        const std::uint32_t next = record(number - 1).next;
        return next < number ? next : 0;
    }
    bool reserveRecords(std::size_t n);
    std::span<BmRecord> blockFrom(std::uint32_t first);
    void init(std::size_t wanted);
    void dropChains();
    void expect(std::size_t records);
    void enter(const Batch& batch);
    void enterSizes(const Sizes& sizes);
    void indexRecords();
    void enterRecords(std::span<BmRecord> records, std::uint32_t first);
    void enterRecord(BmRecord& added, std::uint32_t number);

    using Chains = Table<Chain, ZOV_SPACE::LargePageAllocator<Chain>>;

    // What adding changes with every record.
    std::uint32_t _currentSig = 0;
    std::uint32_t _totalSigs = 0;  // Where the announced records end; 0: nothing was announced.
    Sizes _newSizes;               // Sizes that the set does not hold yet.
    std::optional<std::uint32_t> _lastSize;
    NameArena _names;

    // What hardly changes. With the gap it keeps the others so far apart that they share no cache line, nor two that
    // are fetched together: two threads would take it from each other with every record.
    std::vector<Block> _blocks;            // The list's own records, oldest first.
    std::vector<const BmRecord*> _starts;  // Of the blocks, which lie behind each other where they come from a file.
    SecondThread* _second = nullptr;       // Null unless it is sharing.
    std::uint32_t _handedOver = 0;         // Records.
    [[maybe_unused]] std::array<std::byte, 64> _gap{};

    // What entering changes: the second thread's, if there is one.
    Table<std::uint32_t> bm_shift;   // A bit by bucket key: whether a signature has it. Empty before the first record.
    Chains bm_suffix;                // By hash; their number is a power of two.
    unsigned _chainShift = 0;        // 64 - log2 of that number.
    std::uint32_t _indexedSigs = 0;  // How many records the chains hold.
    SizeSet _sizes;
};

template <class Visit>
bool BmList::visitFoundMD5(const unsigned char* digest, Visit visit) const {
    for (auto found = firstWith(digest, chainFor(digest)); found; found = firstWith(digest, olderThan(found))) {
        if (visit(_names.at(record(found - 1).name))) return true;
    }
    return false;
}

template <class Visit>
bool BmList::visitRepeats(Visit visit) const {
    constexpr std::uint32_t kPrefetchAhead = 16;
    std::uint64_t stepsLeft = std::uint64_t{64} * (_currentSig + 1024U);
    for (std::uint32_t number = 1; number <= _currentSig; ++number) {
        if (number + kPrefetchAhead <= _currentSig) {
            const std::uint32_t next = olderThan(number + kPrefetchAhead);
            if (next) __builtin_prefetch(&record(next - 1));
        }
        for (std::uint32_t older = olderThan(number); older; older = olderThan(older)) {
            if (stepsLeft-- == 0) return false;
            if (std::memcmp(record(older - 1).digest, record(number - 1).digest, Md5::kDigestSize) != 0) continue;
            visit(older - 1, number - 1);
            break;
        }
    }
    return true;
}

#endif  // SIGNATURES_BMLIST_H
