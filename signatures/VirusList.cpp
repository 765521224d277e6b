#include "VirusList.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "Text.h"
#include "VoleUtil.h"
#include "io/InputStream.h"
#include "io/RegularFile.h"
#include "util/XMLTree.h"

namespace {

using ZOV_SPACE::XMLNode;
using Kind = VirusListVisitor::Kind;
using Ignored = VirusListVisitor::Ignored;

constexpr std::string_view kNameAttribute = "name";
constexpr std::string_view kSections[] = {"FalseAlarm", "Spyware"};  // By kind.

template <class Visit>
void forEachChild(const XMLNode& node, Visit visit) {
    for (int i = 0; i < node.getChildLength(); ++i) visit(*node.getChild(i));
}

void ignoreAttributes(const XMLNode& node, VirusListVisitor& visitor, std::string_view except = {}) {
    for (int i = 0; i < node.getAttributeLength(); ++i) {
        const std::string_view attribute = node.getAttributeName(i);
        if (attribute != except) visitor.onIgnored(Ignored::attribute, node, attribute);
    }
}

// Whatever the children are called.
void visitSection(const XMLNode& section, Kind kind, VirusListVisitor& visitor) {
    ignoreAttributes(section, visitor);
    forEachChild(section, [&](const XMLNode& entry) {
        const auto name = entry.getAttribute(kNameAttribute);
        if (!name) return visitor.onIgnored(Ignored::nameless, entry, {});
        visitor.onEntry(kind, *name, entry);
        ignoreAttributes(entry, visitor, kNameAttribute);
        forEachChild(entry, [&](const XMLNode& child) { visitor.onIgnored(Ignored::withinEntry, child, {}); });
    });
}

class Adding : public VirusListVisitor {
public:
    explicit Adding(VirusList& list) : _list(list) {}

    void onEntry(Kind kind, std::string_view name, const XMLNode&) override {
        if (kind == Kind::falseAlarm) {
            _list.addFalseAlarm(std::string(name));
        } else {
            _list.addSpyware(std::string(name));
        }
    }

private:
    VirusList& _list;
};

}  // namespace

void visitVirusList(const ZOV_SPACE::XMLTree& tree, VirusListVisitor& visitor) {
    const XMLNode* const root = tree.getNode("/", -1);
    if (!root) return;
    ignoreAttributes(*root, visitor);
    bool seen[std::size(kSections)] = {};
    forEachChild(*root, [&](const XMLNode& child) {
        const auto section = std::find(std::begin(kSections), std::end(kSections), child.getName());
        if (section == std::end(kSections)) return visitor.onIgnored(Ignored::unknownSection, child, {});
        const auto kind = section - std::begin(kSections);
        if (std::exchange(seen[kind], true)) return visitor.onIgnored(Ignored::repeatedSection, child, {});
        visitSection(child, static_cast<Kind>(kind), visitor);
    });
}

bool readVirusList(ZOV_SPACE::XMLParser& parser, const std::string& path, VirusList& list) {
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::openRegularFile(path.c_str());
    if (!file) return false;
    ZOV_SPACE::FileInputStream stream(file.get());
    parser.load(stream);
    Adding adding(list);
    visitVirusList(parser.getTree(), adding);
    return true;
}

void VirusList::addSpyware(const std::string& name) {
    spywareList.emplace_back(name.c_str(), name.c_str() + name.size() + 1);
}

std::vector<std::string> VirusList::spyware() const {
    std::vector<std::string> names;
    for (const std::vector<char>& text : spywareList) names.emplace_back(text.data());
    return names;
}

bool VirusList::isFalseAlarm(const char* name) const {
    return name && std::any_of(faList.begin(), faList.end(), [name](const std::string& entry) {
               return ZOV_SPACE::text::sameIgnoringCase(entry, name);
           });
}

bool VirusList::isSpyware(const char* name) {
    if (!name) return false;
    const std::size_t length = std::strlen(name);
    return std::any_of(spywareList.begin(), spywareList.end(), [=](std::vector<char>& entry) {
        const std::size_t prefix = entry.size() - 1;
        return prefix <= length && VoleUtil::strncmp_nocase(entry.data(), name, prefix) == 0;
    });
}
