// Load.cpp: the engine's own process-wide state, and what it exports of it, all in one unit, so that the order in which
// it is built when the library is loaded is the order here. Everything but the debugger record is constant-initialised.
// The layers below keep theirs beside the code that it belongs to: what each is, and what guards it, stands in
// docs/architecture.md.
#include "HeuPlugin.h"
#include "PatternSlot.h"
#include "VoleOptions.h"
#include "voleeng.h"

VoleDebugger voleeng_debugger{0, nullptr, {}};
void* heu_instance = nullptr;
const char* vole_ini_fname = "voleeng.ini";
const char* LogFileName = "";
int LogLineNo = 0;

constinit ZOV_SPACE::Mutex engineMutex;
constinit ZOV_SPACE::Mutex switchMutex;
constinit ZOV_SPACE::Mutex heuMutex;

// Plain pointers, here and below: a process that exits while its threads still scan must not have the objects deleted
// under them.
constinit PatternSlot* slotA = nullptr;
constinit PatternSlot* slotB = nullptr;
constinit std::atomic<PatternSlot*> activeSlot = nullptr;

constinit CheckSusVirus heuCheckFunction = nullptr;

constinit ZOV_SPACE::Mutex VoleOptions::_mutex;
constinit VoleOptions* VoleOptions::_instance = nullptr;

// The record's layout is what hosts compiled against.
#if defined(__i386__)
static_assert(sizeof(VoleDebugger) == 12);
#else
static_assert(offsetof(VoleDebugger, level) == 0 && offsetof(VoleDebugger, print) == 8 &&
              offsetof(VoleDebugger, dumpPath) == 16);
#endif
