// RecordFiles.h: the pattern files that paths stand for, and the records in them, as the engine's loader reads them.
#ifndef VOLE_WORKSHOP_RECORD_FILES_H
#define VOLE_WORKSHOP_RECORD_FILES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CheckSumPattern.h"
#include "LoadObserver.h"
#include "Md5.h"
#include "PatternContainer.h"
#include "VirusList.h"

// One record that the loader accepts. The views are valid during the call that it is given to.
struct Record {
    RecordKind kind;
    std::string_view text;  // The line.
    std::string_view name;
    std::uint32_t size = 0;                       // Of MD5 records, like the digest.
    unsigned char digest[Md5::kDigestSize] = {};  // As BmRecord has it.
    CheckSumFields checkSum = {};                 // Of the others.
    const std::string* file = nullptr;            // Path.
    std::uint64_t line = 0;                       // From 1.
};

// Takes a line apart. `out` has views into it and no place.
std::optional<RecordFault> parseRecord(RecordKind kind, std::string_view text, Record& out);

// Is told of the lines of pattern files. What these throw comes out of readRecords().
class RecordVisitor {
public:
    RecordVisitor() = default;
    RecordVisitor(const RecordVisitor&) = delete;
    RecordVisitor& operator=(const RecordVisitor&) = delete;
    virtual ~RecordVisitor() = default;

    virtual void onRecord(const Record& record) = 0;
    // A line that is left out of a set, or not in it as it stands. Default: nothing.
    virtual void onProblem(const std::string& file, const PatternLine& line, const RecordFault& fault);
};

// The path of what has that name in the folder.
std::string inFolder(const std::string& folder, const std::string& name);

// What each path stands for: a folder for its pattern files, in byte order of their names, as a load takes them; a
// pattern file for itself. Throws LoadError for what is neither, or cannot be looked at.
std::vector<std::string> patternFilesAt(const std::vector<std::string>& paths);

// Adds the names in a folder's lists, if it has any. Throws LoadError when the file of that name cannot be used.
void readListsOf(const std::string& folder, VirusList& list);

// Loads one of them into a set and tells of its lines, in their order. Throws LoadError when the file cannot be read.
void readRecords(const std::string& file, PatternContainer& set, RecordVisitor& visitor);
// The same when nobody wants the set.
void readRecords(const std::string& file, RecordVisitor& visitor);

#endif  // VOLE_WORKSHOP_RECORD_FILES_H
