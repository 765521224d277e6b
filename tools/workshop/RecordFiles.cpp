#include "RecordFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "Exception.h"
#include "Messages.h"
#include "RecordText.h"
#include "VoleLibrary.h"
#include "io/File.h"
#include "util/XMLTree.h"

namespace {

// Takes accepted lines apart again: the loader has kept less of them.
class Parsing : public LoadObserver {
public:
    Parsing(const std::string& file, RecordVisitor& visitor) : _file(file), _visitor(visitor) {}

    void onProblem(const PatternLine& line, const RecordFault& fault) override {
        attempt([&] { _visitor.onProblem(_file, line, fault); });
    }

    void onRecords(RecordKind kind, std::string_view texts, std::uint64_t firstLine) override {
        attempt([&] {
            for (std::uint64_t line = firstLine; !texts.empty(); ++line) {
                const std::size_t length = std::min(texts.find('\n'), texts.size());
                tell(kind, texts.substr(0, length), line);
                texts.remove_prefix(std::min(length + 1, texts.size()));
            }
        });
    }

    void rethrow() const {
        if (_failure) std::rethrow_exception(_failure);
    }

private:
    // An observer of records must not throw.
    template <class Call>
    void attempt(Call call) {
        if (_failure) return;
        try {
            call();
        } catch (...) {
            _failure = std::current_exception();
        }
    }

    void tell(RecordKind kind, std::string_view text, std::uint64_t line) {
        Record record{};
        if (parseRecord(kind, text, record)) return;
        record.file = &_file;
        record.line = line;
        _visitor.onRecord(record);
    }

    const std::string& _file;
    RecordVisitor& _visitor;
    std::exception_ptr _failure;
};

void addFilesOf(const std::string& folder, std::vector<std::string>& files) {
    std::vector<std::string> names;
    if (!ZOV_SPACE::File(folder).list(names)) throw LoadError(folder + ": " + systemText(errno));
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string path = inFolder(folder, name);
        struct stat status;
        const bool isFile =
            PatternContainer::isPatternName(name) && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
        if (isFile) files.push_back(path);
    }
}

}  // namespace

std::string inFolder(const std::string& folder, const std::string& name) {
    return folder + (folder.ends_with('/') ? "" : "/") + name;
}

std::optional<RecordFault> parseRecord(RecordKind kind, std::string_view text, Record& out) {
    out = {kind, text, {}};
    if (kind == RecordKind::checkSum) return parseCheckSumRecord(text, out.checkSum, out.name);
    Md5Text fields{};
    if (auto fault = splitMd5Record(text, fields)) return fault;
    out.name = fields.name;
    out.size = fields.size;
    return decodeMd5Digits(fields.digits, out.digest);
}

void RecordVisitor::onProblem(const std::string&, const PatternLine&, const RecordFault&) {}

std::vector<std::string> patternFilesAt(const std::vector<std::string>& paths) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        struct stat status;
        if (::stat(path.c_str(), &status) != 0) throw LoadError(path + ": " + systemText(errno));
        if (S_ISDIR(status.st_mode)) {
            addFilesOf(path, files);
        } else if (S_ISREG(status.st_mode) && PatternContainer::isPatternName(path)) {
            files.push_back(path);
        } else {
            throw LoadError(path + ": neither a pattern directory nor a file named *" + kMd5FileSuffix + " or *" +
                            kCheckSumFileSuffix);
        }
    }
    return files;
}

void readListsOf(const std::string& folder, VirusList& list) {
    const auto parser = ZOV_SPACE::XMLParser::createDefaultXMLParser();
    if (!parser) throw std::bad_alloc();
    const std::string file = inFolder(folder, kVirusListFile);
    try {
        const bool opened = readVirusList(*parser, file, list);
        if (!opened && !PatternContainer::meansNoFile(errno)) throw LoadError(file + ": " + systemText(errno));
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (ZOV_SPACE::Exception& e) {
        throw LoadError(file + ": " + e.getMessage());
    }
}

void readRecords(const std::string& file, PatternContainer& set, RecordVisitor& visitor) {
    Parsing parsing(file, visitor);
    try {
        const int result = set.loadPattern(file, &parsing);
        if (result != 0) throw LoadError(file + ": " + systemText(errno));
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (ZOV_SPACE::Exception& e) {
        throw LoadError(file + ": " + e.getMessage());
    }
    parsing.rethrow();
}

void readRecords(const std::string& file, RecordVisitor& visitor) {
    PatternContainer set;
    readRecords(file, set, visitor);
}
