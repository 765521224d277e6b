// "vole sig list" and "vole sig find".
#include <charconv>
#include <iostream>

#include "Escape.h"
#include "JsonText.h"
#include "RecordFilter.h"
#include "SigCommand.h"
#include "Text.h"
#include "VoleLibrary.h"

namespace {

// Every form of a record: its line as it stands, with its place, as an object.
class Listing : public RecordVisitor {
public:
    // `print` makes a line's text fit to be printed.
    Listing(const RecordFilter& filter, bool places, bool json, std::string (*print)(std::string_view))
        : _filter(filter), _places(places), _json(json), _print(print) {}

    void onRecord(const Record& record) override {
        if (!_filter.fits(record)) return;
        ++_count;
        std::cout << (_json ? jsonOf(record) : lineOf(record));
    }

    std::uint64_t count() const { return _count; }

private:
    std::string lineOf(const Record& record) const {
        std::string line;
        if (_places) {
            appendEscaped(line, *record.file);
            line += ":" + std::to_string(record.line) + ": ";
        }
        return line.append(_print(record.text)) += '\n';
    }

    static std::string jsonOf(const Record& record) {
        json::Json object = {{"file", json::textOf(*record.file)},
                             {"line", record.line},
                             {"kind", record.kind == RecordKind::md5 ? "md5" : "checksum"},
                             {"name", json::textOf(record.name)}};
        if (record.kind == RecordKind::md5) {
            object["md5"] = ZOV_SPACE::text::hexOf(record.digest);
            object["size"] = record.size;
        }
        object["record"] = json::textOf(record.text);
        return json::lineOf(object) + "\n";
    }

    const RecordFilter& _filter;
    bool _places, _json;
    std::string (*_print)(std::string_view);
    std::uint64_t _count = 0;
};

class SigList : public Command {
public:
    explicit SigList(CLI::App& sig) : SigList(*sig.add_subcommand("list", "Print the records of a set"), false) {}

    ExitCode run() const override {
        Listing listing(_filter, _places, _json, printable);
        for (const std::string& file : patternFilesAt(_paths)) readRecords(file, listing);
        return written(_isSearch && listing.count() == 0 ? kExitFound : kExitClean);
    }

protected:
    SigList(CLI::App& word, bool isSearch) : Command(word), _isSearch(isSearch) {
        addPaths("PATH", _paths, "Pattern directories and files");
        app().add_flag("-n,--places", _places, "Put file and line before each");
        app().add_flag("--json", _json, "Print lines of JSON");
    }

    RecordFilter _filter;

private:
    std::vector<std::string> _paths;
    bool _isSearch, _places = false, _json = false;
};

class SigFind : public SigList {
public:
    explicit SigFind(CLI::App& sig)
        : SigList(*sig.add_subcommand("find", "Print the records that fit all that is asked"), true) {
        addValue("--name", "GLOB", "a shell pattern", "The name fits this shell pattern, whatever its letters' case",
                 [this](const std::string& text) { return !(_filter.name = text).empty(); });
        addValue("--md5", "DIGITS", "an even number of hexadecimal digits, at most 32", "The digest begins so",
                 [this](const std::string& text) {
                     _filter.digest.resize(text.size() / 2);
                     const std::size_t bytes = ZOV_SPACE::text::decodeHex(text, _filter.digest.data());
                     return !text.empty() && text.size() % 2 == 0 && bytes == text.size() / 2 &&
                            bytes <= Md5::kDigestSize;
                 });
        addValue("--size", "BYTES", "a number", "The content has that size", [this](const std::string& text) {
            const char* const end = text.data() + text.size();
            const auto [rest, error] = std::from_chars(text.data(), end, _filter.size.emplace());
            return error == std::errc() && rest == end;
        });
        addValue("--text", "TEXT", "a text", "That stands somewhere in the line",
                 [this](const std::string& text) { return !(_filter.text = text).empty(); });
        addValue("--kind", "md5|checksum", "md5 or checksum", "What kind it is", [this](const std::string& text) {
            _filter.kind = text == "md5" ? RecordKind::md5 : RecordKind::checkSum;
            return text == "md5" || text == "checksum";
        });
        app().footer("Exit status: 0 some were found, 1 none, 2 errors.");
    }

private:
    // `read` takes the text over; false when it is no such value.
    template <class Read>
    void addValue(const char* name, const char* placeholder, const char* what, const char* help, Read read) {
        const auto take = [name, what, read](const std::string& text) {
            if (!read(text)) throw CLI::ValidationError(name, std::string("must be ") + what + ", not \"" + text + '"');
        };
        app().add_option_function<std::string>(name, take, help)->type_name(placeholder);
    }
};

}  // namespace

std::unique_ptr<Command> newSigList(CLI::App& sig) { return std::make_unique<SigList>(sig); }
std::unique_ptr<Command> newSigFind(CLI::App& sig) { return std::make_unique<SigFind>(sig); }
