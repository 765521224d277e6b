#include "ResultText.h"

#include <algorithm>
#include <iterator>

#include "voleeng.h"

namespace {

enum class Arg {
    none,   // The text is `before` alone.
    shown,  // The argument stands behind `before`, "[NULL]" for a null.
    bare,   // The same, but nothing for a null.
};

struct ResultText {
    int code;
    const char* before;
    Arg arg = Arg::none;
    const char* after = "";
};

constexpr int kFirstCode = VOLE_ALREADY_LOADED;
constexpr int kLastCode = VOLE_STANDBY_BUSY;

// Kept as is: texts that no caller asks for, so that hosts receive the same message for the same number; and that of
// VOLE_NO_LIST, which ends without a full stop. A bare number is reserved and has no text.
constexpr ResultText kResultTexts[] = {
    {VOLE_ALREADY_LOADED, "pattern for VoleEngine has been loaded."},
    {VOLE_NO_PATTERNS, "pattern for VoleEngine has not been loaded."},
    {VOLE_INVALID_DIRECTORY, "", Arg::bare, " isn't a valid pattern dir path."},
    {VOLE_PATTERNS_BUSY, "pattern is in busy now, fail to free it."},
    {VOLE_OUT_OF_MEMORY, "fail to allocate memory."},
    {VOLE_EMPTY_PATTERNS, "pattern is empty."},
    {VOLE_INVALID_PATTERN, "fail to load pattern file: ", Arg::shown, ", maybe this pattern file format is not valid."},
    {VOLE_CANNOT_OPEN, "fail to open file: ", Arg::shown},
    {-492, ""},
    {-491, ""},
    {VOLE_NO_OPTION_FILE, ""},
    {VOLE_INVALID_OPTION, ""},
    {VOLE_INVALID_LIST, "fail to load pa list from ", Arg::shown},
    {VOLE_LIST_LOADED, "PA list has been loaded."},
    {VOLE_NO_LIST, "PA list has not been loaded"},
    {VOLE_LIST_BUSY, "PA list is in busy now, fail to free it."},
    {-484, ""},
    {VOLE_SCAN_FAILED, ""},
    {VOLE_NO_ENTRY, ""},
    {VOLE_CANNOT_READ, ""},
    {-480, ""},
    {VOLE_PLUGIN_FAILED, ""},
    {VOLE_PLUGIN_LOADED, "heu-eng for VoleEngine has been loaded."},
    {-477, ""},
    {VOLE_PLUGIN_PRESENT, ""},
    {-475, ""},
    {-474, ""},
    {VOLE_NOT_LOADED, ""},
    {VOLE_STANDBY_BUSY, "No idle container."},
};

constexpr bool inCodeOrder() {
    for (int i = 0; i < static_cast<int>(std::size(kResultTexts)); ++i) {
        if (kResultTexts[i].code != kFirstCode + i) return false;
    }
    return std::size(kResultTexts) == kLastCode - kFirstCode + 1;
}
static_assert(inCodeOrder(), "a code's text is found by its place in the table");

}  // namespace

void resultMessage(int code, const char* arg, std::string& message) {
    std::string text;  // Apart, because the argument may be the old message's text.
    if (code >= kFirstCode && code <= kLastCode) {
        const ResultText& row = kResultTexts[code - kFirstCode];
        text = row.before;
        if (row.arg != Arg::none) {
            if (arg || row.arg == Arg::shown) text += arg ? arg : "[NULL]";
            text += row.after;
        }
    }
    message.swap(text);
}
