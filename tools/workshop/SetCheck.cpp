#include "SetCheck.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <list>
#include <map>

#include "Decimal.h"
#include "ListCheck.h"
#include "Messages.h"
#include "OptionText.h"
#include "RecordCheck.h"
#include "RecordFiles.h"
#include "Text.h"
#include "VirusList.h"
#include "VoleLibrary.h"
#include "io/FileIo.h"
#include "io/RegularFile.h"

namespace {

namespace text = ZOV_SPACE::text;

using Severity = Remark::Severity;

// The files of a set by what they are.
struct SetFiles {
    std::list<std::string> patterns, options, lists;
};

void sortOut(const std::string& path, SetFiles& files) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) throw LoadError(path + ": " + systemText(errno));
    const std::string name = path.substr(path.rfind('/') + 1);
    if (S_ISREG(status.st_mode) && name == options::kFileName) return files.options.push_back(path);
    if (S_ISREG(status.st_mode) && name == kVirusListFile) return files.lists.push_back(path);
    const auto patterns = patternFilesAt({path});
    files.patterns.insert(files.patterns.end(), patterns.begin(), patterns.end());
    if (!S_ISDIR(status.st_mode)) return;
    for (const auto& [beside, kind] : {std::pair(options::kFileName, &files.options), {kVirusListFile, &files.lists}}) {
        const std::string file = inFolder(path, beside);
        if (::lstat(file.c_str(), &status) == 0) kind->push_back(file);
    }
}

// Remarks on one options file.
class OptionsCheck {
public:
    OptionsCheck(const std::string& file, const TakeRemark& take) : _file(file), _take(take) {}

    void run() {
        const ZOV_SPACE::OwnFd file = ZOV_SPACE::openRegularFile(_file.c_str());
        if (!file) return remark(Severity::error, "file", 0, 0, systemText(errno));
        // As the engine reads it: piece by piece, a long line as several.
        std::string rest;
        char buffer[4096];
        for (ssize_t count = 1; count > 0;) {
            count = ZOV_SPACE::readSome(file.get(), buffer, sizeof buffer);
            if (count < 0) return remark(Severity::error, "file", 0, 0, systemText(errno));
            rest.append(buffer, static_cast<std::size_t>(count));
            takeLines(rest, count == 0);
        }
    }

private:
    void takeLines(std::string& text, bool isLast) {
        std::size_t begin = 0;
        while (begin < text.size()) {
            const std::string_view left = std::string_view(text).substr(begin);
            const std::size_t lineFeed = left.substr(0, options::kMaxLine).find('\n');
            const bool ends = lineFeed != left.npos;
            if (!ends && left.size() < options::kMaxLine && !isLast) break;
            const std::size_t length = ends ? lineFeed + 1 : std::min(left.size(), options::kMaxLine);
            takeLine(left.substr(0, length));
            if (!ends && length == options::kMaxLine) {
                remark(Severity::error, "long-line", _line, length + 1, "what follows is read as another line");
            }
            _line += ends;
            begin += length;
        }
        text.erase(0, begin);
    }

    void takeLine(std::string_view line) {
        const std::string_view known = text::upTo(line, '\0');
        if (known.size() < line.size()) {
            remark(Severity::error, "nul", _line, known.size() + 1, "What stands behind a NUL is left out");
        }
        line = known;
        for (const char* const key : options::kKeys) {
            if (const auto value = options::valueOf(line, key)) return takeValue(key, *value, line);
        }
        const std::string_view setting = text::trim(line);
        if (setting.empty() || options::isComment(line)) return;
        const auto column = static_cast<std::size_t>(setting.data() - line.data()) + 1;
        remark(Severity::warning, "option", _line, column, "sets nothing that the engine knows");
    }

    void takeValue(const std::string& key, std::string_view value, std::string_view line) {
        const std::size_t column =
            value.empty() ? line.find('=') + 2 : static_cast<std::size_t>(value.data() - line.data()) + 1;
        const auto [first, isFirst] = _lineOf.try_emplace(key, _line);
        if (!isFirst) {
            remark(Severity::warning, "repeated", _line, 1,
                   key + " stands in line " + std::to_string(first->second) + " already, which counts");
        } else if (value.empty()) {
            remark(Severity::warning, "option", _line, column, key + " has no value, and keeps its default");
        } else if (std::any_of(value.begin(), value.end(), [](char c) { return c < '0' || c > '9'; })) {
            remark(Severity::error, "option", _line, column,
                   key + " is no decimal number, so the engine ignores the whole file");
        } else if (decimalPrefix(value) == INT_MAX) {
            remark(Severity::warning, "option", _line, column, key + " counts as " + std::to_string(INT_MAX));
        }
    }

    void remark(Severity severity, std::string_view code, std::uint64_t line, std::size_t column, std::string text) {
        _take({severity, code, _file, line, column, std::move(text)});
    }

    const std::string& _file;
    const TakeRemark& _take;
    std::map<std::string, std::uint64_t> _lineOf;
    std::uint64_t _line = 1;
};

}  // namespace

CheckTally checkSet(const CheckOptions& options, const TakeRemark& take) {
    CheckTally tally;
    const TakeRemark counted = [&](const Remark& remark) {
        ++(remark.severity == Severity::error ? tally.errors : tally.warnings);
        take(remark);
    };
    SetFiles files;
    for (const std::string& path : options.paths) sortOut(path, files);
    tally.files = files.patterns.size() + files.options.size() + files.lists.size();
    RecordCheck records(options.names, counted);
    for (const std::string& file : files.patterns) records.load(file);
    for (const std::string& file : files.options) OptionsCheck(file, counted).run();
    for (const std::string& file : files.lists)
        checkLists(file, files.patterns.empty() ? nullptr : &records.set(), counted);
    records.findRepeats();
    tally.records = records.recordCount();
    const bool isSet = tally.files == 0 || !files.patterns.empty();
    if (isSet && tally.records == 0) counted({Severity::error, "empty", options.paths.front(), 0, 0, "no signatures"});
    return tally;
}
