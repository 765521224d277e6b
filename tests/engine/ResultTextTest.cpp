#include "ResultText.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

TEST(ResultText, everyCodeHasItsText) {
    // "*" stands for the argument.
    const std::map<int, std::string> expected = {
        {-500, "pattern for VoleEngine has been loaded."},
        {-499, "pattern for VoleEngine has not been loaded."},
        {-498, "* isn't a valid pattern dir path."},
        {-497, "pattern is in busy now, fail to free it."},
        {-496, "fail to allocate memory."},
        {-495, "pattern is empty."},
        {-494, "fail to load pattern file: *, maybe this pattern file format is not valid."},
        {-493, "fail to open file: *"},
        {-488, "fail to load pa list from *"},
        {-487, "PA list has been loaded."},
        {-486, "PA list has not been loaded"},
        {-485, "PA list is in busy now, fail to free it."},
        {-478, "heu-eng for VoleEngine has been loaded."},
        {-472, "No idle container."},
    };
    for (int code = -510; code <= 2; ++code) {
        for (const char* const argument : {"/p", static_cast<const char*>(nullptr)}) {
            std::string text = expected.contains(code) ? expected.at(code) : "";
            const std::string null = code == -498 ? "" : "[NULL]";
            if (const auto at = text.find('*'); at != text.npos) text.replace(at, 1, argument ? argument : null);
            std::string message = "earlier";
            resultMessage(code, argument, message);
            EXPECT_EQ(message, text) << code;
        }
    }
}

}  // namespace
