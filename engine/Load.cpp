// Load.cpp: the engine's process-wide state, all in one unit, so that the order in which it is built when the library
// is loaded is the order here. Everything but the debugger record is constant-initialised.
#include "PatternSlot.h"
#include "voleeng.h"

VoleDebugger voleeng_debugger{0, nullptr, {}};
void* heu_instance = nullptr;
const char* vole_ini_fname = "voleeng.ini";
const char* LogFileName = "";
int LogLineNo = 0;

constinit ZOV_SPACE::Mutex engineMutex;
constinit ZOV_SPACE::Mutex switchMutex;
constinit ZOV_SPACE::Mutex heuMutex;

// Plain pointers: a process that exits while its threads still scan must not have the slots deleted under them.
constinit PatternSlot* slotA = nullptr;
constinit PatternSlot* slotB = nullptr;
constinit std::atomic<PatternSlot*> activeSlot = nullptr;

// The record's layout is what hosts compiled against.
#if defined(__i386__)
static_assert(sizeof(VoleDebugger) == 12);
#else
static_assert(offsetof(VoleDebugger, level) == 0 && offsetof(VoleDebugger, print) == 8 &&
              offsetof(VoleDebugger, dumpPath) == 16);
#endif
