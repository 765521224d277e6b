#include "VirusList.h"

#include <algorithm>
#include <cstring>

#include "Text.h"
#include "VoleUtil.h"
#include "io/InputStream.h"
#include "io/RegularFile.h"
#include "util/XMLTree.h"

namespace {

constexpr const char* kNameAttribute = "name";

// Passes the name of each child of the node at `path` to `add`. A missing node has none.
template <class Add>
void forEachName(const ZOV_SPACE::XMLTree& tree, const char* path, Add add) {
    const ZOV_SPACE::XMLNode* const node = tree.getNode(path, -1);
    if (!node) return;
    for (int i = 0; i < node->getChildLength(); ++i) {
        const ZOV_SPACE::XMLNode* const child = node->getChild(i);
        const auto name = child ? child->getAttribute(kNameAttribute) : std::nullopt;
        if (name) add(std::string(*name));
    }
}

}  // namespace

bool readVirusList(ZOV_SPACE::XMLParser& parser, const std::string& path, VirusList& list) {
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::openRegularFile(path.c_str());
    if (!file) return false;
    ZOV_SPACE::FileInputStream stream(file.get());
    parser.load(stream);
    forEachName(parser.getTree(), "/FalseAlarm", [&](const std::string& name) { list.addFalseAlarm(name); });
    forEachName(parser.getTree(), "/Spyware", [&](const std::string& name) { list.addSpyware(name); });
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
