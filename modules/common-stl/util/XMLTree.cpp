// How a document becomes a tree. expat is fed piece by piece and calls back for every start and end of an element; the
// elements that are open stand on a stack of ours. Elements go to one flat store and know their children by address, so
// nothing here recurses, however deep a document is nested.
//
// Memory. What the tree takes is added up as it grows, together with what expat keeps for every open element, and ends
// at XMLLimits::kMemoryBytes: a document type's default values can make a small file into any amount of attributes.
//
// Tokens. Versions of expat differ in when they look at a token that is not complete yet, and in what they say about
// their position meanwhile. So a token's length is asked for when expat reports it. For one that is never completed,
// what was fed since the last report is bounded: no version lets more than twice a token's length, and a piece, lie
// unread.
#include "util/XMLTree.h"

#include <expat.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <new>
#include <type_traits>
#include <unordered_set>

#include "Raise.h"
#include "Text.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"util/XMLTree"};

constexpr std::size_t kPieceSize = 16384;
constexpr std::size_t kMostUnread = 2 * XMLLimits::kTokenBytes + kPieceSize;
constexpr std::size_t kTextPage = 64u << 10;
// Bytes that are paid for besides, roughly: what expat keeps for an open element, and an entry of our table of names.
constexpr std::size_t kOpenElement = 256;
constexpr std::size_t kNameEntry = 64;

struct FreeParser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserHandle = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

XMLPlace placeOf(XML_Parser parser) {
    return {static_cast<std::uint32_t>(XML_GetCurrentLineNumber(parser)),
            static_cast<std::uint32_t>(XML_GetCurrentColumnNumber(parser) + 1)};
}

std::string atLine(XML_Parser parser, const std::string& text) {
    return text + " at line " + std::to_string(XML_GetCurrentLineNumber(parser));
}

}  // namespace

// Receives expat's events for one document. expat is C: an exception must not pass through it, so what a handler throws
// is kept, the parser stopped, and the exception thrown again when expat has returned.
class XMLTreeBuilder {
public:
    XMLTreeBuilder(XML_Parser parser, std::size_t memoryBytes) : _parser(parser), _memoryBytes(memoryBytes) {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, &onStart, &onEnd);
        XML_SetEntityDeclHandler(parser, &onEntityDeclaration);
        XML_SetCharacterDataHandler(parser, &onText);
        XML_SetDefaultHandlerExpand(parser, &onOther);
    }

    void feed(const char* data, std::size_t length, bool last) {
        _documentBytes += length;
        if (_documentBytes > XMLLimits::kDocumentBytes) refuse("document too long");
        const XML_Status status = XML_Parse(_parser, data, static_cast<int>(length), last);
        if (_thrown) std::rethrow_exception(_thrown);
        if (status != XML_STATUS_OK) refuse(XML_GetErrorCode(_parser));
        if (_documentBytes - _reported > kMostUnread) refuseToken();
    }

    XMLTree takeTree() { return std::move(_tree); }

