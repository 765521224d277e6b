#include "Explain.h"

#include "Contents.h"
#include "Escape.h"
#include "Explanation.h"
#include "JsonText.h"
#include "ScratchSet.h"
#include "Text.h"

namespace {

RecordKind kindLike(std::string_view text) {
    constexpr std::size_t kDigestDigits = 2 * Md5::kDigestSize;
    return text.find(':') == kDigestDigits ? RecordKind::md5 : RecordKind::checkSum;
}

class Collecting final : public RecordVisitor {
public:
    Collecting(const std::string& name, std::vector<KeptRecord>& records) : _name(name), _records(records) {}

    void onRecord(const Record& record) override {
        constexpr std::size_t kMostRecords = 1000;
        if (record.name != _name) return;
        if (_records.size() == kMostRecords) throw LoadError("too many records are named " + _name);
        _records.emplace_back(record);
    }

private:
    const std::string& _name;
    std::vector<KeptRecord>& _records;
};

class Report {
public:
    virtual ~Report() = default;
    virtual void onContent(const KeptRecord& record, const SeenContent& seen, const Explanation& explanation) = 0;
    virtual void onTrouble(const KeptRecord& record, const SeenContent& seen, const std::string& text) = 0;
    virtual void onEnd(const FileReport& report, std::uint64_t matches) = 0;
};

class TextReport final : public Report {
public:
    TextReport(const std::string& file, std::ostream& out) : _file(file), _out(out) {}

    void onContent(const KeptRecord& record, const SeenContent& seen, const Explanation& explanation) override {
        _out << beginOf(record, seen) << (explanation.matches() ? " matches" : " does not match: ") << explanation.text
             << '\n';
    }

    void onTrouble(const KeptRecord& record, const SeenContent& seen, const std::string& text) override {
        _out << beginOf(record, seen) << ": ERROR " << text << '\n';
    }

    void onEnd(const FileReport& report, std::uint64_t) override {
        if (report.outcome == Outcome::failed) return say("ERROR ", {}, report.error);
        for (const Reason& reason : report.reasons) say("NOT SEEN ", reason.member, reason.text);
        const std::uint64_t untold = report.counters.reasons - report.reasons.size();
        if (untold != 0) say("NOT SEEN ", {}, std::to_string(untold) + " more");
    }

private:
    std::string beginOf(const KeptRecord& record, const SeenContent& seen) const {
        std::string line = displayName(_file, seen.member) + (seen.isRaw() ? ": " : " (normalised text): ");
        appendEscaped(line, record.label());
        return line;
    }

    void say(const char* what, const MemberPath& member, const std::string& text) {
        std::string line = displayName(_file, member) + ": " + what;
        appendEscaped(line, text);
        _out << line << '\n';
    }

    const std::string& _file;
    std::ostream& _out;
};

class JsonReport final : public Report {
public:
    JsonReport(const std::string& file, std::ostream& out) : _file(file), _out(out) {}

    void onContent(const KeptRecord& record, const SeenContent& seen, const Explanation& explanation) override {
        json::Json line = beginOf(record, seen);
        line["match"] = explanation.matches();
        if (!explanation.matches()) {
            line["step"] = nameOf(explanation.step);
            line["text"] = explanation.text;
        }
        if (!explanation.expected.empty()) {
            line["expected"] = explanation.expected;
            line["actual"] = explanation.actual;
        }
        _out << json::lineOf(line) << '\n';
    }

    void onTrouble(const KeptRecord& record, const SeenContent& seen, const std::string& text) override {
        json::Json line = beginOf(record, seen);
        line["error"] = text;
        _out << json::lineOf(line) << '\n';
    }

    void onEnd(const FileReport& report, std::uint64_t matches) override {
        json::Json reasons = json::Json::array();
        for (const Reason& reason : report.reasons) reasons.push_back(json::reasonOf(reason));
        json::Json line = {{"path", json::textOf(_file)}, {"matches", matches}, {"reasons", reasons}};
        if (report.outcome == Outcome::failed) line["error"] = json::textOf(report.error);
        _out << json::lineOf(line) << '\n';
    }

private:
    json::Json beginOf(const KeptRecord& record, const SeenContent& seen) const {
        json::Json line = {{"path", json::textOf(_file)},
                           {"member", json::memberOf(seen.member)},
                           {"form", vole_form_name(seen.content.form)},
                           {"size", seen.content.size},
                           {"record", json::textOf(record.record().text)}};
        if (!record.record().file) return line;
        line["file"] = json::textOf(*record.record().file);
        line["line"] = record.record().line;
        return line;
    }

    const std::string& _file;
    std::ostream& _out;
};

std::unique_ptr<Report> newReport(const std::string& file, const ExplainTerms& terms, std::ostream& out) {
    if (terms.json) return std::make_unique<JsonReport>(file, out);
    return std::make_unique<TextReport>(file, out);
}

class Explaining final : public ContentVisitor {
public:
    Explaining(const std::vector<KeptRecord>& records, Report& report) : _records(records), _report(report) {}

    void onContent(const SeenContent& seen) override {
        Explainer explainer(seen.content);
        for (const KeptRecord& record : _records) {
            try {
                const Explanation explanation = explainer.explain(record.record());
                _report.onContent(record, seen, explanation);
                _matches += explanation.matches();
            } catch (const LoadError& error) {
                _report.onTrouble(record, seen, error.what());
                _isWhole = false;
            }
        }
    }

    std::uint64_t matches() const { return _matches; }
    bool isWhole() const { return _isWhole; }

private:
    const std::vector<KeptRecord>& _records;
    Report& _report;
    std::uint64_t _matches = 0;
    bool _isWhole = true;
};

}  // namespace

KeptRecord::KeptRecord(std::string_view text, std::optional<RecordKind> kind)
    : _text(std::make_unique<const std::string>(ZOV_SPACE::text::trimEnd(text, ZOV_SPACE::text::kLineEnds))) {
    if (const auto fault = parseRecord(kind.value_or(kindLike(*_text)), *_text, _record)) {
        throw LoadError("not a record: " + fault->message());
    }
    _label = _record.name;
}

KeptRecord::KeptRecord(const Record& record) : KeptRecord(record.text, record.kind) {
    _file = std::make_unique<const std::string>(*record.file);
    _record.file = _file.get();
    _record.line = record.line;
    _label += " (" + *_file + ':' + std::to_string(record.line) + ')';
}

std::vector<KeptRecord> recordsNamed(const std::string& path, const std::string& name) {
    std::vector<KeptRecord> records;
    Collecting collecting(name, records);
    for (const std::string& file : patternFilesAt({path})) readRecords(file, collecting);
    if (records.empty()) throw LoadError(path + ": no record is named " + name);
    return records;
}

ExitCode explainFiles(const std::vector<KeptRecord>& records, const std::vector<std::string>& files,
                      const ExplainTerms& terms, std::ostream& out) {
    const SignaturesHandle nothing = scratchSet("");
    bool isFound = false, isWhole = true;
    for (const std::string& file : files) {
        const auto report = newReport(file, terms, out);
        Explaining explaining(records, *report);
        const FileReport seen = walkContents(nothing.get(), terms.limits, terms.flags, file, explaining);
        report->onEnd(seen, explaining.matches());
        isFound = isFound || explaining.matches() != 0;
        isWhole = isWhole && explaining.isWhole() && seen.outcome != Outcome::failed &&
                  (terms.incompleteIsFine || seen.reasons.empty());
    }
    if (isFound) return kExitFound;
    return isWhole ? kExitClean : kExitErrors;
}
