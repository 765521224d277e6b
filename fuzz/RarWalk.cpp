#include "Input.h"
#include "Target.h"
#include "rar/RarUnarchiver.h"

static const Target target("rar", walk<ZOV_SPACE::RarUnarchiver>);
