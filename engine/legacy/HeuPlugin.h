// HeuPlugin.h: the heuristic engine, a separate shared library in the pattern directory, of which the process makes at
// most one instance and keeps it until its end.
//
// Every init() opens the library of its directory and configures it; only when there is no instance yet is one made.
// From then on the instance and the function that asks it are a pair that never changes: the function is written first,
// then the instance is published with release order, so that whoever sees the instance sees its own library's function,
// whichever library was opened last. Nothing is ever closed, because the instance's code may run on another thread.
#ifndef ENGINE_LEGACY_HEUPLUGIN_H
#define ENGINE_LEGACY_HEUPLUGIN_H

#include <string>

using CheckSusVirus = int (*)(void* instance, int target, int* verdict, int* extra);

// Belongs to heu_instance; defined in Load.cpp. Written under engineMutex, once, before the instance is published.
extern CheckSusVirus heuCheckFunction;

// Loads "libheueng.so" from the directory, hands it the path of its "heueng.ini" and makes its instance. 0;
// VOLE_PLUGIN_FAILED with a text in `message` that names the failed step; VOLE_PLUGIN_PRESENT, with an empty text, when
// there is an instance already, which then stays the one in use. The library is never closed.
// REQUIRES: the caller holds engineMutex.
int loadHeuPlugin(const std::string& directory, std::string& message);

// Passes a question to the plug-in, one at a time, and returns its verdict. Without a plug-in: 0, and *extra becomes 0.
// `extra` may be null.
int askHeuPlugin(int target, int* extra);

#endif  // ENGINE_LEGACY_HEUPLUGIN_H
