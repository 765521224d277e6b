#include "util/XMLTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "Exception.h"
#include "Raise.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {
namespace {

// Delivers a text in pieces of at most `piece` bytes and fails instead of ending when asked to.
class TextStream : public InputStream {
public:
    explicit TextStream(std::string text, int piece = 1 << 20, bool fails = false)
        : _text(std::move(text)), _piece(piece), _fails(fails) {}

    using InputStream::read;
    int read(char* buf, int len) override {
        if (_fails && _position == _text.size()) raise<IOException>("stream failed");
        const std::size_t count =
            std::min({_text.size() - _position, static_cast<std::size_t>(len), static_cast<std::size_t>(_piece)});
        std::memcpy(buf, _text.data() + _position, count);
        _position += count;
        return static_cast<int>(count);
    }

private:
    std::string _text;
    std::size_t _position = 0;
    int _piece;
    bool _fails;
};

std::string errorOf(XMLParser& parser, const std::string& document) {
    TextStream stream(document);
    try {
        parser.load(stream);
    } catch (Exception& e) {
        return e.getMessage();
    }
    return "";
}

std::string repeated(std::size_t count, const std::string& text) {
    std::string result;
    while (count-- > 0) result += text;
    return result;
}

std::string nested(std::size_t depth) { return repeated(depth, "<a>") + repeated(depth, "</a>"); }

constexpr const char* kLists =
    "<?xml version=\"1.0\"?>\n<!-- lists --><lists><FalseAlarm><item name=\"One\"/>text<item/><other name='T&amp;o'/>"
    "</FalseAlarm><Empty/><FalseAlarm><item name='Four'/></FalseAlarm></lists>";

TEST(XMLTree, findsNodesByPathHoweverTheStreamIsCut) {
    struct Case {
        const char* path;
        int index;
        const char* name;  // Null: not found.
        int children;
    };
    const Case cases[] = {
        {"/FalseAlarm", -1, "FalseAlarm", 3},
        {"FalseAlarm/", -1, "FalseAlarm", 3},
        {"/FalseAlarm", 1, "FalseAlarm", 1},
        {"/FalseAlarm", 2, nullptr, 0},
        {"/FalseAlarm", -2, nullptr, 0},
        {"/FalseAlarm/item", 2, "item", 0},
        {"/FalseAlarm//other", 0, "other", 0},
        {"/Empty", -1, "Empty", 0},
        {"/", -1, "lists", 3},
        {"/lists/FalseAlarm", -1, nullptr, 0},
        {"/falsealarm", -1, nullptr, 0},
        {"/FalseAlar", -1, nullptr, 0},
        {"/Empty/item", -1, nullptr, 0},
    };
    const auto parser = XMLParser::createDefaultXMLParser();
    ASSERT_NE(parser, nullptr);
    EXPECT_EQ(parser->getTree().getNode("/", -1), nullptr) << "nothing is loaded";
    for (int piece : {1, 7, 1 << 20}) {
        TextStream stream(kLists, piece);
        parser->load(stream);
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.path) + " " + std::to_string(c.index));
            const XMLNode* node = parser->getTree().getNode(c.path, c.index);
            ASSERT_EQ(node != nullptr, c.name != nullptr);
            if (!node) continue;
            EXPECT_EQ(node->getName(), c.name);
            EXPECT_EQ(node->getChildLength(), c.children);
        }
    }
    const XMLNode* list = parser->getTree().getNode("/FalseAlarm", -1);
    EXPECT_EQ(*list->getChild(0)->getAttribute("name"), "One");
    EXPECT_EQ(list->getChild(1)->getAttribute("name"), nullptr);
    EXPECT_EQ(*list->getChild(2)->getAttribute("name"), "T&o");
    EXPECT_EQ(list->getChild(3), nullptr);
    EXPECT_EQ(list->getChild(-1), nullptr);
}

