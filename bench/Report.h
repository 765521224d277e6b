// Report: the lines that a run prints, and how many of its ratios missed their target.
#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

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

private:
    void row(const std::string& what, const std::string& measured, double value, Bound bound, double target);

    int _met = 0;
    int _missed = 0;
};

// "1.23 ms"
std::string timeText(double seconds);

#endif  // BENCH_REPORT_H
