// Load.cpp: the engine's process-wide state, in the order in which it is built when the library is loaded.
#include "voleeng.h"

VoleDebugger voleeng_debugger{0, nullptr, {}};
void* heu_instance = nullptr;
const char* vole_ini_fname = "voleeng.ini";
const char* LogFileName = "";
int LogLineNo = 0;