TEST(XMLTree, saysWhatIsWrongAndWhereAndLoadsTheNext) {
    using Limits = XMLLimits;
    struct Case {
        std::string document, error;
    };
    const Case cases[] = {
        {"", "no element found at line 1"},
        {"<a>\n<b></a>", "mismatched tag at line 2"},
        {"<a/>\n\njunk", "junk after document element at line 3"},
        {"<a>\n", "no element found at line 2"},
        {"<a x='1' x='2'/>", "duplicate attribute at line 1"},
        {"<a>&lol;</a>", "undefined entity at line 1"},
        {"\n<?xml version='1.0'?><a/>", "XML or text declaration not at start of entity at line 2"},
        {"<!DOCTYPE a [\n<!ENTITY l 'lol'><!ENTITY m '&l;&l;'>]><a b='&m;'/>",
         "entity declarations are not accepted at line 2"},
        {"<!DOCTYPE a [<!ENTITY % p SYSTEM 'file:///etc/passwd'> %p;]><a/>",
         "entity declarations are not accepted at line 1"},
        {"<!DOCTYPE a [<!ENTITY p SYSTEM 'file:///etc/passwd'>]><a>&p;</a>",
         "entity declarations are not accepted at line 1"},
        {nested(Limits::kDepth), ""},
        {nested(Limits::kDepth + 1), "elements nested too deep at line 1"},
        {repeated(Limits::kDepth, "<a>") + "<b/>", "elements nested too deep at line 1"},
        {"<a>" + repeated(Limits::kElements, "<b/>") + "</a>", "too many elements at line 1"},
        {"<!DOCTYPE a [<!ATTLIST b c CDATA '" + std::string(Limits::kTokenBytes / 2, 'c') + "'>]><a>" +
             repeated(2 * Limits::kTextBytes / Limits::kTokenBytes, "<b/>") + "</a>",
         "too much text in elements at line 1"},
        {"<!DOCTYPE a [<!ATTLIST b c CDATA '' d CDATA '' e CDATA ''>]><a>" +
             repeated(Limits::kAttributes / 3 + 1, "<b/>") + "</a>",
         "too many attributes at line 1"},
        {"<!-- " + std::string(2 * Limits::kTokenBytes, '-') + " --><a/>", "not well-formed (invalid token) at line 1"},
        {"<!--a--><!-- " + std::string(2 * Limits::kTokenBytes, '+') + " --><a/>", "token too long at line 1"},
        {"<a><b/><b c='" + std::string(2 * Limits::kTokenBytes, '+') + "'/></a>", "token too long at line 1"},
        {"<a>" + repeated(64, std::string(Limits::kTokenBytes - 32768, '+') + "<b/>") + "</a>", ""},
        {"<a>" + std::string(Limits::kDocumentBytes, '\n') + "</a>",
         "document too long at line " + std::to_string(Limits::kDocumentBytes - 2)},
    };
    const auto parser = XMLParser::createDefaultXMLParser();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.document.substr(0, 80));
        EXPECT_EQ(errorOf(*parser, c.document), c.error);
        EXPECT_EQ(parser->getTree().getNode("/", -1) == nullptr, !c.error.empty()) << "empty after a failure";
        EXPECT_EQ(errorOf(*parser, kLists), "");
    }
}

TEST(XMLTree, refusesEveryPrefix) {
    const auto parser = XMLParser::createDefaultXMLParser();
    const std::string whole = kLists;
    for (std::size_t size = 0; size < whole.size(); ++size) EXPECT_NE(errorOf(*parser, whole.substr(0, size)), "");
}

TEST(XMLTree, letsTheStreamsOwnFailureThrough) {
    const auto parser = XMLParser::createDefaultXMLParser();
    TextStream stream("<a>", 1, true);
    EXPECT_THROW(parser->load(stream), IOException);
    EXPECT_EQ(parser->getTree().getNode("/", -1), nullptr);
}

}  // namespace
}  // namespace ZOV_SPACE
