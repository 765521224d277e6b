// Census: counts, ahead of the scan, what there is to be scanned, so that a progress line has something to compare
// with.
//   Owns:    a thread, which no signal goes to.
//   Borrows: paths, rules and progress line.
#ifndef VOLE_TOOL_CENSUS_H
#define VOLE_TOOL_CENSUS_H

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Progress.h"
#include "WalkRules.h"

class Census {
public:
    Census(const std::vector<std::string>& paths, const WalkRules& rules, Progress& progress);
    ~Census();
    Census(const Census&) = delete;
    Census& operator=(const Census&) = delete;

private:
    void run();
    void countBelow(const std::string& path);

    const std::vector<std::string>& _paths;
    const WalkRules& _rules;
    Progress& _progress;
    std::atomic<bool> _stopping = false;
    std::thread _thread;
};

#endif  // VOLE_TOOL_CENSUS_H
