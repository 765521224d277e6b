#include "Report.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

constexpr int kWhatWidth = 58;
constexpr int kMeasuredWidth = 27;
constexpr std::size_t kNoteWidth = 115;

std::string rounded(double value, int digits, const char* unit) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f %s", digits, value, unit);
    return text;
}

std::string processorName() {
    const std::string key = "model name\t: ";
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key)) return line.substr(key.size());
    }
    return "unknown";
}

std::string timesText(const Times& times) { return timeText(times.subject) + " / " + timeText(times.reference); }

}  // namespace

std::string timeText(double seconds) {
    if (seconds < 1e-6) return rounded(seconds * 1e9, 1, "ns");
    if (seconds < 1e-3) return rounded(seconds * 1e6, 1, "us");
    return seconds < 1 ? rounded(seconds * 1e3, 1, "ms") : rounded(seconds, 2, "s");
}

void Report::section(const std::string& title, const std::string& text) {
    _section = title;
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
    _rows.back()["bound"] = bound == Bound::atMost ? "at most" : "at least";
    _rows.back()["target"] = target;
}

// Kinds say what the value is: "time", subject / reference; "speed", reference / subject; "value", a number by itself.
void Report::record(const char* kind, const std::string& what, const std::string& measured, double value) {
    _rows.push_back({{"section", _section}, {"what", what}, {"kind", kind}, {"measured", measured}, {"value", value}});
}

void Report::ratio(const std::string& what, const Times& times, double target) {
    record("time", what, timesText(times), times.subject / times.reference);
    row(what, timesText(times), times.subject / times.reference, Bound::atMost, target);
}

void Report::speed(const std::string& what, const Times& times, double target) {
    record("speed", what, timesText(times), times.reference / times.subject);
    row(what, timesText(times), times.reference / times.subject, Bound::atLeast, target);
}

void Report::info(const std::string& what, const Times& times) {
    record("time", what, timesText(times), times.subject / times.reference);
    std::printf("  %-*s %*s %8.3f\n", kWhatWidth, what.c_str(), kMeasuredWidth, timesText(times).c_str(),
                times.subject / times.reference);
    std::fflush(stdout);
}

void Report::value(const std::string& what, double value, const std::string& unit, Bound bound, double target) {
    record("value", what, unit, value);
    row(what, unit, value, bound, target);
}

void Report::summary() const {
    std::printf("\n%d of %d ratios meet their target.\n", _met, _met + _missed);
    std::fflush(stdout);
}

void Report::writeJson(const std::string& file) const {
    const nlohmann::ordered_json all = {
        {"processor", processorName()}, {"processors", std::thread::hardware_concurrency()}, {"rows", _rows}};
    std::ofstream out(file);
    out << all.dump(1) << "\n" << std::flush;
    if (!out) throw std::runtime_error("cannot write " + file);
}
