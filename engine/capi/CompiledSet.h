// CompiledSet.h: a set of signatures as one file, which is searched as it lies there. Whoever maps it shares its pages
// with everybody else who does.
//
// The file has a header, the tables of the set one behind the other, and a directory that tells where each is. All
// numbers are little-endian and of the same size on every machine. Nothing in it is an address; how the tables are
// searched, the hash functions with it, belongs to the format, so whatever changes there is another version.
//
// What is looked at when a file is mapped: the header and the directory, with their checksum; that all tables lie in
// the file and fit together in their sizes. What stands in the tables is not, since that would read the whole file;
// every search keeps to its table whatever it finds there. The tables' checksums find what disks and copying do to a
// file. None of it stops somebody who may write to the file from having a program find what he likes.
#ifndef ENGINE_CAPI_COMPILEDSET_H
#define ENGINE_CAPI_COMPILEDSET_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Signatures.h"
#include "vole.h"

namespace compiled {

using Checksum = std::array<std::uint8_t, 16>;  // XXH3-128, most significant byte first.

// The first bytes of a file.
struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t wordOrder;
    std::uint64_t fileSize;
    std::uint64_t directory;  // Where it begins; it ends with the file.
    std::uint32_t tableCount;
    std::uint32_t unused;
    std::uint64_t records;
    char id[32];
    Checksum checksum;  // Of what stands before it, and of the directory.
};
static_assert(sizeof(Header) == 96);

// Of each table, in the order in which they are written.
struct DirectoryEntry {
    std::uint64_t offset;
    std::uint64_t bytes;
    std::uint32_t elementSize;
    std::uint32_t unused;
    Checksum checksum;
};
static_assert(sizeof(DirectoryEntry) == 40);

Checksum headerChecksum(const Header& header, std::span<const std::byte> directory);

// Whether the file begins as these files do.
bool isCompiledSet(int fd);

// Maps the file into an empty set. Compares all checksums if asked to, which reads all of it. Throws Exception with
// what is wrong with the file, std::bad_alloc and OutOfMemoryException; the set is useless then.
void mapSet(int fd, bool compareAll, vole_signatures& set);

// Writes the set to an empty file that is open for it. The number of the system's error, or 0.
int writeSet(const vole_signatures& set, int fd);

// Writes the set to a new file, which then takes the name over: nobody ever sees a part of it.
vole_error saveSet(const vole_signatures& set, const char* path);

}  // namespace compiled

#endif  // ENGINE_CAPI_COMPILEDSET_H
