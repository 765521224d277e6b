#include "util/XMLTree.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Exception.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {
namespace {

// Delivers a text in pieces of at most `piece` bytes.
class TextStream : public InputStream {
public:
    explicit TextStream(std::string text, int piece = 1 << 20) : _text(std::move(text)), _piece(piece) {}

    using InputStream::read;
    int read(char* buf, int len) override {
        const std::size_t count = _text.copy(buf, static_cast<std::size_t>(std::min(len, _piece)), _position);
        _position += count;
        return static_cast<int>(count);
    }

private:
    std::string _text;
    std::size_t _position = 0;
    int _piece;
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

constexpr const char* kLists =
    "<?xml version=\"1.0\"?>\n<!-- lists --><lists><FalseAlarm><item name=\"One\"/>text<item/><other name='T&amp;o'/>"
    "</FalseAlarm><Empty/><FalseAlarm><item name='Four'/></FalseAlarm></lists>";

TEST(XMLTree, findsNodesByPathHoweverTheStreamIsCut) {
    struct Case {
        const char* path;
        int index, children;  // -1 children: not found.
    };
    const Case cases[] = {
        {"/FalseAlarm", -1, 3}, {"FalseAlarm/", 1, 1},         {"/FalseAlarm", 2, -1},  {"/FalseAlarm//item", 2, 0},
        {"/", -1, 3},           {"/lists/FalseAlarm", -1, -1}, {"/falsealarm", -1, -1}, {"/FalseAlar", -1, -1},
    };
    const auto parser = XMLParser::createDefaultXMLParser();
    for (int piece : {1, 7, 1 << 20}) {
        TextStream stream(kLists, piece);
        parser->load(stream);
        for (const Case& c : cases) {
            const XMLNode* node = parser->getTree().getNode(c.path, c.index);
            EXPECT_EQ(node ? node->getChildLength() : -1, c.children) << c.path << c.index;
        }
    }
    const XMLNode* list = parser->getTree().getNode("/FalseAlarm", -1);
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
        {"<!DOCTYPE a [\n<!ENTITY l 'lol'><!ENTITY m '&l;&l;'>]><a b='&m;'/>",
         "entity declarations are not accepted at line 2"},
        {repeated(Limits::kDepth, "<a>") + repeated(Limits::kDepth, "</a>"), ""},
        {repeated(Limits::kDepth, "<a>") + "<b/>", "elements nested too deep at line 1"},
        {"<a>" + repeated(Limits::kElements, "<b/>") + "</a>", "too many elements at line 1"},
        {"<!DOCTYPE a [<!ATTLIST b c CDATA '" + std::string(Limits::kTokenBytes / 2, 'c') + "'>]><a>" +
             repeated(2 * Limits::kTextBytes / Limits::kTokenBytes, "<b/>") + "</a>",
         "too much text in elements at line 1"},
        {"<!DOCTYPE a [<!ATTLIST b c CDATA '' d CDATA '' e CDATA ''>]><a>" +
             repeated(Limits::kAttributes / 3 + 1, "<b/>") + "</a>",
         "too many attributes at line 1"},
        {"<!--a--><!-- " + std::string(2 * Limits::kTokenBytes, '+') + " --><a/>", "token too long at line 1"},
        {"<a>" + repeated(64, std::string(Limits::kTokenBytes - 32768, '+') + "<b/>") + "</a>", ""},
        {"<a>" + std::string(Limits::kDocumentBytes, '\n') + "</a>",
         "document too long at line " + std::to_string(Limits::kDocumentBytes - 2)},
    };
    const auto parser = XMLParser::createDefaultXMLParser();
    for (const Case& c : cases) {
        EXPECT_EQ(errorOf(*parser, c.document), c.error) << c.document.substr(0, 80);
        EXPECT_EQ(parser->getTree().getNode("/", -1) == nullptr, !c.error.empty()) << "empty after a failure";
        EXPECT_EQ(errorOf(*parser, kLists), "");
    }
}

}  // namespace
}  // namespace ZOV_SPACE
