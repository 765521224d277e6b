// Files of compressed data and tar archives, by the walks that all builds have.
#include "Input.h"
#include "Target.h"
#include "unarchiver/DeepFormats.h"

using namespace ZOV_SPACE;

void walkContainer(std::string_view input) {
    InputBuffer buffer(input);
    NotedEntries entries;
    const ArchiveId& format = deepFormat(buffer, ARCHIVEID_NONE);
    for (const char* const name : {"gzip", "tar"}) note(isWalked(format, name) ? name : "-");
    if (&format == &ARCHIVEID_NONE) return;
    noteRefusal([&] { format.unarchiver(&buffer, entries, nullptr)->start(); });
}
