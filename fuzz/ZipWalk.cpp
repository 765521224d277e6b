#include "Input.h"
#include "Target.h"
#include "unarchiver/Zip.h"

static const Target target("zip", walk<ZOV_SPACE::ZipUnarchiver>);
