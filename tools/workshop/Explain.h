// Explain.h: tells of records and of all contents of files why they match, or do not.
#ifndef VOLE_WORKSHOP_EXPLAIN_H
#define VOLE_WORKSHOP_EXPLAIN_H

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "ExitCode.h"
#include "RecordFiles.h"
#include "VoleLibrary.h"

// A record with all that its views lead to.
class KeptRecord {
public:
    // Of the kind that is given, or of the one that it looks like. Throws LoadError for what is no record.
    KeptRecord(std::string_view text, std::optional<RecordKind> kind);
    explicit KeptRecord(const Record& record);

    const Record& record() const { return _record; }
    const std::string& label() const { return _label; }  // Its name, with its place if it has one.

private:
    std::unique_ptr<const std::string> _text, _file;
    std::string _label;
    Record _record{};
};

// Those with that name in the files that a path stands for. Throws LoadError, also when there is none.
std::vector<KeptRecord> recordsNamed(const std::string& path, const std::string& name);

struct ExplainTerms {
    vole_limits limits = VOLE_LIMITS_INIT;
    std::uint32_t flags = 0;  // VOLE_SCAN_...
    bool incompleteIsFine = false;
    bool json = false;
};

// Lines of text, or of JSON, on the stream: one for each content and record, and more where files are not seen whole.
// kExitFound when a record matches a content.
ExitCode explainFiles(const std::vector<KeptRecord>& records, const std::vector<std::string>& files,
                      const ExplainTerms& terms, std::ostream& out);

#endif  // VOLE_WORKSHOP_EXPLAIN_H
