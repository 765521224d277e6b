#include "TableFile.h"

#include "Raise.h"

void TableSource::require(bool isSound) {
    if (!isSound) ZOV_SPACE::raise<ZOV_SPACE::Exception>("The file is damaged: its tables do not fit together");
}
