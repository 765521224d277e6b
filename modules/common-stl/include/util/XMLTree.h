// XMLTree.h: an XML document as a tree of elements with attributes, addressed by key paths. Text between the elements
// is not kept. Parsing is expat's.
//
//     std::unique_ptr<XMLParser> parser = XMLParser::createDefaultXMLParser();
//     parser->load(stream);
//     if (const XMLNode* node = parser->getTree().getNode("/FalseAlarm", -1)) ... node->getChild(0) ...
//
// Documents come from anywhere: what a document may cost is bounded by the constants of XMLLimits, and documents that
// declare entities are refused.
//   Threads: a loaded tree may be read from any; loading is for one at a time.
#ifndef COMMON_STL_UTIL_XMLTREE_H
#define COMMON_STL_UTIL_XMLTREE_H

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CPObject.h"

namespace ZOV_SPACE {

class InputStream;

struct XMLLimits {
    static constexpr std::size_t kDocumentBytes = 16u << 20;
    static constexpr std::size_t kTokenBytes = 256u << 10;  // One tag, comment or the like.
    static constexpr std::size_t kElements = 1u << 18;
    static constexpr std::size_t kAttributes = 1u << 19;  // Of all elements; defaults from a document type count, too.
    static constexpr std::size_t kTextBytes = 16u << 20;  // Element names, attribute names and values.
    static constexpr std::size_t kDepth = 256;
};

// An element. Belongs to its tree, and so do its children.
class XMLNode : public CPObject {
public:
    explicit XMLNode(std::string name) : _name(std::move(name)) {}
    XMLNode(const XMLNode&) = delete;
    XMLNode& operator=(const XMLNode&) = delete;

    const std::string& getName() const { return _name; }
    int getChildLength() const { return static_cast<int>(_children.size()); }
    const XMLNode* getChild(int index) const;                      // Null when there is none.
    const std::string* getAttribute(std::string_view name) const;  // Null when there is none.

private:
    friend class XMLTree;
    friend class XMLTreeBuilder;

    std::string _name;
    std::vector<std::pair<std::string, std::string>> _attributes;
    std::vector<XMLNode*> _children;
};

class XMLTree : public CPObject {
public:
    XMLTree() = default;
    XMLTree(XMLTree&&) = default;
    XMLTree& operator=(XMLTree&&) = default;

    // The elements that the path leads to, in document order: number `index` of them, counting from 0; -1 is the first.
    // Null when there is none. Keys are separated by slashes; the root element's name is not one of them: "/a/b" is
    // every b in an a in the root, "/" the root itself.
    const XMLNode* getNode(std::string_view path, int index) const;

private:
    friend class XMLTreeBuilder;

    std::deque<XMLNode> _nodes;  // The root first. One flat store, so that taking it down does not recurse.
};

class XMLParser : public CPObject {
public:
    // Null when there is no memory for a parser.
    static std::unique_ptr<XMLParser> createDefaultXMLParser();

    // Reads the stream to its end and replaces the tree. Throws Exception: expat's text and the line for what is not
    // well-formed, a text of its own and the line for what exceeds XMLLimits; what the stream throws passes through.
    // The tree is empty then.
    virtual void load(InputStream& stream) = 0;

    const XMLTree& getTree() const { return _tree; }

protected:
    XMLTree _tree;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UTIL_XMLTREE_H
