#include "Input.h"
#include "Target.h"
#include "unarchiver/Rar.h"

static const Target target("rar", walk<ZOV_SPACE::RarUnarchiver>);
