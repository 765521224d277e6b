// ContentTree: what is in a file, as a scan tells of it: a tree of places, members below the archives that they are in
// and in the order in which those were walked, and at each place what was seen there.
//   Owns:    all of it, but no content's bytes.
//   Throws:  LoadError when a content cannot be read or written; std::bad_alloc.
//   Threads: one.
#ifndef VOLE_WORKSHOP_CONTENT_TREE_H
#define VOLE_WORKSHOP_CONTENT_TREE_H

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Contents.h"
#include "FileReport.h"
#include "MemberFolder.h"
#include "PeFacts.h"

// What is known of one content, or of a member that never became one.
struct ContentFacts {
    // Compared with signatures; not compared; or passed over, since there are no bytes.
    enum class Kind { seen, unseen, folder, empty };

    Kind kind = Kind::unseen;           // Of what is not seen, nothing but size and reasons mean something, and the
    std::optional<std::uint64_t> size;  // size is what was announced, if unpacking began.
    vole_form form = VOLE_FORM_RAW;
    std::uint64_t packedSize = 0;
    const char* method = "";  // Static.
    vole_checksum_state checksum = VOLE_CHECKSUM_NONE;
    bool isPacked = false;
    std::string md5;
    std::string type;  // In words. Empty for normalised text.
    std::optional<PeFacts> pe;
    std::string extractedTo;        // Name of a file. Empty: none.
    std::vector<Finding> findings;  // Both without the member, which is the place.
    std::vector<Reason> reasons;

    bool isSeen() const { return kind == Kind::seen; }
};

// "raw", "normalised", "unseen", "folder" or "empty".
const char* formWord(const ContentFacts& facts);
// "none", "right" or "wrong".
const char* checksumWord(vole_checksum_state state);

// Members of one archive that have the same name share a place: scans tell names only.
struct ContentPlace {
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    std::string name;  // Empty for the file itself.
    unsigned level = 0;
    std::size_t parent = kNone;
    std::size_t firstChild = kNone, lastChild = kNone, next = kNone;
    std::vector<ContentFacts> contents;  // Normalised texts right behind what they were made of.
    std::size_t latest = 0;              // Of the contents, the one that was told of last.
};

class ContentTree : public ContentVisitor {
public:
    // Members are written to the folder, which is borrowed, unless it is null.
    explicit ContentTree(MemberFolder* folder = nullptr);

    void onContent(const SeenContent& seen) override;
    void onOther(const vole_event& event) override;

    // Calls `take(const ContentPlace&)` for the file itself, and for each place before those below it.
    template <class Take>
    void forEachPlace(Take take) const;

    MemberPath pathOf(const ContentPlace& place) const;

    // Contents, findings and reasons for which there was no room.
    std::uint64_t leftOut() const { return _leftOut; }

private:
    bool affords(std::size_t bytes);
    ContentPlace* placeOf(const MemberPath& member);
    std::size_t childOf(std::size_t parent, const std::string& name);
    ContentFacts* addFacts(ContentPlace& place, std::size_t position);
    ContentFacts* factsFor(ContentPlace& place, const vole_content& content);
    void addFinding(ContentPlace& place, const vole_finding& finding);
    void addReason(ContentPlace& place, const vole_reason& reason);

    MemberFolder* _folder;
    std::deque<ContentPlace> _places;  // The file itself comes first. Addresses stay.
    std::map<std::pair<std::size_t, std::string_view>, std::size_t> _children;  // By parent and name.
    std::size_t _bytes = 0;
    std::uint64_t _leftOut = 0;
};

template <class Take>
void ContentTree::forEachPlace(Take take) const {
    std::size_t at = 0;
    for (;;) {
        take(_places[at]);
        if (_places[at].firstChild != ContentPlace::kNone) {
            at = _places[at].firstChild;
            continue;
        }
        while (_places[at].next == ContentPlace::kNone) {
            at = _places[at].parent;
            if (at == ContentPlace::kNone) return;
        }
        at = _places[at].next;
    }
}

#endif  // VOLE_WORKSHOP_CONTENT_TREE_H
