// RecordCheck: hears of the lines of pattern files while the engine's loader reads them into a set, remarks on them,
// and then on records that repeat others.
//   Memory: one entry for each run of records without anything between them, and for each check-sum record.
#ifndef VOLE_WORKSHOP_RECORD_CHECK_H
#define VOLE_WORKSHOP_RECORD_CHECK_H

#include <array>
#include <compare>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CheckSumPattern.h"
#include "LoadObserver.h"
#include "PatternContainer.h"
#include "Remark.h"

class RecordCheck : private LoadObserver {
public:
    // `names` as CheckOptions has it. All are borrowed.
    RecordCheck(const std::string& names, const TakeRemark& take) : _names(names), _take(take) {}

    // One more pattern file, whose path lives as long as this.
    void load(const std::string& file);
    // Behind the last of them.
    void findRepeats();

    const PatternContainer& set() const { return _set; }
    std::uint64_t recordCount() const { return static_cast<std::uint64_t>(_set.loadedCount()); }

private:
    // In the order of files and lines.
    struct Place {
        std::size_t file;  // Its number in _files.
        std::uint64_t line;

        auto operator<=>(const Place&) const = default;
    };
    // MD5 records in lines behind each other.
    struct Run {
        std::uint32_t first;  // Number of its first record, from 0.
        Place place;
    };

    void onProblem(const PatternLine& line, const RecordFault& fault) override;
    void onCount(const PatternLine& line, bool heeded) override;
    void onRecords(RecordKind kind, std::string_view texts, std::uint64_t firstLine) override;
    void onEnd(std::uint64_t lastLine) override;

    void checkMd5(std::string_view line, std::uint64_t number);
    void checkCheckSum(std::string_view line, std::uint64_t number);
    void checkFields(std::string_view line, std::string_view name, std::uint64_t number);
    void checkName(std::string_view line, std::string_view name, std::uint64_t number);
    void findRepeatedMd5();
    void findRepeatedCheckSums();
    const std::string& file() const { return *_files.back(); }
    Place here(std::uint64_t line) const { return {_files.size() - 1, line}; }
    Place placeOf(std::uint32_t number) const;
    void remarkOnRepeat(const Place& older, const Place& newer, std::string_view olderName, std::string_view newerName);
    void remark(Remark::Severity severity, std::string_view code, std::uint64_t line, std::size_t column,
                std::string text);

    template <class Call>
    void attempt(Call call);

    const std::string& _names;
    const TakeRemark& _take;
    PatternContainer _set;
    std::vector<const std::string*> _files;
    std::vector<Run> _runs;
    std::array<std::vector<Place>, kTargetCount> _checkSums;
    std::uint32_t _md5Count = 0;
    std::exception_ptr _failure;
    // Of the file at hand.
    std::optional<std::uint64_t> _announced;  // By the latest "#count:" that counts, and its line.
    std::uint64_t _countLine = 0;
    std::uint64_t _recordsBefore = 0;
};

#endif  // VOLE_WORKSHOP_RECORD_CHECK_H
