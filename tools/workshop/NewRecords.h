// NewRecords: the records that a command makes, until they are printed or added to a file, each once.
#ifndef VOLE_WORKSHOP_NEW_RECORDS_H
#define VOLE_WORKSHOP_NEW_RECORDS_H

#include <string>
#include <unordered_set>
#include <vector>

class NewRecords {
public:
    // A line as RecordWriter.h makes it. Records that are there already are passed over.
    void add(const std::string& line) {
        if (_known.insert(line).second) _lines.push_back(line);
    }

    const std::vector<std::string>& lines() const { return _lines; }

private:
    std::vector<std::string> _lines;
    std::unordered_set<std::string> _known;
};

#endif  // VOLE_WORKSHOP_NEW_RECORDS_H
