// The helpers for NUL-terminated strings that the engine uses; the others are in unused/.
#include "Ascii.h"
#include "VoleUtil.h"

namespace ascii = ZOV_SPACE::ascii;

static char loadShared(const char* address) { return __atomic_load_n(address, __ATOMIC_RELAXED); }

bool VoleUtil::isDigit(const char* text) {
    if (!text) return false;
    while (ascii::isDigit(*text)) ++text;
    return *text == '\0';
}

int VoleUtil::strncmp_nocase(char* a, const char* b, std::size_t n) {
    if (!a || !b) return -1;
    std::size_t length = 0;
    for (; length < n; ++length) {
        const char c = loadShared(a + length);
        if (ascii::toLower(c) != ascii::toLower(b[length])) return -1;
        if (c == '\0') break;
    }
    // Kept as is: a match rewrites the letter case of `a`, so that a list has its entries spelt as they were last asked
    // for. Another thread may be doing the same to `a`; single bytes that differ in case only do no harm.
    for (std::size_t i = 0; i < length; ++i) {
        if (loadShared(a + i) != b[i]) __atomic_store_n(a + i, b[i], __ATOMIC_RELAXED);
    }
    return 0;
}
