// A library that is no heuristic engine.
int notAnEntryPoint() { return 0; }
