// ArchiveCorpus.h: archives of what a machine that builds this project has, in many sizes and kinds.
#ifndef BENCH_ARCHIVECORPUS_H
#define BENCH_ARCHIVECORPUS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "Corpus.h"

namespace corpus {

// Files in a folder of their own. Their names are numbers, so their order is the same everywhere.
struct Members {
    std::filesystem::path folder;
    unsigned count = 0;
    std::uintmax_t bytes = 0;

    // Of all, one behind the other: what programs print that unpack an archive of them.
    std::string concatenated() const;
    std::string last() const;
};

// One large file (512 KiB to `largest` bytes) in every five, of programs and libraries; of the small ones (4 to 200
// KiB) one half are programs and scripts, the other headers. Throws std::runtime_error when the machine has too few.
Members chooseMembers(const std::filesystem::path& folder, unsigned count, std::uintmax_t largest);

// As many members of equal size, cut from the others.
Members cutEqually(const Members& members, const std::filesystem::path& folder);

// `options` are those of zip. Streamed: written where the sizes cannot be put ahead of the data, they stand behind it.
void writeZip(const std::filesystem::path& path, const Members& members, const std::string& options = "-6");
void writeStreamedZip(const std::filesystem::path& path, const Members& members);

// Not solid, without filters.
using Packer = std::string (*)(std::string_view content);
void writeRar(const std::filesystem::path& path, const Members& members, Packer pack);

}  // namespace corpus

#endif  // BENCH_ARCHIVECORPUS_H
