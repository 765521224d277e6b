// ScanPipeline.h: one scan from an open file to its verdict.
//
// The file and every archive entry found in it are treated the same way, front to back on a work list: the scanners
// over the raw bytes, then over the normalised text if it is a short text, then the unarchiver, which queues what it
// extracts. The first match ends the scan. No pass lets an exception end the scan of what is queued behind it.
#ifndef ENGINE_SCANPIPELINE_H
#define ENGINE_SCANPIPELINE_H

#include <string>

// Scans the first `size` bytes of an open regular file, called `name` in diagnostics. VOLE_FOUND, with `virusName` set;
// VOLE_CLEAN; VOLE_CANNOT_READ when the file cannot be read, even if that shows only on the way; VOLE_SCAN_FAILED.
// `fd` stays the caller's and is not closed. Throws std::bad_alloc when memory runs out.
int scanDescriptor(int fd, unsigned int size, const std::string& name, std::string& virusName);

#endif  // ENGINE_SCANPIPELINE_H
