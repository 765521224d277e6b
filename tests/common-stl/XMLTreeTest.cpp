#include "util/XMLTree.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/ChunkedInput.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

// What is wrong with the document, or "<nothing>".
std::string errorOf(XMLParser& parser, std::string document) {
    ChunkedInput stream(std::move(document));
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
    EXPECT_EQ(list->getChild(1)->getAttribute("name"), std::nullopt);
    EXPECT_EQ(list->getChild(2)->getAttribute("name"), "T&o");
    EXPECT_EQ(list->getChild(3), nullptr);
    EXPECT_EQ(list->getChild(-1), nullptr);
}

TEST(XMLTree, saysWhatIsWrongAndWhereAndLoadsTheNext) {
    constexpr std::size_t kToken = XMLLimits::kTokenBytes, kMemory = sizeof(void*) << 19, kMany = 40000;
    const std::string full(kToken - 7, '+');
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"nothing", "", "no element found at line 1"},
        {"malformed", "<a>\n<b></a>", "mismatched tag at line 2"},
        {"behind the end", "<a/>\n\njunk", "junk after document element at line 3"},
        {"could be made into any amount of text", "<!DOCTYPE a [\n<!ENTITY l 'lol'><!ENTITY m '&l;&l;'>]><a b='&m;'/>",
         "entity declarations are not accepted at line 2"},
        {"depth costs no more than memory", repeated(5000, "<a>") + repeated(5000, "</a>"), "<nothing>"},
        {"open elements cost the parser's memory", repeated(kMany, "<a>"), "too much memory needed at line 1"},
        {"which is given back", "<a>" + repeated(kMany, "<b/>") + "</a>", "<nothing>"},
        {"nodes", "<a>" + repeated(3 * kMany, "<b/>"), "too much memory needed at line 1"},
        {"text of default values", "<!DOCTYPE a [<!ATTLIST b c CDATA '" + full + "'>]><a>" + repeated(16, "<b/>"),
         "too much memory needed at line 1"},
        {"attributes by default",
         "<!DOCTYPE a [<!ATTLIST b c CDATA '' d CDATA '' e CDATA ''>]><a>" + repeated(kMany, "<b/>"),
         "too much memory needed at line 1"},
        {"the longest token", "<!--" + full + "--><a b='" + full.substr(2) + "'/>", "<nothing>"},
        {"a longer comment", "<!--+" + full + "--><a/>", "token too long at line 1"},
        {"a longer tag", "\n<a b='" + full + "'/>", "token too long at line 2"},
        {"a token without an end", "<a b='" + repeated(3, full), "token too long at line 1"},
        {"text is no token", "<a>" + repeated(4, full) + "</a>", "<nothing>"},
    };
    const auto parser = XMLParser::createDefaultXMLParser(kMemory);
    for (const auto& [why, document, error] : cases) {
        EXPECT_EQ(errorOf(*parser, document), error) << why;
        EXPECT_EQ(parser->getTree().getNode("/", -1) == nullptr, error != "<nothing>") << why;
        EXPECT_EQ(errorOf(*parser, kLists), "<nothing>") << why;
    }
    EXPECT_EQ(errorOf(*parser, "<a>" + std::string(XMLLimits::kDocumentBytes, '+')), "document too long at line 1");
    const auto roomy = XMLParser::createDefaultXMLParser();
    EXPECT_EQ(errorOf(*roomy, repeated(200000, "<a>") + repeated(200000, "</a>")), "<nothing>") << "nothing recurses";
}

}  // namespace
}  // namespace ZOV_SPACE
