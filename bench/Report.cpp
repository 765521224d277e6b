#include "Report.h"

#include <cstdio>
#include <sstream>

namespace {

constexpr int kWhatWidth = 58;
constexpr int kMeasuredWidth = 27;
constexpr std::size_t kNoteWidth = 115;

std::string rounded(double value, int digits, const char* unit) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f %s", digits, value, unit);
    return text;
}

std::string timesText(const Times& times) { return timeText(times.subject) + " / " + timeText(times.reference); }

}  // namespace

std::string timeText(double seconds) {
    if (seconds < 1e-6) return rounded(seconds * 1e9, 1, "ns");
    if (seconds < 1e-3) return rounded(seconds * 1e6, 1, "us");
    return seconds < 1 ? rounded(seconds * 1e3, 1, "ms") : rounded(seconds, 2, "s");
}

void Report::section(const std::string& title, const std::string& text) {
    std::printf("\n%s\n", title.c_str());
    if (!text.empty()) note(text);
    std::fflush(stdout);
}

void Report::note(const std::string& text) {
    std::istringstream words(text);
    std::size_t column = 0;
    for (std::string word; words >> word; column += word.size() + 1) {
        if (column == 0 || column + word.size() > kNoteWidth) {
            std::fputs(column == 0 ? " " : "\n ", stdout);
            column = 1;
        }
        std::printf(" %s", word.c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
}

void Report::row(const std::string& what, const std::string& measured, double value, Bound bound, double target) {
    const bool met = bound == Bound::atMost ? value <= target : value >= target;
    ++(met ? _met : _missed);
    std::printf("  %-*s %*s %8.3f  %s %-5g %s\n", kWhatWidth, what.c_str(), kMeasuredWidth, measured.c_str(), value,
                bound == Bound::atMost ? "<=" : ">=", target, met ? "PASS" : "MISS");
    std::fflush(stdout);
}

void Report::ratio(const std::string& what, const Times& times, double target) {
    row(what, timesText(times), times.subject / times.reference, Bound::atMost, target);
}

void Report::speed(const std::string& what, const Times& times, double target) {
    row(what, timesText(times), times.reference / times.subject, Bound::atLeast, target);
}

void Report::info(const std::string& what, const Times& times) {
    std::printf("  %-*s %*s %8.3f\n", kWhatWidth, what.c_str(), kMeasuredWidth, timesText(times).c_str(),
                times.subject / times.reference);
    std::fflush(stdout);
}

void Report::value(const std::string& what, double value, const std::string& unit, Bound bound, double target) {
    row(what, unit, value, bound, target);
}

void Report::summary() const {
    std::printf("\n%d of %d ratios meet their target.\n", _met, _met + _missed);
    std::fflush(stdout);
}
