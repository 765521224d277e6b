// BmList: the MD5 signatures of one pattern container, and the file sizes that occur in any of them.
//
// Records live in blocks, in the order in which they were added, and are found through a hash table of chains. Adding
// only appends; index() enters what was added since it last ran, in one pass that sizes its tables once. Loading
// therefore costs the same per record at a thousand records and at ten million, whatever their order, and so does each
// lookup: a digest that is no signature costs one look at the table in most cases, because a chain's head tells
// which hashes its records have. On x86-64 a record costs 32 bytes, plus 8 to 16 for its chain's head, plus 5 to 11 for
// its size, plus its name; the tables lie in large pages where the system has them.
//
// Filled by one thread, then shared read-only by any number.
#ifndef SIGNATURES_BMLIST_H
#define SIGNATURES_BMLIST_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string_view>
#include <vector>

#include "LargePages.h"
#include "Md5.h"
#include "NameArena.h"
#include "RecordFault.h"
#include "SizeSet.h"

// One signature: the digest of a file's bytes, and the name to report. The name belongs to the list.
struct BmPattern {
    unsigned char digest[Md5::kDigestSize];
    const char* name;
};

// A record with its chain link. Newer records stand ahead of older ones with the same key.
struct BmPatternNode {
    BmPattern pattern;
    const BmPatternNode* next;
};

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

    // Adds a file size to those that verifyFileSize() knows once index() has run. False when memory is short.
    bool addNewMd5PatSize(std::uint32_t size);

    // Whether any signature has this file size.
    bool verifyFileSize(std::uint32_t size) const { return _sizes.contains(size); }

    // The newest signature with this 16-byte digest, or null. Owned by the list.
    const BmPattern* virusFoundMD5(const unsigned char* digest) const;

    // Passes all signatures with this digest to `visit`, newest first, until it answers true: then true.
    template <class Visit>
    bool visitFoundMD5(const unsigned char* digest, Visit visit) const;

    // The first record of the chain that begins at `head` with this 16-byte digest, or null.
    static const BmPattern* matchPatternListMD5(const unsigned char* digest, const BmPatternNode* head);

    // Signatures added so far.
    std::uint32_t count() const { return _currentSig; }

    // Bytes of memory behind the list, room for more records included.
    std::size_t memoryBytes() const;

    // Back to the empty list.
    void reset();

private:
    static const BmPatternNode* firstWith(const unsigned char* digest, const BmPatternNode* node);
    const BmPatternNode* chainFor(const unsigned char* digest) const;

    static constexpr std::size_t kBucketCount = 65536;  // The bucket key's range.
    static constexpr std::size_t kBlockRecords = ZOV_SPACE::kLargePage / sizeof(BmPatternNode);

    using Block = std::vector<BmPatternNode, ZOV_SPACE::LargePageAllocator<BmPatternNode>>;

    struct Chain {
        std::uint32_t newest = 0;  // The number of its first record, counted from 1; 0: the chain is empty.
        std::uint32_t filter = 0;  // One bit for each record's hash.
    };

    static std::size_t bucketKey(const unsigned char* digest);
    BmPatternNode& node(std::size_t number) { return _blocks[number / kBlockRecords][number % kBlockRecords]; }
    const BmPatternNode& node(std::size_t number) const {
        return _blocks[number / kBlockRecords][number % kBlockRecords];
    }
    bool reserveNodes(std::size_t n);
    void init();
    void indexSizes();
    void indexRecords();
    void addPattern(std::uint32_t number);

    std::vector<bool> bm_shift;  // By bucket key: true = no signature has it. Empty before the first record.
    std::vector<Chain, ZOV_SPACE::LargePageAllocator<Chain>> bm_suffix;  // By hash; their number is a power of two.
    unsigned _chainShift = 0;                                            // 64 - log2 of that number.
    std::uint32_t _currentSig = 0;
    std::uint32_t _totalSigs = 0;         // Where the announced records end; 0: nothing was announced.
    std::vector<Block> _blocks;           // All records, oldest first, numbered from 0.
    std::uint32_t _indexedSigs = 0;       // How many of them the chains hold.
    std::deque<std::uint32_t> _newSizes;  // Sizes that the set does not hold yet.
    std::optional<std::uint32_t> _lastSize;
    SizeSet _sizes;
    NameArena _names;
};

template <class Visit>
bool BmList::visitFoundMD5(const unsigned char* digest, Visit visit) const {
    for (auto found = firstWith(digest, chainFor(digest)); found; found = firstWith(digest, found->next)) {
        if (visit(found->pattern)) return true;
    }
    return false;
}

#endif  // SIGNATURES_BMLIST_H
