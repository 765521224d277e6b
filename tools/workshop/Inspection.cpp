#include "Inspection.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "ContentTree.h"
#include "Escape.h"
#include "Messages.h"
#include "TreeReport.h"

namespace {

// Writes normalised texts as the scan comes to them, since together they may be large.
class NormalisedTexts : public ContentVisitor {
public:
    NormalisedTexts(const std::string& file, bool escapes, std::ostream& out)
        : _file(file), _escapes(escapes), _out(out) {}

    void onContent(const SeenContent& seen) override {
        if (seen.isRaw()) return;
        _hasAny = true;
        std::string text;
        readPieces(seen.content, [&text](const char* piece, std::size_t size) { text.append(piece, size); });
        if (_escapes) {
            writeEscaped(displayName(_file, seen.member), text);
        } else {
            _out << text;
        }
    }

    bool hasAny() const { return _hasAny; }

private:
    void writeEscaped(const std::string& name, std::string_view text) {
        _out << "==> " << name << " <==\n";
        while (!text.empty()) {
            const std::size_t length = std::min(text.find('\n'), text.size());
            std::string line;
            appendEscaped(line, text.substr(0, length));
            _out << line << '\n';
            text.remove_prefix(std::min(length + 1, text.size()));
        }
    }

    const std::string& _file;
    bool _escapes;
    std::ostream& _out;
    bool _hasAny = false;
};

void tellOfRest(FileReport& report, std::uint64_t leftOut) {
    if (leftOut == 0) return;
    const std::string text = std::to_string(leftOut) + " contents, findings and reasons are not shown";
    report.reasons.push_back(reasonFor(VOLE_REASON_MEMORY, text));
    ++report.counters.reasons;
    if (report.outcome == Outcome::clean) report.outcome = Outcome::incomplete;
}

class Inspection {
public:
    Inspection(vole_signatures* signatures, const InspectOptions& options, std::ostream& out)
        : _signatures(signatures), _options(options), _out(out) {
        if (!options.extractTo.empty()) _folder.emplace(options.extractTo);
    }

    void add(const std::string& path) {
        try {
            const FileReport report = _options.normalised ? writeTexts(path) : writeTree(path);
            _isFound = _isFound || report.outcome == Outcome::found;
            _isWhole = _isWhole && (report.outcome == Outcome::clean || report.outcome == Outcome::found);
        } catch (const LoadError& error) {
            refuse(path, error.what());
        }
    }

    ExitCode exitCode() const { return _isFound ? kExitFound : _isWhole ? kExitClean : kExitErrors; }

private:
    FileReport walk(const std::string& path, ContentVisitor& visitor) const {
        const std::uint32_t flags = _options.shallow ? VOLE_SCAN_SHALLOW : 0;
        if (path == "-") return walkStandardInput(_signatures, _options.limits, flags, visitor);
        return walkContents(_signatures, _options.limits, flags, path, visitor);
    }

    FileReport writeTree(const std::string& path) {
        ContentTree tree(_folder ? &*_folder : nullptr);
        FileReport report;
        try {
            report = walk(path, tree);
        } catch (const LoadError& error) {
            // What was seen before is shown.
            report.path = path;
            report.outcome = Outcome::failed;
            report.error = error.what();
            complain(path + ": " + report.error);
        }
        tellOfRest(report, tree.leftOut());
        if (_options.json) {
            writeJson(tree, report, _out);
        } else {
            writeTable(tree, report, _out);
        }
        return report;
    }

    FileReport writeTexts(const std::string& path) {
        NormalisedTexts texts(path, _options.escapes, _out);
        FileReport report = walk(path, texts);
        if (report.outcome == Outcome::failed) {
            refuse(path, report.error);
        } else if (!texts.hasAny()) {
            refuse(path, "nothing in it has a normalised text");
        }
        for (const Reason& reason : report.reasons) complain(path + ": " + reason.text);
        return report;
    }

    void refuse(const std::string& path, const std::string& why) {
        complain(path + ": " + why);
        _isWhole = false;
    }

    vole_signatures* _signatures;
    const InspectOptions& _options;
    std::ostream& _out;
    std::optional<MemberFolder> _folder;
    bool _isFound = false;
    bool _isWhole = true;  // Nothing is missing of what was asked for.
};

}  // namespace

ExitCode inspectFiles(vole_signatures* signatures, const InspectOptions& options, const std::vector<std::string>& paths,
                      std::ostream& out) {
    Inspection inspection(signatures, options, out);
    for (const std::string& path : paths) inspection.add(path);
    if (out.flush()) return inspection.exitCode();
    complain("cannot write the report");
    return inspection.exitCode() == kExitFound ? kExitFound : kExitErrors;
}
