// Result.h: what a scan came to, in the form in which hosts see it.
#ifndef ENGINE_CAPI_RESULT_H
#define ENGINE_CAPI_RESULT_H

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "WorkList.h"
#include "vole.h"

// Where a content is, as hosts see it. Keeps alive what it points to. Names are shared with other paths, so that many
// reasons from one archive cost as many names as it has.
class KeptPath {
public:
    explicit KeptPath(std::shared_ptr<const ContentName> name);
    KeptPath(const KeptPath&) = delete;
    KeptPath& operator=(const KeptPath&) = delete;
    KeptPath(KeptPath&&) = default;

    const ContentName& name() const { return *_name; }
    vole_path view() const { return {_components.data(), _components.size()}; }

private:
    std::shared_ptr<const ContentName> _name;
    std::vector<vole_bytes> _components;
};

struct KeptFinding {
    KeptPath path;
    std::string name;
    vole_finding view;
};

struct KeptReason {
    KeptPath path;
    std::string text;
    vole_reason view;
};

struct vole_result {
    static constexpr std::size_t kMostKept = 1000;  // Findings that count, allowed ones, and reasons, of each.

    // Appends, unless there are too many; pointers to those before stay valid.
    void keep(KeptFinding&& finding);
    void keep(KeptReason&& reason);
    void clear();

    vole_outcome outcome = VOLE_OUTCOME_CLEAN;
    std::string errorText;
    std::deque<KeptFinding> findings;
    std::deque<KeptReason> reasons;
    vole_counters counters{};
    // Of the findings. Apart, so that allowed ones, however many, hide none that counts.
    std::size_t keptCounting = 0, keptAllowed = 0;
};

#endif  // ENGINE_CAPI_RESULT_H
