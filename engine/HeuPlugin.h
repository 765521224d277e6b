// HeuPlugin.h: the heuristic engine, a separate shared library in the pattern directory, loaded at most once per
// process and kept until its end.
#ifndef ENGINE_HEUPLUGIN_H
#define ENGINE_HEUPLUGIN_H

#include <string>

// Loads "libheueng.so" from the directory, hands it the path of its "heueng.ini" and makes its instance. 0;
// VOLE_PLUGIN_FAILED with a text in `message` that names the failed step; VOLE_PLUGIN_PRESENT, with an empty text, when
// there is an instance already, which then stays the one in use. The library is never closed.
// REQUIRES: the caller holds engineMutex.
int loadHeuPlugin(const std::string& directory, std::string& message);

// Passes a question to the plug-in, one at a time, and returns its verdict. Without a plug-in: 0, and *extra becomes 0.
// `extra` may be null.
int askHeuPlugin(int target, int* extra);

#endif  // ENGINE_HEUPLUGIN_H
