// What cases.txt says of texts, numbers, paths, positions and XML; then what does not fit in its rows.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "Text.h"
#include "Utils.h"
#include "io/File.h"
#include "io/IOBuffer.h"
#include "support/ChunkedInput.h"
#include "support/GoldenRows.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "util/XMLTree.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

// What is wrong with the document, or "<nothing>".
std::string errorOf(XMLParser& parser, const std::string& document, int piece = 1 << 20) {
    ChunkedInput stream(document, piece);
    return thrownBy<Exception>([&] { parser.load(stream); });
}

constexpr const char* kLists =
    "<?xml version=\"1.0\"?>\n<!-- lists --><lists><FalseAlarm><item name=\"One\"/>text<item/><other name='T&amp;o'/>"
    "</FalseAlarm><Empty/><FalseAlarm><item name='Four'/></FalseAlarm></lists>";

TEST(Texts, haveFields) {
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "field")) {
        const std::unique_ptr<char[]> field(Utils::strToK(textOrNull(row[0]), std::stoi(row[1]), textOrNull(row[2])));
        EXPECT_STREQ(field.get(), textOrNull(row[3])) << row[0] << ' ' << row[1];
    }
}

TEST(Texts, areEqualAndReplaced) {
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "same")) {
        const char *const a = textOrNull(row[0]), *const b = textOrNull(row[1]);
        EXPECT_EQ(StringHelper::equalsIgnoreCase(a, b), std::stoi(row[2])) << row[0];
        EXPECT_EQ(StringHelper::endsWithIgnoreCase(a, b), std::stoi(row[3])) << row[0];
    }
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "replace")) {
        std::string text = row[0];
        StringHelper::replace(text, textOrNull(row[1]), row[2].c_str());
        EXPECT_TRUE(text == row[3]) << row[4];
    }
}

TEST(Utils, parsesNumbersAsEver) {
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "number")) {
        int value = 0;
        const auto parse = [&] {
            value = Utils::parseInt(row[0].data(), static_cast<int>(row[0].size()), std::stoi(row[1]));
        };
        EXPECT_EQ(thrownBy<Exception>(parse), row[3]) << row[4];
        EXPECT_EQ(value, std::stoi(row[2])) << row[4];
        EXPECT_EQ(unitThrownBy(parse), row[3] == "<nothing>" ? row[3] : "Utils") << row[4];
    }
}

TEST(File, takesPathsApart) {
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "path")) {
        const File file(row[0]);
        EXPECT_EQ("[" + file.getPath() + "] [" + file.getParent() + "] [" + file.getName() + "]", row[1]);
    }
}

TEST(IOBuffer, seeksByWhenceWithItsOwnAnswerToEachBadTarget) {
    const auto position = [](const std::string& field) { return std::strtol(field.c_str(), nullptr, 10); };  // Clamped.
    StringBuffer buffer("abcdefghij");
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "seek")) {
        IOBuffer cursor(&buffer);
        cursor.seek(0, 3);
        EXPECT_EQ(cursor.seek(std::stoi(row[0]), position(row[1])), position(row[2])) << row[3];
    }
}

TEST(Utils, doesWhatItsRowsCannotSay) {
    EXPECT_FALSE(StringHelper::startsWithIgnoreCase("ab", "abc"));
    EXPECT_EQ(text::field("a:bcd:e"sv.substr(0, 4), 1, ":"), "bc") << "stays inside the view";
    EXPECT_EQ((text::splitFields<4>(":a::b", ":")), (std::array{""sv, "a"sv, "b"sv, ""sv}));
    std::vector<std::string> tokens;
    Utils::stringTokenizer(
        ",a,;b", tokens, ",;", [](std::string& token, void* mark) { token += *static_cast<char*>(mark); },
        std::string("!").data());
    EXPECT_EQ(tokens, (std::vector<std::string>{"a!", "b!"})) << "changed before they are appended";
    std::string endless = "aab";  // aab -> abbaa -> bbaabaa, which has aab in it again.
    StringHelper::replace(endless, "ab", "bbaa");
    EXPECT_EQ(endless.size(), 3 + 2 * (StringHelper::kMaxGrowingReplacements + 1)) << "and what was there by then";
    EXPECT_TRUE(Utils::memstr("ab\0cd", 5, "\0c", 2));
    EXPECT_FALSE(Utils::memstr("ab\0cd", 3, "\0c", 2));
    EXPECT_EQ(Utils::formatString("%5000d", 1).size(), 4095u);
    EXPECT_EQ(Utils::parseInt("7", -1, 10), 0);
    for (int byte = 0; byte < 256; ++byte) {
        const char high = Utils::CHAR_TO_HEX(byte >> 4), low = Utils::CHAR_TO_HEX(byte);
        EXPECT_EQ(static_cast<unsigned char>(Utils::HEX_TO_CHAR(high, low)), byte);
    }
    EXPECT_EQ(Utils::HEX_TO_CHAR('?', '\xFF'), '\0');
}

TEST(XMLTree, findsNodesByPathHoweverTheStreamIsCut) {
    const auto parser = XMLParser::createDefaultXMLParser();
    for (const int piece : {1, 7, 1 << 20}) {
        EXPECT_EQ(errorOf(*parser, kLists, piece), "<nothing>");
        for (const GoldenRow& row : goldenRows(VOLE_CASES, "node")) {
            const XMLNode* const node = parser->getTree().getNode(row[0].c_str(), std::stoi(row[1]));
            EXPECT_EQ(node ? node->getChildLength() : -1, std::stoi(row[2])) << row[0] << row[1];
        }
    }
    const XMLNode* const list = parser->getTree().getNode("/FalseAlarm", -1);
    EXPECT_EQ(list->getChild(1)->getAttribute("name"), std::nullopt);
    EXPECT_EQ(list->getChild(2)->getAttribute("name"), "T&o");
    EXPECT_TRUE(!list->getChild(3) && !list->getChild(-1));
}

TEST(XMLTree, saysWhatIsWrongAndWhereAndLoadsTheNext) {
    const auto parser = XMLParser::createDefaultXMLParser(sizeof(void*) << 19);
    for (const GoldenRow& row : goldenRows(VOLE_CASES, "document")) {
        EXPECT_EQ(errorOf(*parser, row[0]), row[1]) << row[2];
        EXPECT_EQ(parser->getTree().getNode("/", -1) == nullptr, row[1] != "<nothing>") << row[2];
        EXPECT_EQ(errorOf(*parser, kLists), "<nothing>") << row[2];
    }
    EXPECT_EQ(errorOf(*parser, "<a>" + std::string(XMLLimits::kDocumentBytes, '+')), "document too long at line 1");
    const auto roomy = XMLParser::createDefaultXMLParser();
    EXPECT_EQ(errorOf(*roomy, unescaped("{200000*<a>}{200000*</a>}")), "<nothing>") << "nothing recurses";
}

}  // namespace
}  // namespace ZOV_SPACE
