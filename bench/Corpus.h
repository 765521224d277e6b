// Corpus.h: pattern files and scanned files, the same ones in every run.
#ifndef BENCH_CORPUS_H
#define BENCH_CORPUS_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

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

void writeFile(const std::filesystem::path& path, const std::string& content);

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
