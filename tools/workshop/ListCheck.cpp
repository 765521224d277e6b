#include "ListCheck.h"

#include <cerrno>
#include <new>

#include "Exception.h"
#include "Messages.h"
#include "NameMarks.h"
#include "VirusList.h"
#include "util/XMLTree.h"

namespace {

using ZOV_SPACE::XMLNode;
using ZOV_SPACE::XMLPlace;
using Severity = Remark::Severity;

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// Remarks on what the loader, too, is told of a document.
class ListRemarks : public VirusListVisitor {
public:
    ListRemarks(const std::string& file, const VirusList& list, const TakeRemark& take)
        : _file(file),
          _take(take),
          _falseAlarms(list.falseAlarms(), NameMarks::Compare::whole),
          _spyware(list.spyware(), NameMarks::Compare::prefix) {}

    void compareWith(const PatternContainer& set) {
        const BmList& md5 = set.md5List();
        for (std::uint32_t i = 0; i < md5.count(); ++i) mark(md5.nameOf(i));
        const CheckSumList& checkSums = set.checkSumList();
        for (std::size_t target = 0; target < kTargetCount; ++target) {
            for (const CheckSumRecord& record : checkSums.records(static_cast<TARGET_TYPE>(target))) {
                mark(checkSums.nameOf(record));
            }
        }
        _isCompared = true;
    }

    void onEntry(Kind kind, std::string_view name, const XMLNode& element) override {
        const bool isWhole = kind == Kind::falseAlarm;
        const std::string what = isWhole ? "false alarm" : "spyware";
        if (name.empty()) return remark(element, "name", "an empty name, listed as " + what);
        NameMarks& marks = isWhole ? _falseAlarms : _spyware;
        if (const auto line = marks.noteLine(name, element.getPlace().line)) {
            return remark(element, "repeated",
                          quoted(name) + " is listed in line " + std::to_string(*line) + " already as " + what);
        }
        if (!_isCompared || marks.isMarked(name)) return;
        remark(element, "unused",
               isWhole ? "no record has the name " + quoted(name) : "no record's name begins with " + quoted(name));
    }

    void onIgnored(Ignored why, const XMLNode& element, std::string_view attribute) override {
        const std::string tag = "<" + std::string(element.getName()) + ">";
        switch (why) {
            case Ignored::attribute:
                return remark(element, "ignored", tag + " has an attribute that is not read: " + quoted(attribute));
            case Ignored::unknownSection:
                return remark(element, "ignored", tag + " is not read: neither <FalseAlarm> nor <Spyware>");
            case Ignored::repeatedSection:
                return remark(element, "ignored", tag + " is not read: only the first one is");
            case Ignored::nameless:
                return remark(element, "ignored", tag + " is not read: it has no attribute \"name\"");
            case Ignored::withinEntry:
                return remark(element, "ignored", tag + " is not read: it stands within an entry");
        }
    }

private:
    void mark(std::string_view name) {
        _falseAlarms.mark(name);
        _spyware.mark(name);
    }

    void remark(const XMLNode& element, std::string_view code, std::string text) {
        const XMLPlace place = element.getPlace();
        _take({Severity::warning, code, _file, place.line, place.column, std::move(text)});
    }

    const std::string& _file;
    const TakeRemark& _take;
    NameMarks _falseAlarms, _spyware;
    bool _isCompared = false;
};

}  // namespace

void checkLists(const std::string& file, const PatternContainer* set, const TakeRemark& take) {
    const auto error = [&](XMLPlace place, std::string text) {
        take({Severity::error, "list", file, place.line, place.column, std::move(text)});
    };
    constexpr XMLPlace kWholeFile{0, 0};
    const auto parser = ZOV_SPACE::XMLParser::createDefaultXMLParser();
    if (!parser) throw std::bad_alloc();
    VirusList list;
    try {
        if (!readVirusList(*parser, file, list)) return error(kWholeFile, systemText(errno));
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (ZOV_SPACE::IOException& e) {
        return error(kWholeFile, e.getMessage());
    } catch (ZOV_SPACE::Exception& e) {
        return error(parser->getPlace(), e.getMessage());
    }
    ListRemarks remarks(file, list, take);
    if (set) remarks.compareWith(*set);
    visitVirusList(parser->getTree(), remarks);
    if (!list.empty()) return;
    take({Severity::warning, "list", file, 0, 0, "there is no entry in it, so it counts as not there"});
}
