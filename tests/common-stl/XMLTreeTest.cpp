#include "util/XMLTree.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/ChunkedInput.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

// What is wrong with the document, or "<nothing>".
std::string errorOf(XMLParser& parser, const std::string& document) {
    ChunkedInput stream(document);
    return thrownBy<Exception>([&] { parser.load(stream); });
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
    // -1 children: not found.
    const std::tuple<const char*, int, int> cases[] = {
        {"/FalseAlarm", -1, 3}, {"FalseAlarm/", 1, 1},         {"/FalseAlarm", 2, -1},  {"/FalseAlarm//item", 2, 0},
        {"/", -1, 3},           {"/lists/FalseAlarm", -1, -1}, {"/falsealarm", -1, -1}, {"/FalseAlar", -1, -1},
    };
    const auto parser = XMLParser::createDefaultXMLParser();
    for (int piece : {1, 7, 1 << 20}) {
        ChunkedInput stream(kLists, piece);
        parser->load(stream);
        for (const auto& [path, index, children] : cases) {
            const XMLNode* node = parser->getTree().getNode(path, index);
            EXPECT_EQ(node ? node->getChildLength() : -1, children) << path << index;
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
    const std::tuple<std::string, std::string> cases[] = {
        {"", "no element found at line 1"},
        {"<a>\n<b></a>", "mismatched tag at line 2"},
        {"<a/>\n\njunk", "junk after document element at line 3"},
        {"<!DOCTYPE a [\n<!ENTITY l 'lol'><!ENTITY m '&l;&l;'>]><a b='&m;'/>",
         "entity declarations are not accepted at line 2"},
        {repeated(Limits::kDepth, "<a>") + repeated(Limits::kDepth, "</a>"), "<nothing>"},
        {repeated(Limits::kDepth, "<a>") + "<b/>", "elements nested too deep at line 1"},
        {"<a>" + repeated(Limits::kElements, "<b/>") + "</a>", "too many elements at line 1"},
        {"<!DOCTYPE a [<!ATTLIST b c CDATA '" + std::string(Limits::kTokenBytes / 2, 'c') + "'>]><a>" +
             repeated(2 * Limits::kTextBytes / Limits::kTokenBytes, "<b/>") + "</a>",
         "too much text in elements at line 1"},
        {"<!DOCTYPE a [<!ATTLIST b c CDATA '' d CDATA '' e CDATA ''>]><a>" +
             repeated(Limits::kAttributes / 3 + 1, "<b/>") + "</a>",
         "too many attributes at line 1"},
        {"<!--a--><!-- " + std::string(2 * Limits::kTokenBytes, '+') + " --><a/>", "token too long at line 1"},
        {"<a>" + repeated(64, std::string(Limits::kTokenBytes - 32768, '+') + "<b/>") + "</a>", "<nothing>"},
        {"<a>" + std::string(Limits::kDocumentBytes, '\n') + "</a>",
         "document too long at line " + std::to_string(Limits::kDocumentBytes - 2)},
    };
    const auto parser = XMLParser::createDefaultXMLParser();
    for (const auto& [document, error] : cases) {
        EXPECT_EQ(errorOf(*parser, document), error) << document.substr(0, 80);
        EXPECT_EQ(parser->getTree().getNode("/", -1) == nullptr, error != "<nothing>") << "empty after a failure";
        EXPECT_EQ(errorOf(*parser, kLists), "<nothing>");
    }
}

}  // namespace
}  // namespace ZOV_SPACE
