// Page: what people see in the place of what was blocked.
//   Threads: pages do not change; any number at once.
#ifndef VOLE_ICAP_PAGE_H
#define VOLE_ICAP_PAGE_H

#include <string>
#include <string_view>

#include "Verdict.h"

namespace icap {

class Pages {
public:
    // The built-in pages, or those of the folder: "found.html" and "incomplete.html", each up to 64 KiB.
    // Throws SettingError when the folder has one that cannot be read; what it lacks is built in.
    explicit Pages(const std::string& folder);

    // The page with {{threat}}, {{member}} and {{url}} filled in, escaped for HTML. What else stands between such
    // braces stays. Nothing of the body is in it.
    std::string render(const Verdict& verdict, std::string_view url) const;

private:
    std::string _found, _incomplete;
};

}  // namespace icap

#endif  // VOLE_ICAP_PAGE_H
