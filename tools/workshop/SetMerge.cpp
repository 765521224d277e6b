#include "SetMerge.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <set>
#include <system_error>
#include <tuple>

#include "Messages.h"
#include "RecordKey.h"
#include "VirusList.h"
#include "VoleLibrary.h"
#include "io/FileIo.h"
#include "io/NewFile.h"

namespace {

// A file that is written in pieces, and there once it has taken its name.
class Written {
public:
    explicit Written(std::string path) : _path(std::move(path)), _file(_path) {
        if (!_file) fail();
        std::error_code none;
        if (std::filesystem::is_directory(_path, none)) throw LoadError("cannot write " + _path + ": it is a folder");
    }

    void add(std::string_view line) {
        constexpr std::size_t kPiece = std::size_t{256} << 10;
        _text.append(line) += '\n';
        if (_text.size() >= kPiece) flush();
    }

    // All is on the disk, and nothing replaced yet.
    void settle() {
        flush();
        if (!_file.settle()) fail();
    }

    void takeName() {
        if (!_file.takeName()) fail();
    }

private:
    void flush() {
        if (!ZOV_SPACE::writeAll(_file.fd(), _text.data(), _text.size())) fail();
        _text.clear();
    }
    [[noreturn]] void fail() const { throw LoadError("cannot write " + _path + ": " + systemText(errno)); }

    std::string _path;
    ZOV_SPACE::NewFile _file;
    std::string _text;
};

// By number: whether a record comes again, later on.
std::vector<bool> repeatedRecords(const std::vector<std::string>& files, bool oneName) {
    std::vector<KeyedRecord> records = keyedRecords(files);
    if (oneName) {
        for (KeyedRecord& record : records) record.nameHash = 0;
    }
    std::sort(records.begin(), records.end(), [](const KeyedRecord& a, const KeyedRecord& b) {
        return std::tie(a.key, a.nameHash, a.number) < std::tie(b.key, b.nameHash, b.number);
    });
    std::vector<bool> repeated(records.size());
    for (std::size_t i = 1; i < records.size(); ++i) {
        const KeyedRecord &before = records[i - 1], &record = records[i];
        if (before.key == record.key && before.nameHash == record.nameHash) repeated[before.number] = true;
    }
    return repeated;
}

const std::string kMd5File = std::string("merged") + kMd5FileSuffix;
const std::string kCheckSumFile = std::string("merged") + kCheckSumFileSuffix;

void prepareFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw LoadError("cannot make " + folder + ": " + error.message());
    const auto files = patternFilesAt({folder});
    const auto isOther = [](const std::string& file) {
        const std::string name = file.substr(file.rfind('/') + 1);
        return name != kMd5File && name != kCheckSumFile;
    };
    const auto other = std::find_if(files.begin(), files.end(), isOther);
    if (other != files.end()) throw LoadError(folder + " has other pattern files: " + *other);
}

// The names of both lists, each once, in the order in which they first stand there.
struct Lists {
    std::vector<std::string> falseAlarms, spyware;

    void read(const std::string& folder) {
        VirusList list;
        readListsOf(folder, list);
        for (const std::string& name : list.falseAlarms()) add(falseAlarms, _seen[0], name);
        for (const std::string& name : list.spyware()) add(spyware, _seen[1], name);
    }

    bool empty() const { return falseAlarms.empty() && spyware.empty(); }

private:
    static void add(std::vector<std::string>& names, std::set<std::string>& seen, const std::string& name) {
        if (seen.insert(name).second) names.push_back(name);
    }

    std::set<std::string> _seen[2];
};

std::string xmlItem(const std::string& name) {
    std::string item = "    <item name=\"";
    for (const char c : name) {
        if (static_cast<unsigned char>(c) < ' ' || c == '&' || c == '<' || c == '"') {
            item.append("&#").append(std::to_string(c)) += ';';
        } else {
            item += c;
        }
    }
    return item + "\"/>";
}

// The files of the merged set, which are replaced when all of them are on the disk.
class MergedFiles {
public:
    MergedFiles(const std::string& folder, const Lists& lists)
        : _md5s(_files.emplace_back(inFolder(folder, kMd5File))),
          _checkSums(_files.emplace_back(inFolder(folder, kCheckSumFile))) {
        const std::string listFile = inFolder(folder, kVirusListFile);
        const bool isThere = std::filesystem::exists(std::filesystem::symlink_status(listFile));
        // An old one's false alarms are none of these sets'.
        if (isThere || !lists.empty()) write(lists, _files.emplace_back(listFile));
    }

    void add(const Record& record) { (record.kind == RecordKind::md5 ? _md5s : _checkSums).add(record.text); }

    void finish() {
        for (Written& file : _files) file.settle();
        for (Written& file : _files) file.takeName();
    }

private:
    static void write(const Lists& lists, Written& file) {
        file.add("<pattern-assistant>");
        for (const auto& [element, names] :
             {std::pair("FalseAlarm", &lists.falseAlarms), std::pair("Spyware", &lists.spyware)}) {
            file.add(std::string("  <") + element + ">");
            for (const std::string& name : *names) file.add(xmlItem(name));
            file.add(std::string("  </") + element + ">");
        }
        file.add("</pattern-assistant>");
    }

    std::deque<Written> _files;
    Written &_md5s, &_checkSums;
};

}  // namespace

MergeTally mergeSets(const MergeOptions& options) {
    const auto files = patternFilesAt(options.paths);
    Lists lists;
    for (const std::string& path : options.paths) {
        if (std::filesystem::is_directory(path)) lists.read(path);
    }
    const std::vector<bool> repeated = repeatedRecords(files, options.oneName);
    prepareFolder(options.folder);
    MergedFiles merged(options.folder, lists);
    MergeTally tally;
    eachRecord(files, [&](const Record& record, std::uint64_t number) {
        if (number < repeated.size() && repeated[static_cast<std::size_t>(number)]) {
            ++tally.repeated;
        } else {
            ++tally.records;
            merged.add(record);
        }
    });
    if (tally.records + tally.repeated != repeated.size()) throw LoadError("the files changed meanwhile");
    merged.finish();
    return tally;
}
