#include "Page.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "HttpText.h"
#include "Settings.h"

namespace icap {
namespace {

constexpr std::string_view kFoundPage = R"(<!DOCTYPE html>
<html lang="en">
<head><meta charset="utf-8"><title>Blocked: known malware</title></head>
<body>
<h1>This content was blocked</h1>
<p>It carries known malware and was not passed on.</p>
<dl>
<dt>Threat</dt><dd>{{threat}}</dd>
<dt>Inside</dt><dd>{{member}}</dd>
<dt>Address</dt><dd>{{url}}</dd>
</dl>
<p>If you think that this is wrong, give these lines to your administrator.</p>
</body>
</html>
)";

constexpr std::string_view kIncompletePage = R"(<!DOCTYPE html>
<html lang="en">
<head><meta charset="utf-8"><title>Blocked: could not be checked</title></head>
<body>
<h1>This content was blocked</h1>
<p>It could not be checked to its end, and what was not seen is not passed on.</p>
<dl>
<dt>Reason</dt><dd>{{threat}}</dd>
<dt>Inside</dt><dd>{{member}}</dd>
<dt>Address</dt><dd>{{url}}</dd>
</dl>
<p>If you need it, give these lines to your administrator.</p>
</body>
</html>
)";

std::string load(const std::string& folder, const char* name, std::string_view builtIn) {
    constexpr std::uintmax_t kMostBytes = 64 * 1024;
    if (folder.empty()) return std::string(builtIn);
    const std::filesystem::path path = std::filesystem::path(folder) / name;
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) throw SettingError(folder + " is no folder");
    if (!std::filesystem::exists(path, error) && !error) return std::string(builtIn);
    std::ifstream file(path, std::ios::binary);
    if (error || !file || std::filesystem::file_size(path, error) > kMostBytes || error)
        throw SettingError("cannot read " + path.string() + ", or it is too large");
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

Pages::Pages(const std::string& folder)
    : _found(load(folder, "found.html", kFoundPage)), _incomplete(load(folder, "incomplete.html", kIncompletePage)) {}

std::string Pages::render(const Verdict& verdict, std::string_view url) const {
    constexpr std::string_view kOpen = "{{";
    constexpr std::string_view kClose = "}}";
    constexpr std::size_t kMostText = 2000;
    std::string_view rest = verdict.word == "found" ? _found : _incomplete;
    std::string page;
    for (std::size_t open; (open = rest.find(kOpen)) != rest.npos;) {
        const std::size_t close = rest.find(kClose, open);
        if (close == rest.npos) break;
        const std::string_view name = rest.substr(open + kOpen.size(), close - open - kOpen.size());
        page += rest.substr(0, open);
        if (name == "threat") {
            page += htmlEscaped(std::string_view(verdict.threat).substr(0, kMostText));
        } else if (name == "member") {
            page += verdict.member.empty() ? "-" : htmlEscaped(std::string_view(verdict.member).substr(0, kMostText));
        } else if (name == "url") {
            page += htmlEscaped(url.substr(0, kMostText));
        } else {
            page += rest.substr(open, close + kClose.size() - open);
        }
        rest.remove_prefix(close + kClose.size());
    }
    return page.append(rest);
}

}  // namespace icap
