// ContentSource.h: what a host gives to scan, as a buffer for the scan.
#ifndef ENGINE_CAPI_CONTENTSOURCE_H
#define ENGINE_CAPI_CONTENTSOURCE_H

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ReportingScan.h"
#include "io/BufferBase.h"
#include "io/OwnFd.h"
#include "vole.h"

// A host's content, or why there is none: an error for a scan that fails; neither when a limit keeps the content from
// being looked at, which the scan has been told.
struct ContentSource {
    std::unique_ptr<ZOV_SPACE::BufferBase> content;
    vole_error error = VOLE_OK;
    std::string errorText;
};

// The regular file of a path, open for reading, or why there is none.
struct OpenedContent {
    ZOV_SPACE::OwnFd file;
    std::uint64_t size = 0;  // Bytes.
    vole_error error = VOLE_OK;
    std::string errorText = {};
};
OpenedContent openContent(const char* path);

// Why what the descriptor is of cannot be read at any position, without a content; nothing when it can.
std::optional<ContentSource> whyNotSeekable(int fd);

// Whether a content of that size is looked into; if not, the scan is told. `most` is the host's limit, 0 for none.
bool fits(std::uint64_t size, std::uint64_t most, ReportingScan& scan);

constexpr const char* kUnreadableFile = "the file could not be read";
constexpr const char* kUnreadableStream = "the stream could not be read";

// Each throws std::bad_alloc. `most` is the host's limit on a content, 0 for none.
ContentSource contentOfPath(const char* path, std::uint64_t most, ReportingScan& scan);
ContentSource contentOfDescriptor(int fd, std::uint64_t most, ReportingScan& scan);
ContentSource contentOfMemory(const void* data, std::size_t size, std::uint64_t most, ReportingScan& scan);
// Throws what `read` throws, and ScanStoppedException.
ContentSource contentOfStream(vole_read_fn read, void* context, std::uint64_t most, ReportingScan& scan);

#endif  // ENGINE_CAPI_CONTENTSOURCE_H
