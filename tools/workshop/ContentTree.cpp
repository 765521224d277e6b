#include "ContentTree.h"

#include <algorithm>

#include "ContentBuffer.h"
#include "ContentType.h"
#include "Exception.h"

namespace {

// Archives of hundreds of thousands of members fit, and names of 64 KiB in each of them do not. The scan's limit on
// members may be off.
constexpr std::size_t kMostBytes = std::size_t{128} << 20;

// What the engine's own readers find out. Those need no bytes that the scan does not.
void identify(const vole_content& content, ContentFacts& facts) {
    try {
        ContentBuffer bytes(content);
        facts.type = typeOf(bytes);
        facts.pe = peFactsOf(bytes);
    } catch (ZOV_SPACE::Exception& e) {
        throw LoadError(std::string("the content cannot be read: ") + e.getMessage());
    }
}

std::size_t bytesOf(const PeFacts& pe) { return pe.sections.size() * sizeof(PeSection); }

// Of the members that were announced at a place, the one whose content comes now: the first that nothing was told of,
// since some wait for others; else the last. The number of contents when there is none.
std::size_t announcedAt(const ContentPlace& place) {
    constexpr std::size_t kFurthestBack = 64;  // More of one name do not wait, and looking costs time.
    const std::size_t end = place.contents.size();
    std::size_t found = end;
    for (std::size_t i = end; i > end - std::min(end, kFurthestBack); --i) {
        const ContentFacts& facts = place.contents[i - 1];
        const bool isWaiting = facts.kind == ContentFacts::Kind::unseen && facts.size;
        if (isWaiting && (found == end || facts.reasons.empty())) found = i - 1;
    }
    return found;
}

// What an event makes of the member that it is of; nothing if that is not what it tells.
std::optional<ContentFacts::Kind> kindBy(vole_event_type event) {
    if (event == VOLE_EVENT_MEMBER_ENTERED) return ContentFacts::Kind::unseen;  // So far.
    if (event == VOLE_EVENT_FOLDER) return ContentFacts::Kind::folder;
    if (event == VOLE_EVENT_EMPTY_MEMBER) return ContentFacts::Kind::empty;
    return std::nullopt;
}

}  // namespace

const char* formWord(const ContentFacts& facts) {
    switch (facts.kind) {
        case ContentFacts::Kind::seen:
            return vole_form_name(facts.form);
        case ContentFacts::Kind::folder:
            return "folder";
        case ContentFacts::Kind::empty:
            return "empty";
        case ContentFacts::Kind::unseen:
            break;
    }
    return "unseen";
}

const char* checksumWord(vole_checksum_state state) {
    if (state == VOLE_CHECKSUM_NONE) return "none";
    return state == VOLE_CHECKSUM_RIGHT ? "right" : "wrong";
}

ContentTree::ContentTree(MemberFolder* folder) : _folder(folder), _places(1) {}

bool ContentTree::affords(std::size_t bytes) {
    const bool fits = bytes <= kMostBytes - _bytes;
    if (fits) {
        _bytes += bytes;
    } else {
        ++_leftOut;
    }
    return fits;
}

// Null when there is no room for it.
ContentPlace* ContentTree::placeOf(const MemberPath& member) {
    std::size_t at = 0;
    for (const std::string& name : member) {
        at = childOf(at, name);
        if (at == ContentPlace::kNone) return nullptr;
    }
    return &_places[at];
}

std::size_t ContentTree::childOf(std::size_t parent, const std::string& name) {
    constexpr std::size_t kNode = 64;  // About what the map takes for one.
    const auto known = _children.find({parent, name});
    if (known != _children.end()) return known->second;
    if (!affords(sizeof(ContentPlace) + name.size() + kNode)) return ContentPlace::kNone;
    const std::size_t index = _places.size();
    ContentPlace& place = _places.emplace_back();
    place.name = name;
    place.parent = parent;
    place.level = _places[parent].level + 1;
    std::size_t& last = _places[parent].lastChild;
    (last == ContentPlace::kNone ? _places[parent].firstChild : _places[last].next) = index;
    last = index;
    _children.emplace(std::pair(parent, std::string_view(place.name)), index);
    return index;
}

// Null when there is no room for them.
ContentFacts* ContentTree::addFacts(ContentPlace& place, std::size_t position) {
    constexpr std::size_t kTexts = 64;
    if (!affords(sizeof(ContentFacts) + kTexts)) return nullptr;
    place.latest = position;
    return &*place.contents.emplace(place.contents.begin() + static_cast<std::ptrdiff_t>(position));
}

ContentFacts* ContentTree::factsFor(ContentPlace& place, const vole_content& content) {
    const std::size_t end = place.contents.size();
    if (content.form != VOLE_FORM_RAW) return addFacts(place, std::min(place.latest + 1, end));
    const std::size_t announced = announcedAt(place);
    if (announced == end) return addFacts(place, end);
    place.latest = announced;
    return &place.contents[announced];
}

void ContentTree::onContent(const SeenContent& seen) {
    ContentPlace* const place = placeOf(seen.member);
    if (!place) return;
    ContentFacts* const facts = factsFor(*place, seen.content);
    if (!facts) return;
    facts->kind = ContentFacts::Kind::seen;
    facts->form = seen.content.form;
    facts->size = seen.content.size;
    facts->md5 = md5Of(seen.content);
    if (!seen.isRaw()) return;
    facts->packedSize = seen.content.packed_size;
    facts->method = seen.content.method;
    facts->checksum = seen.content.checksum;
    facts->isPacked = seen.content.is_packed != 0;
    identify(seen.content, *facts);
    if (facts->pe && !affords(bytesOf(*facts->pe))) facts->pe.reset();
    if (_folder && !seen.member.empty()) facts->extractedTo = _folder->write(seen.content, seen.member.back());
}

void ContentTree::onOther(const vole_event& event) {
    const std::optional<ContentFacts::Kind> met = kindBy(event.type);
    const bool matters = met || event.finding || event.reason;
    ContentPlace* const place = matters ? placeOf(memberOf(event.member)) : nullptr;
    if (!place) return;
    if (event.finding) {
        addFinding(*place, *event.finding);
    } else if (event.reason) {
        addReason(*place, *event.reason);
    } else if (ContentFacts* const facts = met ? addFacts(*place, place->contents.size()) : nullptr) {
        facts->kind = *met;
        facts->size = event.size;
    }
}

// Comes right behind its content.
void ContentTree::addFinding(ContentPlace& place, const vole_finding& finding) {
    if (place.contents.empty() || !affords(sizeof(Finding) + std::string_view(finding.name).size())) return;
    std::vector<Finding>& findings = place.contents[place.latest].findings;
    findings.push_back(plainFinding(finding));
    findings.back().member.clear();
}

void ContentTree::addReason(ContentPlace& place, const vole_reason& reason) {
    if (place.contents.empty() && !addFacts(place, 0)) return;
    if (!affords(sizeof(Reason) + std::string_view(reason.text).size())) return;
    std::size_t at = place.latest;
    if (at > 0 && place.contents[at].form == VOLE_FORM_NORMALISED) --at;  // It is of what the text was made of.
    place.contents[at].reasons.push_back(reasonFor(reason.code, reason.text));
}

MemberPath ContentTree::pathOf(const ContentPlace& place) const {
    MemberPath path;
    for (const ContentPlace* at = &place; at->parent != ContentPlace::kNone; at = &_places[at->parent]) {
        path.push_back(at->name);
    }
    std::reverse(path.begin(), path.end());
    return path;
}
