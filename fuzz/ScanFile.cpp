// A whole scan: text, executables, and archives in archives, with a few signatures of each kind.
#include "Target.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "voleeng.h"

void scanWhole(std::string_view input) {
    static const TempDir dir;
    static const bool loaded = [] {
        const TempDir patterns;
        patterns.write("a.hdb", md5Record("a known content\n", "Known-Content") + md5Record("a", "Known-Letter"));
        patterns.write("a.chk", startRecord("a known start", "Known-Start") +
                                    "03:0200:0000:04:00000000:1cdf4421:0000:04:1cdf4421:Known-Entry-Point\n"
                                    "03:0101:0004:04:00000000:1cdf4421:0004:04:1cdf4421:Known-End\n");
        std::string message;
        return init(patterns.path().c_str(), message) == 0;
    }();
    std::string name, message;
    const int result = scanFile(dir.write("input", std::string(input)).c_str(), name, message);
    require(loaded && (result == VOLE_CLEAN || (result == VOLE_FOUND && !name.empty())));
    note(name);
}
