// What parts.txt says of the pieces of the ICAP service that know nothing of its server.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <map>
#include <string>

#include "BodyStore.h"
#include "ContentDecoder.h"
#include "HttpText.h"
#include "Multipart.h"
#include "Page.h"
#include "Settings.h"
#include "Verdict.h"
#include "support/GoldenRows.h"
#include "support/TempDir.h"

namespace icap {
namespace {

std::string joined(const auto& items) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : "|") + std::string(item);
    return text;
}

std::string contentOf(BodyStore& store) {
    std::string all;
    std::array<char, 7> piece{};
    for (std::size_t count; (count = store.read(piece)) != 0;) all.append(piece.data(), count);
    return all;
}

std::string formOf(const GoldenRow& row) {
    std::string text;
    const Form form = takeApart(row[1], row[0], 3);
    for (const FormPart& part : form.parts)
        text += part.name + '=' + std::string(part.content.data(), part.content.size()) + ';';
    return text + (form.trouble ? form.trouble->code : "");
}

std::string decoded(const GoldenRow& row) {
    BodyStore store(1 << 20, "/nonexistent");
    const DecodeLimits limits{100, 20, {}};
    const auto reason = decodeContent(row[0], row[1], limits, store);
    return (store.size() > 100 ? std::to_string(store.size()) : contentOf(store)) + ' ' + (reason ? reason->code : "");
}

std::string settingError(const GoldenRow& row) {
    Settings settings;
    const auto words = splitList(row[1], ' ');
    for (const SettingOption& option : settingOptions()) {
        if (option.name != row[0]) continue;
        try {
            option.apply(settings, words);
        } catch (const SettingError& error) {
            return error.what();
        }
        return "";
    }
    return "no such option";
}

// The name of a signature, or the reason, and a member; the headers and the page.
std::string answerOf(const GoldenRow& row) {
    FileReport report;
    const MemberPath member{row[2]};
    if (row[0] == "found") report.findings.push_back({row[1], "md5", "raw", false, {}, member});
    if (row[0] == "incomplete") report.reasons.push_back({row[1], "", member});
    report.outcome = row[0] == "found" ? Outcome::found : Outcome::incomplete;
    const Verdict verdict = judge(report, Settings());
    const TempDir pages;
    pages.write("found.html", "{{threat}} {{member}} {{other}} {{url}} {{");
    pages.write("incomplete.html", "{{threat}}");
    const std::string page = Pages(pages.path()).render(verdict, "http://h/?<\"&'>");
    return joined(verdict.headers()) + '|' + (verdict.action == Action::block ? page : "");
}

using Answer = std::function<std::string(const GoldenRow&)>;

TEST(IcapParts, answerAsTheRowsSay) {
    const std::map<std::string, Answer> kinds = {
        {"list", [](const GoldenRow& row) { return joined(splitList(row[0], row[1][0])); }},
        {"parameter", [](const GoldenRow& row) { return parameterOf(row[0], row[1]); }},
        {"header", [](const GoldenRow& row) { return headerSafe(row[0], 30); }},
        {"boundary", [](const GoldenRow& row) { return formBoundary(row[0]).value_or("none"); }},
        {"codings", [](const GoldenRow& row) { return joined(codingsOf(row[0])); }},
        {"form", formOf},
        {"decode", decoded},
        {"setting", settingError},
        {"answer", answerOf},
    };
    for (const auto& [kind, answer] : kinds) {
        for (const GoldenRow& row : goldenRows(VOLE_ICAP_PARTS, kind)) {
            std::string expected = row.back();
            std::ranges::replace(expected, '\x01', '|');
            EXPECT_EQ('<' + answer(row) + '>', expected) << kind << '|' << row.front();
        }
    }
}

TEST(IcapParts, bodiesComeBackFromMemoryAndFiles) {
    const TempDir folder;
    std::string all;
    BodyStore small(1'000'000, "/nonexistent"), large(1000, folder.path());
    for (int i = 0; i < 70'000; ++i) {
        const std::string piece = std::to_string(i);
        for (BodyStore* store : {&small, &large}) store->write(piece);
        all += piece;
    }
    EXPECT_EQ(small.file(), -1);
    EXPECT_GE(large.file(), 0);
    for (BodyStore* store : {&small, &large}) {
        const BodyBytes bytes = store->bytes();
        EXPECT_TRUE(std::string(bytes.get().data(), bytes.get().size()) == all);
        EXPECT_TRUE(contentOf(*store) == all);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    EXPECT_THROW(small.write(std::string(1'000'000, 'x')), std::system_error);
}

}  // namespace
}  // namespace icap
