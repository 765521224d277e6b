#include "SetStat.h"

#include <bit>
#include <filesystem>
#include <new>

#include "Exception.h"
#include "RecordFiles.h"

namespace {

class Counting : public RecordVisitor {
public:
    explicit Counting(SetStat& stat) : _stat(stat) {}

    void onRecord(const Record& record) override {
        if (record.kind == RecordKind::md5) {
            ++_stat.md5;
            ++_stat.md5Sizes.at(static_cast<std::size_t>(std::bit_width(record.size)));
        } else {
            ++_stat.checkSums;
            ++_stat.targets.at(record.checkSum.target);
            ++_stat.places.at(record.checkSum.offsetType);
        }
    }

    void onProblem(const std::string&, const PatternLine& line, const RecordFault& fault) override {
        const bool isChanged = fault.kind == RecordFault::Kind::nul || fault.kind == RecordFault::Kind::longLine;
        if (!isChanged && !line.text.empty()) ++_stat.leftOut;
    }

private:
    SetStat& _stat;
};

}  // namespace

SetStat statOf(const std::vector<std::string>& paths) {
    SetStat stat;
    Counting counting(stat);
    PatternContainer set;
    for (const std::string& file : patternFilesAt(paths)) {
        ++stat.files;
        readRecords(file, set, counting);
    }
    VirusList lists;
    for (const std::string& path : paths) {
        if (std::filesystem::is_directory(path)) readListsOf(path, lists);
    }
    stat.falseAlarms = lists.falseAlarmCount();
    try {
        set.prepare();
    } catch (const ZOV_SPACE::Exception&) {
        throw std::bad_alloc();
    }
    stat.memoryBytes = set.memoryBytes();
    return stat;
}
