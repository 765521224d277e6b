// XMLTree.h: an XML document as a tree of elements with attributes, addressed by key paths. Text between the elements
// is not kept. Parsing is expat's.
//
//     std::unique_ptr<XMLParser> parser = XMLParser::createDefaultXMLParser();
//     parser->load(stream);
//     if (const XMLNode* node = parser->getTree().getNode("/FalseAlarm", -1)) ... node->getChild(0) ...
//
// Documents come from anywhere. How many elements one has and how deep they are nested does not matter; what it may
// take is bounded by XMLLimits, and documents that declare entities are refused.
//   Threads: a loaded tree may be read from any; loading is for one at a time.
#ifndef COMMON_STL_UTIL_XMLTREE_H
#define COMMON_STL_UTIL_XMLTREE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CPObject.h"

namespace ZOV_SPACE {

class InputStream;

struct XMLLimits {
    static constexpr std::size_t kDocumentBytes = 256u << 20;
    static constexpr std::size_t kTokenBytes = 256u << 10;  // One tag, comment, declaration or the like.
    // The tree, and what the parser keeps for open elements. By the size of a pointer, of which a tree mostly consists:
    // so about as many elements fit in both word sizes.
    static constexpr std::size_t kMemoryBytes = sizeof(void*) << 28;
};

// Where something begins in a document. Both count from 1, columns in characters.
struct XMLPlace {
    std::uint32_t line = 1;
    std::uint32_t column = 1;
};
static_assert(XMLLimits::kDocumentBytes < UINT32_MAX);

// An element. Belongs to its tree, and so do its children and its texts.
class XMLNode {
public:
    XMLNode(std::string_view name, XMLPlace place) : _name(name), _place(place) {}
    XMLNode(const XMLNode&) = delete;
    XMLNode& operator=(const XMLNode&) = delete;

    std::string_view getName() const { return _name; }
    XMLPlace getPlace() const { return _place; }
    int getChildLength() const { return static_cast<int>(_children.size()); }
    const XMLNode* getChild(int index) const;  // Null when there is none.
    std::optional<std::string_view> getAttribute(std::string_view name) const;
    int getAttributeLength() const { return static_cast<int>(_attributeCount); }
    // REQUIRES: 0 <= index < getAttributeLength().
    std::string_view getAttributeName(int index) const { return _attributes[static_cast<std::size_t>(index)].name; }

private:
    friend class XMLTree;
    friend class XMLTreeBuilder;

    struct Attribute {
        std::string_view name, value;
    };

    std::string_view _name;
    XMLPlace _place;
    std::unique_ptr<Attribute[]> _attributes;
    std::size_t _attributeCount = 0;
    std::vector<const XMLNode*> _children;
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

    // The root first. One flat store: no depth can make building, walking or taking down the tree recurse.
    std::deque<XMLNode> _nodes;
    std::deque<std::string> _texts;  // Pages of them; names once each.
};

class XMLParser : public CPObject {
public:
    // Null when there is no memory for a parser. `memoryBytes`: what a document may take.
    static std::unique_ptr<XMLParser> createDefaultXMLParser(std::size_t memoryBytes = XMLLimits::kMemoryBytes);

    // Reads the stream to its end and replaces the tree. Throws Exception: expat's text and the line for what is not
    // well-formed, a text of its own and the line for what exceeds XMLLimits; std::bad_alloc; what the stream throws
    // passes through. The tree is empty then.
    virtual void load(InputStream& stream) = 0;

    // How far the latest load() got: behind a document's fault, where that is.
    virtual XMLPlace getPlace() const = 0;

    const XMLTree& getTree() const { return _tree; }

protected:
    XMLTree _tree;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UTIL_XMLTREE_H
