// "vole inspect".
#ifndef VOLE_TOOL_INSPECT_H
#define VOLE_TOOL_INSPECT_H

#include "Command.h"

NewCommand newInspect;

#endif  // VOLE_TOOL_INSPECT_H
