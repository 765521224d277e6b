// ScanPipeline.h: one scan for a host, from an open file to its result code.
#ifndef ENGINE_LEGACY_SCANPIPELINE_H
#define ENGINE_LEGACY_SCANPIPELINE_H

#include <string>

// Scans the first `size` bytes of an open regular file, called `name` in diagnostics. VOLE_FOUND, with `virusName` set;
// VOLE_CLEAN; VOLE_CANNOT_READ when the file cannot be read, even if that shows only on the way; VOLE_SCAN_FAILED.
// `fd` stays the caller's and is not closed. Throws std::bad_alloc when memory runs out.
int scanDescriptor(int fd, unsigned int size, const std::string& name, std::string& virusName);

#endif  // ENGINE_LEGACY_SCANPIPELINE_H
