// "vole sig make" with the words "md5" and "checksum".
#include <algorithm>
#include <charconv>
#include <iostream>

#include "FileWalker.h"
#include "MakeCheckSum.h"
#include "MakeMd5.h"
#include "Messages.h"
#include "ReadingOptions.h"
#include "RecordAppender.h"
#include "SearchOptions.h"
#include "SigCommand.h"

namespace {

// What both words have in common.
class Making : public Command {
public:
    ExitCode run() const override {
        const RecordNames names(_name);
        NewRecords records;
        const bool isWhole = make(names, records);
        if (!_appendTo.empty()) {
            appendRecords(_appendTo, _kind, records.lines(), complain);
        } else {
            for (const std::string& line : records.lines()) std::cout << line << '\n';
        }
        return written(isWhole ? kExitClean : kExitErrors);
    }

protected:
    Making(CLI::App& app, RecordKind kind) : Command(app), _kind(kind), _reading(this->app()) {
        this->app().footer("Exit status: 0 a record of everything, 2 something went wrong or was not seen.");
        _files = addFiles(this->app(), "FILE", "Files to make records of");
        this->app().add_flag("--members", _choice.members, "Of archive members, too");
        addValueOption(this->app(), "--member", "NAME",
                       "Only of the member with this path in the file, or with the names of this list in JSON",
                       [this](const std::string& text) -> std::string {
                           _choice.member.emplace(text);
                           return "";
                       })
            ->check(notEmpty());
        this->app().add_flag_callback(
            "--text", [this] { _choice.form = VOLE_FORM_NORMALISED; }, "Of the normalised text instead of the bytes");
        addTextOption(this->app(), "--name", _name, "NAME",
                      "Name of the records; in it %f is the file's name, %m the member's, %n a number, %% is %\n"
                      "(default: %f, for members %f/%m)");
        addTextOption(this->app(), "--append", _appendTo, "FILE", "Add the records to FILE, if it does not have them");
    }

    virtual bool make(const RecordNames& names, NewRecords& records) const = 0;

    std::vector<std::string> files() const { return _files->results(); }
    const ContentChoice& choice() const { return _choice; }
    ReadingTerms terms() const { return {_reading.limits(), _reading.flags(), _reading.incompleteIsFine(), complain}; }

private:
    RecordKind _kind;
    ReadingOptions _reading;
    ContentChoice _choice;
    CLI::Option* _files;
    std::string _name, _appendTo;
};

class MakeMd5 : public Making {
public:
    explicit MakeMd5(CLI::App& make)
        : Making(*make.add_subcommand("md5", "Write MD5 records of whole contents"), RecordKind::md5) {}

private:
    bool make(const RecordNames& names, NewRecords& records) const override {
        return makeMd5Records(files(), choice(), names, terms(), records);
    }
};

class MakeCheckSum : public Making {
public:
    explicit MakeCheckSum(CLI::App& make)
        : Making(*make.add_subcommand("checksum", "Write check-sum records, which a scan has proven"),
                 RecordKind::checkSum) {
        addValueOption(app(), "--from", "PLACE",
                       "What offsets count from: start, end, entry (point of a PE executable) or section:N\n"
                       "(default: start)",
                       [this](const std::string& text) -> std::string {
                           const auto anchor = parseAnchor(text);
                           _how.anchor = anchor.value_or(Anchor{});
                           return anchor ? "" : "must be start, end, entry or section:0 to section:255";
                       });
        addValueOption(app(), "--length", "N", "Bytes of each range, if there are so many (default: 128)",
                       [this](const std::string& text) { return readLength(text); });
        _notIn = app().add_option("--not-in",
                                  "Make no record that matches something in DIR, a folder or file. May be given\n"
                                  "several times");
        _notIn->type_name("DIR")->take_all()->check(notEmpty());
    }

private:
    bool make(const RecordNames& names, NewRecords& records) const override {
        CheckSumTerms how = _how;
        for (const std::string& root : _notIn->results()) addFilesBelow(root, how.corpus);
        return makeCheckSumRecords(files(), choice(), how, names, terms(), records);
    }

    // What cannot be read might have what a record is to be proven against.
    static void addFilesBelow(const std::string& root, std::vector<std::string>& paths) {
        const WalkRules rules;
        FileWalker walker(root, rules);
        while (walker.next()) {
            if (!walker.error().empty()) throw LoadError(walker.path() + ": " + walker.error());
            paths.push_back(walker.path());
        }
    }

    std::string readLength(const std::string& text) {
        constexpr unsigned kLeast = 4;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, _how.length);
        const bool isGood = error == std::errc() && stop == end && _how.length >= kLeast;
        return isGood ? "" : "must be a number from 4 to 255";
    }

    CheckSumTerms _how;
    CLI::Option* _notIn;
};

class SigMake : public Command {
public:
    explicit SigMake(CLI::App& sig) : Command(*sig.add_subcommand("make", "Write records of files")) {
        app().require_subcommand(1);
        _md5 = std::make_unique<MakeMd5>(app());
        _checkSum = std::make_unique<MakeCheckSum>(app());
    }

    ExitCode run() const override { return (_md5->isAsked() ? *_md5 : *_checkSum).run(); }

private:
    std::unique_ptr<Command> _md5, _checkSum;
};

}  // namespace

std::unique_ptr<Command> newSigMake(CLI::App& sig) { return std::make_unique<SigMake>(sig); }
