#include "JsonReport.h"
#include "JsonText.h"
#include "TreeReport.h"

namespace {

using json::Json;

// Without the member, which the content has.
Json placed(Json object) {
    object.erase("member");
    return object;
}

Json findingsOf(const ContentFacts& facts) {
    Json list = Json::array();
    for (const Finding& finding : facts.findings) {
        list.push_back(placed(json::findingOf(finding)));
        list.back()["allowed"] = finding.allowed;
    }
    return list;
}

Json reasonsOf(const ContentFacts& facts) {
    Json list = Json::array();
    for (const Reason& reason : facts.reasons) list.push_back(placed(json::reasonOf(reason)));
    return list;
}

Json sectionOf(const PeSection& section) {
    return {{"name", json::textOf(section.name)},
            {"position", section.rawPosition},
            {"size", section.rawSize},
            {"virtual_address", section.virtualAddress},
            {"virtual_size", section.virtualSize}};
}

Json peOf(const PeFacts& pe) {
    Json object = {{"entry", pe.entry ? Json(*pe.entry) : Json()}, {"section_count", pe.sectionCount}};
    Json& sections = object["sections"] = Json::array();
    for (const PeSection& section : pe.sections) sections.push_back(sectionOf(section));
    return object;
}

void addRaw(Json& object, const ContentFacts& facts, bool isMember) {
    object["type"] = facts.type;
    if (isMember) {
        object["packed_size"] = facts.packedSize;
        object["method"] = facts.method;
        object["is_packed"] = facts.isPacked;
        object["checksum"] = checksumWord(facts.checksum);
    }
    if (facts.pe) object["pe"] = peOf(*facts.pe);
    if (!facts.extractedTo.empty()) object["file"] = facts.extractedTo;
}

}  // namespace

void writeJson(const ContentTree& tree, const FileReport& report, std::ostream& out) {
    const Json path = json::textOf(report.path);
    tree.forEachPlace([&](const ContentPlace& place) {
        for (const ContentFacts& facts : place.contents) {
            Json object = {{"path", path}, {"member", json::memberOf(tree.pathOf(place))}, {"form", formWord(facts)}};
            if (facts.size) object["size"] = *facts.size;
            if (facts.isSeen()) object["md5"] = facts.md5;
            if (facts.isSeen() && facts.form == VOLE_FORM_RAW) addRaw(object, facts, place.level > 0);
            object["findings"] = findingsOf(facts);
            object["reasons"] = reasonsOf(facts);
            out << json::lineOf(object) << '\n';
        }
    });
    out << jsonLine(report) << '\n';
}
