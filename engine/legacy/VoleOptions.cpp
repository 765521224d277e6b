#include "VoleOptions.h"

#include <cstdio>
#include <memory>

#include "ConfigUtil.h"
#include "Decimal.h"
#include "NoCancel.h"
#include "OptionText.h"
#include "VoleUtil.h"
#include "io/RegularFile.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

using ZOV_SPACE::Monitor;

constexpr diag::Unit kDiag{"pattern_assistant"};

struct Option {
    const char* key;
    int OptionValues::*value;
    const char* keyInError;
    int errorLine;
    int reportLine;
    const char* unit = "";
};

// Kept as is: the ratio's error message names another key; hosts know the text.
constexpr Option kOptions[] = {
    {options::kMaxEntries, &OptionValues::maxEntries, "MaxUnarEntries", 220, 284},
    {options::kMaxRatio, &OptionValues::maxRatio, "MaxUnarRadio", 232, 285},
    {options::kMaxLevelEntries, &OptionValues::maxLevelEntries, "MaxUnarLevelEntries", 244, 286},
    {options::kMaxDepth, &OptionValues::maxDepth, "MaxUnarDepth", 256, 287},
    {options::kMaxSize, &OptionValues::maxSize, "MaxUnarSize", 268, 288, " bytes"},
};

struct CloseFile {
    void operator()(std::FILE* file) const {
        const ZOV_SPACE::NoCancel guard;
        std::fclose(file);
    }
};
using OpenFile = std::unique_ptr<std::FILE, CloseFile>;

OpenFile openText(const std::string& path) {
    ZOV_SPACE::OwnFd descriptor = ZOV_SPACE::openRegularFile(path.c_str());
    if (!descriptor) return nullptr;
    OpenFile file(::fdopen(descriptor.get(), "r"));
    if (file) descriptor.release();
    return file;
}

// False when the value is there and is no number.
bool readOption(std::FILE* file, const Option& option, OptionValues& values) {
    char text[ConfigUtil::kMaxValue + 1] = "";
    const bool found = ConfigUtil().QueryListValue(file, option.key, text, ConfigUtil::kMaxValue, 0) == 0;
    if (!found || text[0] == '\0') return true;
    if (!VoleUtil::isDigit(text)) {
        kDiag.at(option.errorLine).err("%s's Value [%s] is illegal.", option.keyInError, text);
        return false;
    }
    values.*option.value = decimalPrefix(text);
    return true;
}

}  // namespace

VoleOptions& VoleOptions::instance() {
    if (!_instance) _instance = std::unique_ptr<VoleOptions>(new VoleOptions).release();
    return *_instance;
}

OptionValues VoleOptions::get() {
    const Monitor guard(_mutex);
    return instance()._values;
}

void VoleOptions::set(const OptionValues& values) {
    for (const Option& option : kOptions) {
        const Monitor guard(_mutex);
        instance()._values.*option.value = values.*option.value;
    }
}

int readOptions(const std::string& path) {
    OptionValues values = VoleOptions::get();
    {
        const OpenFile file = openText(path);
        if (!file) {
            kDiag.at(209).err("Cannot open option file [%s]\n", path.c_str());
            return VOLE_NO_OPTION_FILE;
        }
        for (const Option& option : kOptions) {
            if (!readOption(file.get(), option, values)) return VOLE_INVALID_OPTION;
        }
    }
    VoleOptions::set(values);
    values = VoleOptions::get();
    for (const Option& option : kOptions) {
        kDiag.at(option.reportLine).dbg("%-19s = %d%s.", option.key, values.*option.value, option.unit);
    }
    return 0;
}
