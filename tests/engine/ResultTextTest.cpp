#include "ResultText.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

namespace {

TEST(ResultText, everyCodeHasItsText) {
    struct Texts {
        std::string withArgument;  // For the argument "/p".
        std::string withNull;
    };
    const auto fixed = [](const char* text) { return Texts{text, text}; };
    const std::string badFile = ", maybe this pattern file format is not valid.";
    const std::map<int, Texts> expected = {
        {-500, fixed("pattern for VoleEngine has been loaded.")},
        {-499, fixed("pattern for VoleEngine has not been loaded.")},
        {-498, {"/p isn't a valid pattern dir path.", " isn't a valid pattern dir path."}},
        {-497, fixed("pattern is in busy now, fail to free it.")},
        {-496, fixed("fail to allocate memory.")},
        {-495, fixed("pattern is empty.")},
        {-494, {"fail to load pattern file: /p" + badFile, "fail to load pattern file: [NULL]" + badFile}},
        {-493, {"fail to open file: /p", "fail to open file: [NULL]"}},
        {-488, {"fail to load pa list from /p", "fail to load pa list from [NULL]"}},
        {-487, fixed("PA list has been loaded.")},
        {-486, fixed("PA list has not been loaded")},
        {-485, fixed("PA list is in busy now, fail to free it.")},
        {-478, fixed("heu-eng for VoleEngine has been loaded.")},
        {-472, fixed("No idle container.")},
    };
    const auto check = [&](int code) {
        const auto entry = expected.find(code);
        const Texts texts = entry == expected.end() ? Texts{} : entry->second;
        std::string message = "earlier";
        resultMessage(code, "/p", message);
        EXPECT_EQ(message, texts.withArgument) << code;
        message = "earlier";
        resultMessage(code, nullptr, message);
        EXPECT_EQ(message, texts.withNull) << code;
    };
    for (int code = -510; code <= -460; ++code) check(code);
    for (const int code : {INT_MIN, -1, 0, 1, INT_MAX}) check(code);
}

}  // namespace