private:
    static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<XMLTreeBuilder*>(self)->guarded([=](XMLTreeBuilder& builder) { builder.start(name, attributes); });
    }

    // Comes for an empty element even when the parser was stopped at its start.
    static void XMLCALL onEnd(void* self, const XML_Char*) {
        static_cast<XMLTreeBuilder*>(self)->guarded([](XMLTreeBuilder& builder) {
            builder.takeToken();
            builder._path.pop_back();
            builder._memory -= kOpenElement;
        });
    }

    static void XMLCALL onEntityDeclaration(void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                                            const XML_Char*, const XML_Char*, const XML_Char*) {
        static_cast<XMLTreeBuilder*>(self)->guarded(
            [](XMLTreeBuilder& builder) { builder.refuse("entity declarations are not accepted"); });
    }

    // Text, like white space outside the root, comes in pieces as they happen to be fed.
    static void XMLCALL onText(void* self, const XML_Char*, int) { static_cast<XMLTreeBuilder*>(self)->noteReported(); }

    // Comments, declarations and all else that has no handler of its own.
    static void XMLCALL onOther(void* self, const XML_Char* bytes, int length) {
        if (length > 0 && ascii::isSpace(bytes[0])) return onText(self, bytes, length);
        static_cast<XMLTreeBuilder*>(self)->guarded([](XMLTreeBuilder& builder) { builder.takeToken(); });
    }

    template <class Handler>
    void guarded(Handler handle) {
        if (_thrown) return;
        try {
            handle(*this);
        } catch (...) {
            _thrown = std::current_exception();
            XML_StopParser(_parser, XML_FALSE);
        }
    }

    // Bytes of what is being reported.
    std::size_t tokenBytes() const { return static_cast<std::size_t>(XML_GetCurrentByteCount(_parser)); }

    void noteReported() { _reported = static_cast<std::size_t>(XML_GetCurrentByteIndex(_parser)) + tokenBytes(); }

    void takeToken() {
        if (tokenBytes() > XMLLimits::kTokenBytes) refuseToken();
        noteReported();
    }

    void start(const XML_Char* name, const XML_Char** attributes) {
        takeToken();
        charge(sizeof(XMLNode) + 2 * sizeof(void*) + kOpenElement);  // The parent's list of children grows by half.
        XMLNode& node = _tree._nodes.emplace_back(nameText(name), placeOf(_parser));
        std::size_t count = 0;
        while (attributes[2 * count]) ++count;
        if (count > 0) setAttributes(node, attributes, count);
        if (!_path.empty()) _path.back()->_children.push_back(&node);
        _path.push_back(&node);
    }

    void setAttributes(XMLNode& node, const XML_Char** attributes, std::size_t count) {
        charge(count * sizeof(XMLNode::Attribute));
        node._attributes = std::make_unique<XMLNode::Attribute[]>(count);
        node._attributeCount = count;
        for (std::size_t i = 0; i < count; ++i) {
            node._attributes[i] = {nameText(attributes[2 * i]), text(attributes[2 * i + 1])};
        }
    }

    // Elements and attributes have few names.
    std::string_view nameText(std::string_view name) {
        const auto known = _names.find(name);
        if (known != _names.end()) return *known;
        charge(kNameEntry);
        return *_names.insert(text(name)).first;
    }

    // A copy of the bytes in the tree's pages, which never move.
    std::string_view text(std::string_view bytes) {
        std::deque<std::string>& pages = _tree._texts;
        if (pages.empty() || bytes.size() > pages.back().capacity() - pages.back().size()) {
            const std::size_t page = std::max(bytes.size(), kTextPage);
            charge(page);
            pages.emplace_back().reserve(page);
        }
        std::string& page = pages.back();
        const std::size_t at = page.size();
        page += bytes;
        return std::string_view(page).substr(at);
    }

    void charge(std::size_t bytes) {
        if (bytes > _memoryBytes - _memory) refuse("too much memory needed");
        _memory += bytes;
    }

    [[noreturn]] void refuseToken() const { refuse("token too long"); }

    [[noreturn]] void refuse(const std::string& why) const { kUnit.raise<Exception>(atLine(_parser, why)); }

    [[noreturn]] void refuse(XML_Error error) const {
        const std::string why = XML_ErrorString(error);
        if (error == XML_ERROR_NO_MEMORY) kUnit.raise<OutOfMemoryException>(atLine(_parser, why));
        refuse(why);
    }

    XML_Parser _parser;
    std::size_t _memoryBytes;
    XMLTree _tree;
    std::vector<XMLNode*> _path;  // From the root to the element that is open.
    std::unordered_set<std::string_view> _names;
    std::size_t _documentBytes = 0;
    std::size_t _reported = 0;  // Where what was reported last ends in the document.
    std::size_t _memory = 0;
    std::exception_ptr _thrown;
};

namespace {

class ExpatParser : public XMLParser {
public:
    ExpatParser(ParserHandle parser, std::size_t memoryBytes) : _parser(std::move(parser)), _memoryBytes(memoryBytes) {}

    void load(InputStream& stream) override {
        _tree = XMLTree();
        XML_ParserReset(_parser.get(), nullptr);
        XMLTreeBuilder builder(_parser.get(), _memoryBytes);
        std::vector<char> piece(kPieceSize);
        for (;;) {
            const int length = stream.read(piece.data(), static_cast<int>(kPieceSize));
            if (length <= 0) break;
            builder.feed(piece.data(), static_cast<std::size_t>(length), false);
        }
        builder.feed(nullptr, 0, true);
        _tree = builder.takeTree();
    }

    XMLPlace getPlace() const override { return placeOf(_parser.get()); }

private:
    ParserHandle _parser;
    std::size_t _memoryBytes;
};

}  // namespace

const XMLNode* XMLNode::getChild(int index) const {
    return index >= 0 && index < getChildLength() ? _children[static_cast<std::size_t>(index)] : nullptr;
}

std::optional<std::string_view> XMLNode::getAttribute(std::string_view name) const {
    for (std::size_t i = 0; i < _attributeCount; ++i) {
        if (_attributes[i].name == name) return _attributes[i].value;
    }
    return std::nullopt;
}

const XMLNode* XMLTree::getNode(std::string_view path, int index) const {
    if (_nodes.empty() || index < -1) return nullptr;
    std::vector<const XMLNode*> matches = {&_nodes.front()};
    text::Fields keys(path, "/");
    for (std::string_view key; keys.next(key);) {
        if (key.empty()) continue;
        std::vector<const XMLNode*> next;
        for (const XMLNode* parent : matches) {
            for (const XMLNode* child : parent->_children) {
                if (child->_name == key) next.push_back(child);
            }
        }
        matches = std::move(next);
    }
    const auto wanted = static_cast<std::size_t>(index < 0 ? 0 : index);
    return wanted < matches.size() ? matches[wanted] : nullptr;
}

std::unique_ptr<XMLParser> XMLParser::createDefaultXMLParser(std::size_t memoryBytes) {
    ParserHandle parser(XML_ParserCreate(nullptr));
    if (!parser) return nullptr;
    return std::make_unique<ExpatParser>(std::move(parser), memoryBytes);
}

}  // namespace ZOV_SPACE
