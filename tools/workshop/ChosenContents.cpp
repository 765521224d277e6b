#include "ChosenContents.h"

#include "ScratchSet.h"

namespace {

// Ends a walk that has shown enough.
struct Enough {};

class Choosing final : public ContentVisitor {
public:
    Choosing(const std::string& path, const ContentChoice& choice,
             const std::function<void(const SeenContent& seen)>& take)
        : _path(path), _choice(choice), _take(take) {}

    void onContent(const SeenContent& seen) override {
        // Behind the file's raw bytes comes its text at once, if it has one.
        if (_choice.isFileOnly() && !seen.member.empty()) throw Enough{};
        if (!_choice.takes(seen)) return;
        if (_count++ == 0) _first = seen.member;
        if (_choice.member && seen.member != _first) refuse(seen.member);
        _take(seen);
        if (_choice.isFileOnly()) throw Enough{};
    }

    std::uint64_t count() const { return _count; }

private:
    [[noreturn]] void refuse(const MemberPath& other) const {
        throw LoadError(_path + ": " + _choice.member->text() + " may be " + listOf(_first) + " or " + listOf(other) +
                        ": give one of these instead");
    }

    const std::string& _path;
    const ContentChoice& _choice;
    const std::function<void(const SeenContent& seen)>& _take;
    std::uint64_t _count = 0;
    MemberPath _first;
};

FileReport walk(vole_signatures* signatures, const std::string& path, const ReadingTerms& terms,
                ContentVisitor& visitor) {
    try {
        return walkContents(signatures, terms.limits, terms.flags, path, visitor);
    } catch (const Enough&) {
        FileReport seen;
        seen.path = path;
        return seen;
    }
}

class FindingVisitor final : public ContentVisitor {
public:
    FindingVisitor(bool inFileOnly, const std::function<void(const vole_finding& finding)>& take)
        : _inFileOnly(inFileOnly), _take(take) {}

    void onContent(const SeenContent& seen) override {
        if (_inFileOnly && !seen.member.empty()) throw Enough{};
    }
    void onOther(const vole_event& event) override {
        if (event.finding) _take(*event.finding);
    }

private:
    bool _inFileOnly;
    const std::function<void(const vole_finding& finding)>& _take;
};

std::string textOf(const FileReport& report) {
    if (report.outcome == Outcome::failed) return report.path + ": " + report.error;
    std::string text = report.path + ": not seen whole";
    if (report.reasons.empty()) return text;
    const Reason& reason = report.reasons.front();
    text += ": " + (reason.member.empty() ? "" : joined(reason.member) + ": ") + reason.text;
    if (report.counters.reasons > 1) text += "; and " + std::to_string(report.counters.reasons - 1) + " more";
    return text;
}

}  // namespace

std::string contentName(const std::string& file, const MemberPath& member) {
    return member.empty() ? file : file + '/' + joined(member);
}

bool ContentChoice::takes(const SeenContent& seen) const {
    if (seen.content.form != form) return false;
    if (member) return member->fits(seen.member);
    return members || seen.member.empty();
}

bool noteUnseen(const FileReport& report, const ReadingTerms& terms) {
    if (report.outcome != Outcome::failed && report.reasons.empty()) return true;
    terms.note(textOf(report));
    return terms.incompleteIsFine && report.outcome != Outcome::failed;
}

bool forChosenContents(const std::string& path, const ContentChoice& choice, const ReadingTerms& terms,
                       const std::function<void(const SeenContent& seen)>& take) {
    Choosing choosing(path, choice, take);
    const FileReport report = walk(scratchSet("").get(), path, terms, choosing);
    const bool isWhole = noteUnseen(report, terms);
    if (choice.member && choosing.count() > 1) {
        terms.note(path + ": " + std::to_string(choosing.count()) + " members are called " + choice.member->text());
    }
    if (choosing.count() != 0) return isWhole;
    if (report.outcome != Outcome::failed && report.reasons.empty()) {
        terms.note(path + (choice.member                         ? ": there is no member " + choice.member->text()
                           : choice.form == VOLE_FORM_NORMALISED ? ": there is no normalised text"
                                                                 : ": there is no content"));
    }
    return false;
}

bool forFindings(const std::string& path, vole_signatures* signatures, bool inFileOnly, const ReadingTerms& terms,
                 const std::function<void(const vole_finding& finding)>& take) {
    FindingVisitor visitor(inFileOnly, take);
    return noteUnseen(walk(signatures, path, terms, visitor), terms);
}
