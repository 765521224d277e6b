// The input as the files of a set, one behind another with a mark between each two, and what a check has to say of
// them. The loader has the last word: what the check does not tell of has to be in the set as it stands in the file.
#include <algorithm>
#include <map>
#include <set>

#include "Ascii.h"
#include "OptionText.h"
#include "PatternContainer.h"
#include "PatternLoader.h"
#include "SetCheck.h"
#include "Target.h"
#include "Text.h"
#include "VirusList.h"
#include "VoleOptions.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

namespace text = ZOV_SPACE::text;

using Codes = std::multiset<std::string_view>;

constexpr char kBehindFile = '\x1D';
const std::string kFiles[] = {"a.chk", "a.hdb", "b.hdb", options::kFileName, kVirusListFile};

// Codes of remarks by file and line; the line of remarks on whole files is 0. They come in order.
class Remarks {
public:
    void add(const std::string& name, const Remark& remark) {
        if (PatternContainer::isPatternName(name) && (remark.code == "repeated" || remark.code == "shadowed")) {
            _allLinesTold = true;
            return;
        }
        require(!_allLinesTold);
        std::uint64_t& latest = _latestLine[name];
        require(remark.line == 0 || remark.line >= latest);
        latest = std::max(latest, remark.line);
        _codes[name][remark.line].insert(remark.code);
        _voidOptions = _voidOptions || (remark.code == "option" && remark.severity == Remark::Severity::error);
    }

    const Codes& of(const std::string& name, std::uint64_t line) { return _codes[name][line]; }
    std::size_t count(const std::string& name, std::string_view code) {
        std::size_t count = 0;
        for (const auto& [line, codes] : _codes[name]) count += codes.count(code);
        return count;
    }
    bool haveVoidOptions() const { return _voidOptions; }

private:
    std::map<std::string, std::map<std::uint64_t, Codes>> _codes;
    std::map<std::string, std::uint64_t> _latestLine;
    bool _allLinesTold = false, _voidOptions = false;
};

// Whether the record of an accepted line is what the line says. Lines come in the order of records.
class Records {
public:
    explicit Records(const PatternContainer& set) : _set(set) {}

    bool isNextMd5(std::string_view line) {
        const BmList& list = _set.md5List();
        const auto fields = text::splitFields<3>(line, ":");
        unsigned char digest[Md5::kDigestSize];
        const bool isWhole =
            fields[0].size() == 2 * sizeof digest && text::decodeHex(fields[0], digest) == sizeof digest;
        if (!isWhole || _next == list.count() || fields[2] != list.nameOf(_next++)) return false;
        const bool isFound = list.visitFoundMD5(digest, [&](const char* name) { return name == fields[2]; });
        const auto size = static_cast<std::uint32_t>(
            std::min(std::strtoull(std::string(fields[1]).c_str(), nullptr, 10), 0x7FFFFFFFULL));
        return isFound && list.verifyFileSize(size) &&
               line.size() == fields[0].size() + fields[1].size() + fields[2].size() + 2;
    }

    bool isNextCheckSum(std::string_view line) {
        const auto fields = text::splitFields<10>(line, ":");
        const auto number = [&](std::size_t i) { return std::strtoul(std::string(fields[i]).c_str(), nullptr, 16); };
        const auto word = [&](std::size_t i) { return __builtin_bswap32(static_cast<std::uint32_t>(number(i))); };
        if (number(0) >= kTargetCount) return false;
        const auto records = _set.checkSumList().records(static_cast<TARGET_TYPE>(number(0)));
        std::size_t& next = _nextOf[number(0)];
        if (next == records.size()) return false;
        const CheckSumRecord& record = records[next++];
        return _set.checkSumList().nameOf(record) == fields[9] && line.ends_with(fields[9]) &&
               record.checkString == word(4) && record.checkSum1 == word(5) && record.checkSum2 == word(8) &&
               record.offset1 == static_cast<std::int16_t>(number(2)) && record.length1 == number(3) &&
               record.offset2 == static_cast<std::int16_t>(number(6)) && record.length2 == number(7) &&
               record.offsetType == number(1) >> 8 && record.offsetParameter == (number(1) & 0xFF);
    }

private:
    const PatternContainer& _set;
    std::uint32_t _next = 0;
    std::size_t _nextOf[kTargetCount] = {};
};

bool isComment(std::string_view line) {
    while (!line.empty() && ZOV_SPACE::ascii::isSpace(line.front())) line.remove_prefix(1);
    return line.starts_with('#');
}

