#include "util/XMLTree.h"

#include <expat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <type_traits>

#include "Raise.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"util/XMLTree"};

constexpr int kPieceSize = 16384;

struct FreeParser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserHandle = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

std::string atLine(XML_Parser parser, const std::string& text) {
    return text + " at line " + std::to_string(XML_GetCurrentLineNumber(parser));
}

}  // namespace

// Receives expat's events for one document. expat is C: an exception must not pass through it, so what a handler throws
// is kept, the parser stopped, and the exception thrown again when expat has returned.
class XMLTreeBuilder {
public:
    explicit XMLTreeBuilder(XML_Parser parser) : _parser(parser) {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, &onStart, &onEnd);
        XML_SetEntityDeclHandler(parser, &onEntityDeclaration);
    }

    void feed(const char* data, int length, bool last) {
        _documentBytes += static_cast<std::size_t>(length);
        if (_documentBytes > XMLLimits::kDocumentBytes) refuse("document too long");
        const XML_Status status = XML_Parse(_parser, data, length, last);
        if (_thrown) std::rethrow_exception(_thrown);
        if (status != XML_STATUS_OK) refuse(XML_ErrorString(XML_GetErrorCode(_parser)));
        // expat looks again at an unfinished token from its start with every piece: a long one costs the square.
        const auto tokenStart = static_cast<std::int64_t>(XML_GetCurrentByteIndex(_parser));
        const auto fed = static_cast<std::int64_t>(_documentBytes);
        if (tokenStart >= 0 && fed - tokenStart > static_cast<std::int64_t>(XMLLimits::kTokenBytes)) {
            refuse("token too long");
        }
    }

    XMLTree takeTree() { return std::move(_tree); }

private:
    static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<XMLTreeBuilder*>(self)->guarded([=](XMLTreeBuilder& builder) { builder.start(name, attributes); });
    }

    // Comes for an empty element even when the parser was stopped at its start.
    static void XMLCALL onEnd(void* self, const XML_Char*) {
        static_cast<XMLTreeBuilder*>(self)->guarded([](XMLTreeBuilder& builder) { builder._path.pop_back(); });
    }

    static void XMLCALL onEntityDeclaration(void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                                            const XML_Char*, const XML_Char*, const XML_Char*) {
        static_cast<XMLTreeBuilder*>(self)->guarded(
            [](XMLTreeBuilder& builder) { builder.refuse("entity declarations are not accepted"); });
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

    void start(const XML_Char* name, const XML_Char** attributes) {
        if (_path.size() >= XMLLimits::kDepth) refuse("elements nested too deep");
        if (_tree._nodes.size() >= XMLLimits::kElements) refuse("too many elements");
        XMLNode& node = _tree._nodes.emplace_back(text(name));
        for (; *attributes; attributes += 2) {
            if (++_attributes > XMLLimits::kAttributes) refuse("too many attributes");
            node._attributes.emplace_back(text(attributes[0]), text(attributes[1]));
        }
        if (!_path.empty()) _path.back()->_children.push_back(&node);
        _path.push_back(&node);
    }

    std::string text(const XML_Char* bytes) {
        const std::size_t length = std::strlen(bytes);
        if (length > XMLLimits::kTextBytes - _textBytes) refuse("too much text in elements");
        _textBytes += length;
        return std::string(bytes, length);
    }

    [[noreturn]] void refuse(const std::string& why) const { kUnit.raise<Exception>(atLine(_parser, why)); }

    XML_Parser _parser;
    XMLTree _tree;
    std::vector<XMLNode*> _path;  // From the root to the element that is open.
    std::size_t _documentBytes = 0;
    std::size_t _textBytes = 0;
    std::size_t _attributes = 0;
    std::exception_ptr _thrown;
};

namespace {

class ExpatParser : public XMLParser {
public:
    explicit ExpatParser(ParserHandle parser) : _parser(std::move(parser)) {}

    void load(InputStream& stream) override {
        _tree = XMLTree();
        XML_ParserReset(_parser.get(), nullptr);
        XMLTreeBuilder builder(_parser.get());
        std::vector<char> piece(kPieceSize);
        for (;;) {
            const int length = stream.read(piece.data(), kPieceSize);
            if (length <= 0) break;
            builder.feed(piece.data(), length, false);
        }
        builder.feed(nullptr, 0, true);
        _tree = builder.takeTree();
    }

private:
    ParserHandle _parser;
};

}  // namespace

const XMLNode* XMLNode::getChild(int index) const {
    return index >= 0 && index < getChildLength() ? _children[static_cast<std::size_t>(index)] : nullptr;
}

const std::string* XMLNode::getAttribute(std::string_view name) const {
    for (const auto& [key, value] : _attributes) {
        if (key == name) return &value;
    }
    return nullptr;
}

const XMLNode* XMLTree::getNode(std::string_view path, int index) const {
    if (_nodes.empty() || index < -1) return nullptr;
    std::vector<const XMLNode*> matches = {&_nodes.front()};
    while (!path.empty()) {
        const std::string_view key = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(key.size() + 1, path.size()));
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

std::unique_ptr<XMLParser> XMLParser::createDefaultXMLParser() {
    ParserHandle parser(XML_ParserCreate(nullptr));
    if (!parser) return nullptr;
    return std::make_unique<ExpatParser>(std::move(parser));
}

}  // namespace ZOV_SPACE
