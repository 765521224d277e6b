// PatternContainer: one loaded set of signatures. Filled by one thread, file by file, then shared read-only.
#ifndef SIGNATURES_PATTERNCONTAINER_H
#define SIGNATURES_PATTERNCONTAINER_H

#include <cstdint>
#include <string>

#include "BmList.h"
#include "CheckSumList.h"

// How pattern file names end; other files are none.
constexpr const char* kMd5FileSuffix = ".hdb";
constexpr const char* kCheckSumFileSuffix = ".chk";

class LoadObserver;
class PatternLineReader;
class SecondThread;

class PatternContainer {
public:
    static constexpr int kCannotOpen = -494;
    static constexpr int kNoFile = 1;

    // Whether this error of a system call on a path means that there is no file: none of that name any more, or a link
    // that leads nowhere.
    static bool meansNoFile(int error);

    // Whether a file of that name has signatures.
    static bool isPatternName(const std::string& name) {
        return name.ends_with(kMd5FileSuffix) || name.ends_with(kCheckSumFileSuffix);
    }

    // Loads one file: MD5 records from a name that ends with ".hdb", checksum records from ".chk" (both
    // case-sensitive), nothing from any other name. Malformed lines are passed over. 0; or, with nothing changed,
    // kNoFile when there is no file any more and kCannotOpen when there is one that cannot be opened. Throws Exception
    // when the file cannot be read to its end; the lines before that stay. The observer may be null.
    int loadPattern(const std::string& path, LoadObserver* observer = nullptr);

    // From here to prepare() the thread takes a share of the work, and the container is not searched. Files with
    // so many bytes of MD5 records follow, as far as that is known. The set that comes out is the same.
    void shareWith(SecondThread& second, std::uint64_t bytes);

    // Called by the owner after the last file, also when one failed. Until then scans are right, only slow. Throws
    // Exception or std::bad_alloc when memory is short.
    void prepare();

    // A set that prepare() has run for goes to a file, and comes back from one into an empty container: see BmList.h.
    void save(TableSink& sink) const;
    void map(TableSource& source);

    // Data lines that were accepted, over all files.
    int loadedCount() const { return _loadedCount; }

    // Bytes of memory that the records take, room for more of them included.
    std::size_t memoryBytes() const { return _md5List.memoryBytes() + _checkSumList.memoryBytes(); }

    const BmList& md5List() const { return _md5List; }
    const CheckSumList& checkSumList() const { return _checkSumList; }

    // The difference of two unsigned 32-bit values, as qsort-like functions want it; 0 when they are equal.
    static int scomp(const void* a, const void* b);

private:
    void loadMd5Lines(PatternLineReader& lines, LoadObserver* observer);
    void handOver(std::uint64_t bytesLeft);

    int _loadedCount = 0;
    SecondThread* _second = nullptr;  // Null unless it has a share.
    std::uint64_t _bytes = 0;         // Of MD5 records, in all files.
    std::uint64_t _bytesLeft = 0;     // Of these, in the files behind the one at hand.
    BmList _md5List;
    CheckSumList _checkSumList;
};

#endif  // SIGNATURES_PATTERNCONTAINER_H
