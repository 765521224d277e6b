// Corpus.h: pattern files and scanned files, the same ones in every run.
#ifndef BENCH_CORPUS_H
#define BENCH_CORPUS_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace corpus {

// Numbers without state: the n-th of a stream can be had without the ones before it.
std::uint64_t randomNumber(std::uint64_t stream, std::uint64_t n);

std::string randomBytes(std::uint64_t stream, std::size_t length);

// A fresh folder below the system's temporary one, removed with all it holds.
class Folder {
public:
    Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder();

    std::filesystem::path operator/(const std::string& name) const { return _path / name; }

    // An empty folder in this one.
    std::filesystem::path sub(const std::string& name) const;

private:
    std::filesystem::path _path;
};

// A folder tree of files of 512 bytes to 16 KiB, all powers of two as often; every other file is lines of text.
// Returns their paths.
std::vector<std::string> writeSmallFiles(const std::filesystem::path& folder, unsigned count);

void writeFile(const std::filesystem::path& path, const std::string& content);

// MD5 records with random digests. Any of them can be had again by its number, so that lookups need no copy of all.
enum class Sizes {
    random,         // 31 bits.
    ascending,      // All different.
    likeRealFiles,  // 128 bytes to 16 MiB, as many in each power of two: among small sizes hardly one is missing.
};

struct Md5Records {
    std::uint64_t count;
    Sizes sizes = Sizes::random;

    std::array<unsigned char, 16> digest(std::uint64_t n) const;
    std::uint32_t size(std::uint64_t n) const;

    static constexpr std::size_t kNameLength = 20;  // Bytes of every name.
};

void writeHdb(const std::filesystem::path& path, const Md5Records& records);

// The positions that checksum records look at.
struct ChkShape {
    const char* name;
    bool pe;                     // Offsets from the entry point and from sections, of PE files; else from both ends.
    std::uint16_t lowestOffset;  // The first of `distinctOffsets` consecutive ones, which are drawn evenly.
    unsigned distinctOffsets;
};

// Records with random check strings and checksums.
void writeChk(const std::filesystem::path& path, const ChkShape& shape, std::uint64_t count);

}  // namespace corpus

#endif  // BENCH_CORPUS_H
