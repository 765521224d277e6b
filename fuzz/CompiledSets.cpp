// The input as a compiled set of signatures, and then scans with it. Its header's checksum is made right first, so that
// what is behind that check is met, too.
#include <sys/stat.h>

#include <cstring>
#include <span>

#include "CompiledSet.h"
#include "Target.h"
#include "support/PeBuilder.h"
#include "support/TempDir.h"
#include "support/VoleHost.h"

namespace {

std::string sealed(std::string_view input) {
    std::string bytes(input);
    compiled::Header header;
    if (bytes.size() < sizeof header) return bytes;
    std::memcpy(&header, bytes.data(), sizeof header);
    if (header.directory > bytes.size()) return bytes;
    const auto directory = std::as_bytes(std::span(bytes)).subspan(static_cast<std::size_t>(header.directory));
    header.checksum = compiled::headerChecksum(header, directory);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

int noteReason(void*, const vole_load_problem* problem) {
    note(problem->reason);
    return 0;
}

}  // namespace

void scanWithCompiledSet(std::string_view input) {
    static const std::string contents[] = {"a known content\n",    "a",
                                           "a known start",        PeBuilder().withSections(2).build(),
                                           std::string(3000, 'a'), std::string(300, '\0')};
    static const TempDir dir;
    const std::string path = dir.write("set", sealed(input));
    require(::chmod(path.c_str(), 0600) == 0);
    const vole_load_options options{sizeof options, 0, noteReason, nullptr};
    vole_signatures* loaded = nullptr;
    vole_signatures_load(path.c_str(), &options, &loaded);
    const VoleSet set(loaded);
    if (!set) return;
    note(vole_signatures_id(loaded) + std::to_string(vole_signatures_count(loaded)));
    vole_limits limits = VOLE_LIMITS_INIT;
    limits.max_time_ms = 0;
    const VoleScanner scanner = scannerOf(set, &limits);
    require(vole_scanner_set_flags(scanner.get(), VOLE_SCAN_ALL_MATCHES) == VOLE_OK);
    for (const std::string& content : contents) note(toldOf(scanner.get(), content));
}
