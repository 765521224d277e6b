// Report: the lines that a run prints, how many of its ratios missed their target, and all figures as JSON.
#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <nlohmann/json.hpp>
#include <string>

#include "Timing.h"

enum class Bound { atMost, atLeast };

class Report {
public:
    void section(const std::string& title, const std::string& note = "");
    void note(const std::string& text);

    // subject / reference against the largest ratio allowed.
    void ratio(const std::string& what, const Times& times, double target);
    // reference / subject, that is the subject's speed relative to the reference's, against the smallest allowed.
    void speed(const std::string& what, const Times& times, double target);
    // subject / reference without a target.
    void info(const std::string& what, const Times& times);
    // A single number against a bound.
    void value(const std::string& what, double value, const std::string& unit, Bound bound, double target);

    int missed() const { return _missed; }
    void summary() const;
    // Everything so far, and the machine, in a file. Throws when it cannot be written.
    void writeJson(const std::string& file) const;

private:
    void row(const std::string& what, const std::string& measured, double value, Bound bound, double target);
    void record(const char* kind, const std::string& what, const std::string& measured, double value);

    nlohmann::ordered_json _rows = nlohmann::ordered_json::array();
    std::string _section;
    int _met = 0;
    int _missed = 0;
};

// "1.23 ms"
std::string timeText(double seconds);

#endif  // BENCH_REPORT_H
