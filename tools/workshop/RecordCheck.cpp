// Ten million records are to be checked in little more time than they take to load. So lines that look like nearly all
// others are only looked at where something can be odd in them, and repeated digests are found by the links that the
// loader's own index has.
#include "RecordCheck.h"

#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <numeric>

#include "Exception.h"
#include "Messages.h"
#include "RecordText.h"
#include "Text.h"
#include "VoleLibrary.h"

namespace {

namespace text = ZOV_SPACE::text;

using Severity = Remark::Severity;

constexpr std::size_t kSizeColumn = 2 * Md5::kDigestSize + 1;  // Counted from 0, as all places in here.
constexpr std::size_t kCheckString = 4;                        // Bytes that have to be there at the first offset.

std::string_view codeOf(RecordFault::Kind kind) {
    switch (kind) {
        case RecordFault::Kind::unannounced:
            return "beyond-count";
        case RecordFault::Kind::noLineFeed:
            return "no-line-feed";
        case RecordFault::Kind::longLine:
            return "long-line";
        case RecordFault::Kind::nul:
            return "nul";
        case RecordFault::Kind::malformed:
            break;
    }
    return "malformed";
}

// Where in the line a part of it begins, from 0.
std::size_t placeIn(std::string_view line, std::string_view part) {
    return static_cast<std::size_t>(part.data() - line.data());
}

std::size_t columnOf(const PatternLine& line, const RecordFault& fault) {
    if (fault.part.data()) return placeIn(line.text, fault.part) + 1;
    return fault.kind == RecordFault::Kind::malformed || fault.kind == RecordFault::Kind::unannounced
               ? 1
               : line.text.size() + 1;
}

// A dropped MD5 record's size is listed all the same: contents of that size are hashed for nothing.
std::string sizeLeftBehind(const PatternLine& line, const std::string& file) {
    Md5Text fields{};
    if (!file.ends_with(kMd5FileSuffix) || splitMd5Record(line.text, fields)) return {};
    return "; its size, " + std::to_string(fields.size) + ", counts all the same";
}

bool isPlainNumber(std::string_view digits) {
    const bool allDigits = std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    return allDigits && digits.size() <= 10 && (digits.size() < 2 || digits.front() != '0');
}

// Why such a range lies in no content; empty if it may.
std::string whyNever(std::uint8_t type, std::int16_t offset, std::size_t bytes) {
    if (type > kFromEnd) return {};
    if (offset < 0) return "a negative offset lies in no content";
    if (type == kFromEnd && static_cast<std::size_t>(offset) < bytes) return "the range goes beyond the content's end";
    return {};
}

auto keyOf(const CheckSumRecord& record) {
    return std::tuple(record.offsetType, record.offsetParameter, record.offset1, record.length1, record.checkString,
                      record.checkSum1, record.offset2, record.length2, record.checkSum2);
}

}  // namespace

