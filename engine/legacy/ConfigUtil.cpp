#include "ConfigUtil.h"

#include <algorithm>

#include "OptionText.h"

int ConfigUtil::QueryListValue(std::FILE* file, const char* key, char* value, int size, int keepPosition) const {
    if (keepPosition == 0) std::rewind(file);
    if (size < 0) return -1;
    const auto room = static_cast<std::size_t>(std::min(size, kMaxValue));
    char line[options::kMaxLine + 1];
    while (std::fgets(line, sizeof line, file)) {
        const auto found = options::valueOf(line, key);
        if (!found) continue;
        std::fill(value + found->copy(value, room), value + room + 1, '\0');
        return 0;
    }
    return -1;
}