// All lines but comments and empty ones are records, as they stand, unless there is a remark that says what else.
void compareWithLoad(const std::string& path, const std::string& name, std::string_view content, Remarks& remarks) {
    PatternContainer alone;
    require(alone.loadPattern(path) == 0);
    alone.prepare();
    if (remarks.count(name, "long-line") != 0) return;
    Records records(alone);
    const bool isMd5 = name.ends_with(kMd5FileSuffix);
    int accepted = 0;
    for (std::uint64_t number = 1; !content.empty(); ++number) {
        std::string_view line = content.substr(0, content.find('\n'));
        content.remove_prefix(std::min(line.size() + 1, content.size()));
        line = text::trimEnd(line, "\r");
        if (line.empty() || isComment(line)) continue;
        const Codes& codes = remarks.of(name, number);
        if (codes.count("malformed") + codes.count("beyond-count") + codes.count("no-line-feed") != 0) continue;
        ++accepted;
        const bool isAsItStands = isMd5 ? records.isNextMd5(line) : records.isNextCheckSum(line);
        require(isAsItStands ||
                codes.count("nul") + codes.count("behind-name") + codes.count("size") + codes.count("field") != 0);
    }
    require(accepted == alone.loadedCount());
}

std::string folded(std::string name) {
    for (char& c : name) c = ZOV_SPACE::ascii::toLower(c);
    return name;
}

// Listed names that are told to be no record's, counted one by one.
std::size_t countUnused(const std::vector<std::string>& listed, const std::vector<std::string>& names, bool isPrefix) {
    std::set<std::string> distinct;
    for (const std::string& name : listed) distinct.insert(folded(name));
    return static_cast<std::size_t>(std::count_if(distinct.begin(), distinct.end(), [&](const std::string& entry) {
        return !entry.empty() && std::none_of(names.begin(), names.end(), [&](const std::string& name) {
            return isPrefix ? name.starts_with(entry) : name == entry;
        });
    }));
}

std::vector<std::string> namesIn(const PatternContainer& set) {
    std::vector<std::string> names;
    for (std::uint32_t i = 0; i < set.md5List().count(); ++i) names.push_back(folded(set.md5List().nameOf(i)));
    for (std::size_t target = 0; target < kTargetCount; ++target) {
        for (const CheckSumRecord& record : set.checkSumList().records(static_cast<TARGET_TYPE>(target))) {
            names.push_back(folded(set.checkSumList().nameOf(record)));
        }
    }
    return names;
}

void compareWithLists(const std::string& folder, const PatternContainer& set, Remarks& remarks) {
    VirusList list;
    require((loadVirusList(&list, folder) == VOLE_INVALID_LIST) == (remarks.count(kVirusListFile, "list") == 1));
    const auto names = namesIn(set);
    require(remarks.count(kVirusListFile, "unused") ==
            countUnused(list.falseAlarms(), names, false) + countUnused(list.spyware(), names, true));
}

}  // namespace

void checkFiles(std::string_view input) {
    static const TempDir dir;
    const std::string folder = dir.path().string();
    std::map<std::string, std::string> contents;
    for (const std::string& name : kFiles) {
        const std::string_view content = input.substr(0, name == kVirusListFile ? input.npos : input.find(kBehindFile));
        input.remove_prefix(std::min(content.size() + 1, input.size()));
        dir.write(name, contents[name] = content);
    }
    Remarks remarks;
    const CheckTally tally = checkSet({{folder}, ""}, [&](const Remark& remark) {
        const std::string& path = remark.file;
        const std::string name = path.substr(path.rfind('/') + 1);
        remarks.add(name, remark);
        // Versions of expat may differ, and texts may name the folder.
        if (name != kVirusListFile) note(std::string(remark.code) + " " + std::to_string(remark.column) + "\n");
    });
    PatternContainer set;
    for (const std::string& name : kFiles) {
        if (!PatternContainer::isPatternName(name)) continue;
        require(set.loadPattern(dir / name) == 0);
        compareWithLoad(dir / name, name, contents[name], remarks);
    }
    require(tally.files == std::size(kFiles) && tally.records == static_cast<std::uint64_t>(set.loadedCount()));
    compareWithLists(folder, set, remarks);
    VoleOptions::set({1, 1, 1, 1, 1});
    require((readOptions(dir / options::kFileName) == VOLE_INVALID_OPTION) == remarks.haveVoidOptions());
}