void RecordCheck::load(const std::string& file) {
    _files.push_back(&file);
    _announced.reset();
    _recordsBefore = recordCount();
    try {
        if (_set.loadPattern(file, this) != 0) remark(Severity::error, "file", 0, 0, systemText(errno));
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (ZOV_SPACE::Exception& e) {
        remark(Severity::error, "file", 0, 0, e.getMessage());
    }
    if (_failure) std::rethrow_exception(_failure);
}

// What an observer throws would end the load, or the program.
template <class Call>
void RecordCheck::attempt(Call call) {
    if (_failure) return;
    try {
        call();
    } catch (...) {
        _failure = std::current_exception();
    }
}

void RecordCheck::remark(Severity severity, std::string_view code, std::uint64_t line, std::size_t column,
                         std::string text) {
    _take({severity, code, file(), line, column, std::move(text)});
}

void RecordCheck::onProblem(const PatternLine& line, const RecordFault& fault) {
    attempt([&] {
        const bool isDropped =
            fault.kind == RecordFault::Kind::malformed || fault.kind == RecordFault::Kind::unannounced;
        std::string text = fault.kind == RecordFault::Kind::unannounced
                               ? "beyond the number that \"#count:\" announces, and left out"
                               : fault.message();
        if (isDropped) text += sizeLeftBehind(line, file());
        remark(Severity::error, codeOf(fault.kind), line.number, columnOf(line, fault), std::move(text));
    });
}

void RecordCheck::onCount(const PatternLine& line, bool heeded) {
    attempt([&] {
        if (!heeded) {
            remark(Severity::warning, "count", line.number, 1, "behind the first record, so it does not count");
        } else if (line.count <= 0) {
            remark(Severity::warning, "count", line.number, 1, "no number of records, so it does not count");
        } else {
            _announced = static_cast<std::uint64_t>(line.count);
            _countLine = line.number;
        }
    });
}

// Only now is it known how many there are.
void RecordCheck::onEnd(std::uint64_t lastLine) {
    attempt([&] {
        const std::uint64_t records = recordCount() - _recordsBefore;
        if (!_announced || !file().ends_with(kMd5FileSuffix) || *_announced <= records) return;
        remark(Severity::warning, "count", lastLine, 0,
               "the file ends with " + std::to_string(records) + " records; \"#count:\" in line " +
                   std::to_string(_countLine) + " announces " + std::to_string(*_announced));
    });
}

void RecordCheck::onRecords(RecordKind kind, std::string_view texts, std::uint64_t firstLine) {
    attempt([&] {
        if (kind == RecordKind::md5) _runs.push_back({_md5Count, here(firstLine)});
        std::uint32_t count = 0;
        for (std::size_t begin = 0; begin <= texts.size(); ++count) {
            const std::size_t end = std::min(texts.find('\n', begin), texts.size());
            const std::string_view text = texts.substr(begin, end - begin);
            if (kind == RecordKind::md5) {
                checkMd5(text, firstLine + count);
            } else {
                checkCheckSum(text, firstLine + count);
            }
            begin = end + 1;
        }
        if (kind == RecordKind::md5) _md5Count += count;
    });
}

void RecordCheck::checkMd5(std::string_view line, std::uint64_t number) {
    const std::string_view behind = line.substr(kSizeColumn);
    const std::size_t colon = behind.find(':');
    const std::string_view digits = behind.substr(0, colon);
    const bool isUsual = digits.size() < 10 && !digits.empty() && digits.front() > '0' && isPlainNumber(digits) &&
                         behind[colon + 1] != ':';
    if (!isUsual) {
        Md5Text fields{};
        splitMd5Record(line, fields);
        if (!isPlainNumber(digits)) {
            remark(Severity::warning, "size", number, kSizeColumn + 1,
                   "the size is read as " + std::to_string(fields.size));
        } else if (fields.size == 0) {
            remark(Severity::warning, "never", number, kSizeColumn + 1, "an empty content never matches");
        } else if (fields.size == INT_MAX && digits != "2147483647") {
            remark(Severity::warning, "never", number, kSizeColumn + 1, "contents that large are not looked into");
        }
        checkFields(line, fields.name, number);
        return checkName(line, fields.name, number);
    }
    const std::string_view name = behind.substr(colon + 1);
    checkName(line, text::upTo(name, ':'), number);
}

// Of a line whose fields are not all where they usually are.
void RecordCheck::checkFields(std::string_view line, std::string_view name, std::uint64_t number) {
    const std::size_t empty = line.substr(0, placeIn(line, name)).find("::");
    if (empty == line.npos) return;
    remark(Severity::warning, "field", number, empty + 2, "an empty field is passed over, and the next taken for it");
}

void RecordCheck::checkName(std::string_view line, std::string_view name, std::uint64_t number) {
    const std::size_t column = placeIn(line, name) + 1;
    if (column - 1 + name.size() < line.size()) {
        remark(Severity::warning, "behind-name", number, column + name.size(),
               "what stands behind the name is not read");
    }
    if (text::isOneOf(text::kBlanks, name.front()) || text::isOneOf(text::kBlanks, name.back())) {
        remark(Severity::warning, "name", number, column, "blanks around a name belong to it");
    }
    if (!_names.empty() && ::fnmatch(_names.c_str(), std::string(name).c_str(), 0) != 0) {
        remark(Severity::warning, "name", number, column, "\"" + std::string(name) + "\" does not fit " + _names);
    }
}

void RecordCheck::checkCheckSum(std::string_view line, std::uint64_t number) {
    CheckSumFields fields;
    std::string_view name;
    if (parseCheckSumRecord(line, fields, name)) return;
    _checkSums[fields.target].push_back(here(number));
    if (fields.target != kTargetAny && fields.target != kTargetPe) {
        remark(Severity::warning, "never", number, 1,
               "target " + std::to_string(fields.target) + " is accepted, and never matches");
    }
    const auto parts = text::splitFields<9>(line, ":");
    const std::size_t bytes1 = std::max<std::size_t>(fields.length1, kCheckString);
    for (const auto& [offset, bytes, field] : {std::tuple(fields.offset1, bytes1, parts[2]),
                                               std::tuple(fields.offset2, std::size_t{fields.length2}, parts[6])}) {
        const std::string why = whyNever(fields.offsetType, offset, bytes);
        if (!why.empty()) remark(Severity::warning, "never", number, placeIn(line, field) + 1, why);
    }
    for (const auto& [length, field] : {std::pair(fields.length1, parts[3]), std::pair(fields.length2, parts[7])}) {
        if (length != 0) continue;
        remark(Severity::warning, "weak", number, placeIn(line, field) + 1,
               "a range without bytes tells nothing apart");
    }
    checkFields(line, name, number);
    checkName(line, name, number);
}

void RecordCheck::findRepeats() {
    try {
        _set.prepare();
    } catch (ZOV_SPACE::Exception&) {
        throw std::bad_alloc();
    }
    findRepeatedMd5();
    findRepeatedCheckSums();
}

RecordCheck::Place RecordCheck::placeOf(std::uint32_t number) const {
    const auto behind = std::upper_bound(_runs.begin(), _runs.end(), number,
                                         [](std::uint32_t n, const Run& run) { return n < run.first; });
    const Run& run = *std::prev(behind);
    return {run.place.file, run.place.line + (number - run.first)};
}

void RecordCheck::findRepeatedMd5() {
    struct Repeat {
        std::uint32_t older, newer;
    };
    std::vector<Repeat> repeats;
    const BmList& list = _set.md5List();
    const bool isWhole = list.visitRepeats([&](std::uint32_t older, std::uint32_t newer) {
        repeats.push_back({older, newer});
    });
    std::sort(repeats.begin(), repeats.end(), [](const Repeat& a, const Repeat& b) { return a.older < b.older; });
    for (const Repeat& repeat : repeats) {
        remarkOnRepeat(placeOf(repeat.older), placeOf(repeat.newer), list.nameOf(repeat.older),
                       list.nameOf(repeat.newer));
    }
    if (isWhole) return;
    _take({Severity::warning, "repeated", file(), 0, 0,
           "so many digests are alike in part that repeated ones were not all found"});
}

void RecordCheck::findRepeatedCheckSums() {
    struct Repeat {
        Place older, newer;
        const char *olderName, *newerName;
    };
    std::vector<Repeat> repeats;
    const CheckSumList& list = _set.checkSumList();
    for (std::size_t target = 0; target < kTargetCount; ++target) {
        const auto records = list.records(static_cast<TARGET_TYPE>(target));
        std::vector<std::uint32_t> order(records.size());
        std::iota(order.begin(), order.end(), 0U);
        std::stable_sort(order.begin(), order.end(),
                         [&](std::uint32_t a, std::uint32_t b) { return keyOf(records[a]) < keyOf(records[b]); });
        for (std::size_t i = 1; i < order.size(); ++i) {
            const CheckSumRecord &older = records[order[i - 1]], &newer = records[order[i]];
            if (keyOf(older) != keyOf(newer)) continue;
            const auto& places = _checkSums[target];
            repeats.push_back({places[order[i - 1]], places[order[i]], list.nameOf(older), list.nameOf(newer)});
        }
    }
    std::sort(repeats.begin(), repeats.end(), [](const Repeat& a, const Repeat& b) { return a.older < b.older; });
    for (const Repeat& repeat : repeats) {
        remarkOnRepeat(repeat.older, repeat.newer, repeat.olderName, repeat.newerName);
    }
}

void RecordCheck::remarkOnRepeat(const Place& older, const Place& newer, std::string_view olderName,
                                 std::string_view newerName) {
    const std::string where = *_files[newer.file] + ":" + std::to_string(newer.line);
    const bool isSame = olderName == newerName;
    _take({Severity::warning, isSame ? "repeated" : "shadowed", *_files[older.file], older.line, 1,
           isSame ? where + " has the same"
                  : where + " matches the same contents, and hides this one: " + std::string(newerName)});
}
