// VoleHost.h: a host of vole.h, what it hears, and what it is told in one line of text.
#ifndef TESTS_SUPPORT_VOLEHOST_H
#define TESTS_SUPPORT_VOLEHOST_H

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "vole.h"

struct VoleRelease {
    void operator()(vole_signatures* signatures) const { vole_signatures_unref(signatures); }
    void operator()(vole_scanner* scanner) const { vole_scanner_free(scanner); }
};
using VoleSet = std::unique_ptr<vole_signatures, VoleRelease>;
using VoleScanner = std::unique_ptr<vole_scanner, VoleRelease>;

inline VoleSet loadedSet(const std::string& directory) {
    vole_signatures* set = nullptr;
    vole_signatures_load(directory.c_str(), nullptr, &set);
    return VoleSet(set);
}

inline VoleScanner scannerOf(const VoleSet& set, const vole_limits* limits = nullptr) {
    vole_scanner* scanner = nullptr;
    vole_scanner_new(set.get(), limits, &scanner);
    return VoleScanner(scanner);
}

// The usual limits, but for one.
template <class Number>
vole_limits limits(Number vole_limits::*field, unsigned value) {
    vole_limits made = VOLE_LIMITS_INIT;
    made.*field = value;
    return made;
}

inline std::string textOf(const vole_path& path) {
    std::string text;
    for (std::size_t i = 0; i < path.count; ++i) {
        text.append(i ? "/" : "").append(path.components[i].data, path.components[i].size);
    }
    return text;
}

// "found Name=md5,raw@a/b", "incomplete encrypted@a", "clean": the outcome, then what led to it.
inline std::string told(const vole_scanner* scanner) {
    const vole_result* const result = vole_scanner_result(scanner);
    std::string text = vole_outcome_name(vole_result_outcome(result));
    for (std::size_t i = 0; i < vole_result_finding_count(result); ++i) {
        const vole_finding& finding = *vole_result_finding(result, i);
        text.append(" ").append(finding.name).append(finding.allowed ? "!" : "").append("=");
        text.append(vole_kind_name(finding.kind)).append(",").append(vole_form_name(finding.form));
        if (finding.offset != VOLE_NO_OFFSET) text.append(",").append(std::to_string(finding.offset));
        if (finding.member.count != 0) text.append("@").append(textOf(finding.member));
    }
    for (std::size_t i = 0; i < vole_result_reason_count(result); ++i) {
        const vole_reason& reason = *vole_result_reason(result, i);
        text.append(" ").append(vole_reason_name(reason.code));
        if (reason.member.count != 0) text.append("@").append(textOf(reason.member));
    }
    return text.append(vole_result_error_text(result)[0] ? ": " : "").append(vole_result_error_text(result));
}

inline std::string toldOf(vole_scanner* scanner, const std::string& content) {
    vole_scan_buffer(scanner, content.data(), content.size(), nullptr);
    return told(scanner);
}

// Hands over the content in pieces; fails, if it is to, where it should end.
inline vole_error scanStream(vole_scanner* scanner, std::string_view content, bool fails = false) {
    std::pair source(content, fails);
    const vole_read_fn read = [](void* context, void* buffer, std::size_t size) -> std::ptrdiff_t {
        auto& [left, isToFail] = *static_cast<decltype(source)*>(context);
        const std::size_t count = left.copy(static_cast<char*>(buffer), std::min<std::size_t>(size, 100'000));
        left.remove_prefix(count);
        return count == 0 && isToFail ? -1 : static_cast<std::ptrdiff_t>(count);
    };
    return vole_scan_stream(scanner, read, &source, nullptr);
}

// What a host hears, and what it does about it.
struct Ear {
    std::string heard = {};
    std::function<int(const vole_event&)> react = [](const vole_event&) { return 0; };

    static int hear(void* context, const vole_event* event) {
        Ear& ear = *static_cast<Ear*>(context);
        static constexpr const char* kSigns[] = {"", ">", "<", "!", "?", ".", "=", "+", "-"};
        ear.heard += kSigns[event->type] + textOf(event->member) + " ";
        return ear.react(*event);
    }
};

#endif  // TESTS_SUPPORT_VOLEHOST_H
