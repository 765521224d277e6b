#include "util/WorkScope.h"

namespace ZOV_SPACE {

static constinit thread_local WorkScope scopeOfThread;

WorkScope& WorkScope::ofThread() { return scopeOfThread; }

}  // namespace ZOV_SPACE
