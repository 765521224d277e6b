// VirusList: the false-alarm and spyware names of one pattern set. Filled by one thread, then queried by any number.
//
// Both lists are short and written by hand, so a query walks them in the order of the file. False alarms are compared
// whole, spyware entries as prefixes, both without ASCII letter case.
#ifndef SIGNATURES_VIRUSLIST_H
#define SIGNATURES_VIRUSLIST_H

#include <string>
#include <string_view>
#include <vector>

namespace ZOV_SPACE {
class XMLNode;
class XMLParser;
class XMLTree;
}  // namespace ZOV_SPACE

class VirusList {
public:
    // Whether `name` equals an entry, ignoring ASCII letter case. A null never does.
    bool isFalseAlarm(const char* name) const;

    // Whether an entry is a prefix of `name`, ignoring ASCII letter case.
    // Kept as is: an entry that matches in another letter case takes that of `name` over; hosts see its effect on the
    // entry. Its characters are read and written atomically, because other threads query the same list.
    bool isSpyware(const char* name);

    void addFalseAlarm(const std::string& name) { faList.push_back(name); }
    void addSpyware(const std::string& name);

    const std::vector<std::string>& falseAlarms() const { return faList; }
    std::vector<std::string> spyware() const;

    std::size_t falseAlarmCount() const { return faList.size(); }
    std::size_t spywareCount() const { return spywareList.size(); }
    bool empty() const { return faList.empty() && spywareList.empty(); }

private:
    // Texts with their NUL. Not strings: a string may share its characters with a copy.
    std::vector<std::vector<char>> spywareList;
    std::vector<std::string> faList;
};

// The file of a pattern directory that has the names.
constexpr const char* kVirusListFile = "pattern_assistant.xml";

// Is told what a document of lists has, in its order.
class VirusListVisitor {
public:
    enum class Kind { falseAlarm, spyware };
    enum class Ignored {
        attribute,        // Of an element that is not.
        unknownSection,   // Below the root, and neither of the two.
        repeatedSection,  // One of the two, behind another of that name.
        nameless,         // An entry without a name.
        withinEntry,
    };

    VirusListVisitor() = default;
    VirusListVisitor(const VirusListVisitor&) = delete;
    VirusListVisitor& operator=(const VirusListVisitor&) = delete;
    virtual ~VirusListVisitor() = default;

    virtual void onEntry(Kind kind, std::string_view name, const ZOV_SPACE::XMLNode& element) = 0;
    // What counts for nothing: the element with all in it, or the attribute. Default: nothing.
    virtual void onIgnored(Ignored, const ZOV_SPACE::XMLNode&, std::string_view /*attribute*/) {}
};

void visitVirusList(const ZOV_SPACE::XMLTree& tree, VirusListVisitor& visitor);

// Adds the names in a file, which the parser has the tree of then. False, with errno set, when it cannot be opened or
// is no regular file. Throws, with nothing added, what the parser throws.
bool readVirusList(ZOV_SPACE::XMLParser& parser, const std::string& path, VirusList& list);

#endif  // SIGNATURES_VIRUSLIST_H
