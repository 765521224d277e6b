#include "Input.h"
#include "Target.h"
#include "zip/ZipUnarchiver.h"

static const Target target("zip", walk<ZOV_SPACE::ZipUnarchiver>);
