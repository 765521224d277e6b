// Candidates of all contents are scanned for together: a set tells of each of its records that matches. The corpus is
// therefore walked twice, however many contents there are: for single ranges, and for the records that are left.
#include "MakeCheckSum.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "RecordWriter.h"
#include "ScratchSet.h"

namespace {

// A content that a record is made of.
struct Subject {
    std::size_t file;  // Index.
    MemberPath member;
    RangeSource source;
    bool hasOwnRange = true;  // The first one is not in the corpus.
};

struct Candidate {
    std::size_t subject;  // Index.
    Range first;
    Range second;
    bool isFound = false;    // In its content.
    bool isRefuted = false;  // Found in the corpus.
};

// A set in which each candidate has its index as its name.
SignaturesHandle setOf(const std::vector<Subject>& subjects, const std::vector<Candidate>& candidates) {
    std::string lines;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const RangeSource& source = subjects[candidates[i].subject].source;
        lines +=
            checkSumRecordLine(source.recordOf(candidates[i].first, candidates[i].second), std::to_string(i)) + '\n';
    }
    return scratchSet(lines);
}

Candidate* candidateOf(const vole_finding& finding, std::vector<Candidate>& candidates) {
    std::size_t index = 0;
    std::from_chars(finding.name, finding.name + std::strlen(finding.name), index);
    return index < candidates.size() ? &candidates[index] : nullptr;
}

class Proof {
public:
    Proof(const std::vector<std::string>& files, const ContentChoice& choice, const CheckSumTerms& how,
          const ReadingTerms& terms)
        : _files(files), _choice(choice), _how(how), _terms(terms) {}

    void collect() {
        for (std::size_t i = 0; i < _files.size(); ++i) {
            const bool wasSeen = forChosenContents(_files[i], _choice, _terms,
                                                   [this, i](const SeenContent& seen) { takeSubject(i, seen); });
            _isWhole = _isWhole && wasSeen;
        }
    }

    // Prefers ranges that the corpus does not have.
    void preferOwnRanges() {
        if (_how.corpus.empty()) return;
        std::vector<Candidate> singles;
        for (std::size_t i = 0; i < _subjects.size(); ++i) {
            for (const Range& range : _subjects[i].source.ranges) singles.push_back({i, range, range});
        }
        refute(singles);
        std::size_t at = 0;
        for (Subject& subject : _subjects) {
            auto& ranges = subject.source.ranges;
            std::vector<Range> own, shared;
            for (const Range& range : ranges) (singles[at++].isRefuted ? shared : own).push_back(range);
            subject.hasOwnRange = !own.empty();
            ranges = std::move(own);
            ranges.insert(ranges.end(), shared.begin(), shared.end());
        }
    }

    void printProven(const RecordNames& names, NewRecords& records) {
        std::vector<Candidate> pairs = pairsOfAll();
        refute(pairs);
        find(pairs);
        auto pair = pairs.begin();
        for (std::size_t i = 0; i < _subjects.size(); ++i) {
            const auto end = std::find_if(pair, pairs.end(), [i](const Candidate& c) { return c.subject != i; });
            const auto proven = std::find_if(pair, end, [](const Candidate& c) { return c.isFound && !c.isRefuted; });
            const Subject& subject = _subjects[i];
            const std::string& file = _files[subject.file];
            if (!_isCorpusWhole) {
                complain(file, subject.member, "not all of the corpus was seen");
            } else if (proven != end) {
                records.add(checkSumRecordLine(subject.source.recordOf(proven->first, proven->second),
                                               names.nameOf(file, subject.member, ++_number)));
            } else {
                complain(file, subject.member,
                         pair == end ? "no bytes within reach that tell enough"
                                     : "what is within reach is in the corpus, too");
            }
            pair = end;
        }
    }

    bool isWhole() const { return _isWhole; }

private:
    void takeSubject(std::size_t file, const SeenContent& seen) {
        // Folders in archives, mostly.
        if (seen.content.size == 0 && !_choice.isFileOnly()) return;
        try {
            _subjects.push_back({file, seen.member, rangesOf(seen.content, _how.anchor, _how.length)});
        } catch (const LoadError& error) {
            complain(_files[file], seen.member, error.what());
        }
    }

    void complain(const std::string& file, const MemberPath& member, const char* why) {
        _terms.note(contentName(file, member) + ": no range found: " + why);
        _isWhole = false;
    }

    // Of both ranges. Fewer are found by chance, unless they were asked for.
    int fewestBytes() const {
        constexpr int kUsual = 12;
        return std::min(kUsual, 2 * _how.length);
    }

    std::vector<Candidate> pairsOfAll() const {
        constexpr std::size_t kMostPairs = 64;
        std::vector<Candidate> pairs;
        for (std::size_t i = 0; i < _subjects.size(); ++i) {
            const auto& ranges = _subjects[i].source.ranges;
            const std::size_t limit = pairs.size() + (_subjects[i].hasOwnRange ? 1 : kMostPairs);
            for (std::size_t second = 1; second < ranges.size(); ++second) {
                for (std::size_t first = 0; first < second && pairs.size() < limit; ++first) {
                    if (ranges[first].length + ranges[second].length < fewestBytes()) continue;
                    pairs.push_back({i, ranges[first], ranges[second]});
                }
            }
        }
        return pairs;
    }

    void refute(std::vector<Candidate>& candidates) {
        if (_how.corpus.empty() || candidates.empty()) return;
        const SignaturesHandle set = setOf(_subjects, candidates);
        for (const std::string& path : _how.corpus) {
            // What could not be seen was noted the first time.
            const bool wasSeen =
                forFindings(path, set.get(), false, _wasCorpusSeen ? silent() : _terms, [&](const auto& found) {
                    if (Candidate* const candidate = candidateOf(found, candidates)) candidate->isRefuted = true;
                });
            _isCorpusWhole = _isCorpusWhole && wasSeen;
        }
        _wasCorpusSeen = true;
    }

    void find(std::vector<Candidate>& candidates) const {
        if (candidates.empty()) return;
        const SignaturesHandle set = setOf(_subjects, candidates);
        for (std::size_t i = 0; i < _files.size(); ++i) {
            forFindings(_files[i], set.get(), _choice.isFileOnly(), silent(), [&](const vole_finding& found) {
                Candidate* const candidate = found.form == _choice.form ? candidateOf(found, candidates) : nullptr;
                if (!candidate) return;
                const Subject& subject = _subjects[candidate->subject];
                if (subject.file == i && subject.member == memberOf(found.member)) candidate->isFound = true;
            });
        }
    }

    ReadingTerms silent() const {
        ReadingTerms terms = _terms;
        terms.note = [](const std::string&) {};
        return terms;
    }

    const std::vector<std::string>& _files;
    const ContentChoice& _choice;
    const CheckSumTerms& _how;
    const ReadingTerms& _terms;
    std::vector<Subject> _subjects;
    std::uint64_t _number = 0;
    bool _wasCorpusSeen = false;
    bool _isCorpusWhole = true;
    bool _isWhole = true;
};

}  // namespace

bool makeCheckSumRecords(const std::vector<std::string>& files, const ContentChoice& choice, const CheckSumTerms& how,
                         const RecordNames& names, const ReadingTerms& terms, NewRecords& records) {
    Proof proof(files, choice, how, terms);
    proof.collect();
    proof.preferOwnRanges();
    proof.printProven(names, records);
    return proof.isWhole();
}
