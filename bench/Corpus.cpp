#include "Corpus.h"

#include <stdlib.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace corpus {

namespace {

void append(std::ofstream& out, const char* text, int length) { out.write(text, length); }

std::ofstream create(const fs::path& path) {
    std::ofstream out(path, std::ios::binary);
    if (!out) throw std::runtime_error("cannot write " + path.string());
    return out;
}

void close(std::ofstream& out, const fs::path& path) {
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace

std::uint64_t randomNumber(std::uint64_t stream, std::uint64_t n) {
    std::uint64_t z = (stream << 40) + (n + 1) * 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31);
}

std::string randomBytes(std::uint64_t stream, std::size_t length) {
    std::string bytes(length, '\0');
    for (std::size_t at = 0; at < length; at += 8) {
        const std::uint64_t word = randomNumber(stream, at / 8);
        std::memcpy(bytes.data() + at, &word, std::min<std::size_t>(8, length - at));
    }
    return bytes;
}

Folder::Folder() {
    std::string pattern = (fs::temp_directory_path() / "vole-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    _path = pattern;
}

Folder::~Folder() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
}

fs::path Folder::sub(const std::string& name) const {
    fs::create_directory(_path / name);
    return _path / name;
}

void writeFile(const fs::path& path, const std::string& content) {
    std::ofstream out = create(path);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    close(out, path);
}

namespace {

std::string textOf(std::uint64_t stream, std::size_t length) {
    std::string text = randomBytes(stream, length);
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        text[i] = i % 61 == 60 ? '\n' : byte < 40 ? ' ' : static_cast<char>('A' + byte % 58);
    }
    return text;
}

// Between 2^lowest and 2^highest, as often between any two powers of two.
std::uint32_t logarithmic(std::uint64_t number, double lowest, double highest) {
    constexpr double kRange = 18446744073709551616.0;  // Of the number.
    return static_cast<std::uint32_t>(std::exp2(lowest + (highest - lowest) * static_cast<double>(number) / kRange));
}

}  // namespace

std::vector<std::string> writeSmallFiles(const fs::path& folder, unsigned count) {
    constexpr unsigned kFilesPerFolder = 100;
    std::vector<std::string> paths;
    for (unsigned i = 0; i < count; ++i) {
        const fs::path sub = folder / std::to_string(i / kFilesPerFolder);
        if (i % kFilesPerFolder == 0) fs::create_directory(sub);
        const std::size_t length = logarithmic(randomNumber(20, i), 9, 14);
        const std::uint64_t stream = 1000 + i;
        paths.push_back(sub / std::to_string(i));
        writeFile(paths.back(), i % 2 == 0 ? randomBytes(stream, length) : textOf(stream, length));
    }
    return paths;
}

std::array<unsigned char, 16> Md5Records::digest(std::uint64_t n) const {
    const std::uint64_t halves[] = {randomNumber(10, n), randomNumber(11, n)};
    std::array<unsigned char, 16> bytes;
    std::memcpy(bytes.data(), halves, sizeof halves);
    return bytes;
}

std::uint32_t Md5Records::size(std::uint64_t n) const {
    const std::uint64_t number = randomNumber(12, n);
    switch (sizes) {
        case Sizes::ascending:
            return static_cast<std::uint32_t>(100 + n * 100);
        case Sizes::likeRealFiles:
            return logarithmic(number, 7, 24);
        case Sizes::random:
            break;
    }
    return static_cast<std::uint32_t>(number >> 33);
}

void writeHdb(const fs::path& path, const Md5Records& records) {
    std::ofstream out = create(path);
    for (std::uint64_t n = 0; n < records.count; ++n) {
        char line[96];
        int length = 0;
        for (const unsigned char byte : records.digest(n)) {
            line[length++] = "0123456789abcdef"[byte >> 4];
            line[length++] = "0123456789abcdef"[byte & 15];
        }
        length += std::snprintf(line + length, sizeof line - 32, ":%u:Bench.Malware.%06llx\n", records.size(n),
                                static_cast<unsigned long long>(n & 0xFFFFFF));
        append(out, line, length);
    }
    close(out, path);
}

void writeChk(const fs::path& path, const ChkShape& shape, std::uint64_t count) {
    constexpr unsigned kSections = 3;
    std::ofstream out = create(path);
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t a = randomNumber(1, i);
        const std::uint64_t b = randomNumber(2, i);
        const unsigned type = static_cast<unsigned>(a & 1) + (shape.pe ? 2 : 0);
        const unsigned parameter = type == 3 ? static_cast<unsigned>(a >> 8) % kSections : 0;
        const unsigned offset1 = shape.lowestOffset + static_cast<unsigned>(b >> 32) % shape.distinctOffsets;
        const unsigned offset2 = shape.lowestOffset + static_cast<unsigned>(b) % shape.distinctOffsets;
        char line[160];
        const int length = std::snprintf(
            line, sizeof line, "%02x:%02x%02x:%04x:%02x:%08x:%08x:%04x:%02x:%08x:Bench.Checksum.%06u\n",
            shape.pe ? 3U : 0U, type, parameter, offset1 & 0xFFFF, 4 + static_cast<unsigned>(a >> 16) % 200,
            static_cast<unsigned>(a >> 32), static_cast<unsigned>(randomNumber(3, i)), offset2 & 0xFFFF,
            4 + static_cast<unsigned>(a >> 24) % 200, static_cast<unsigned>(randomNumber(4, i)),
            static_cast<unsigned>(i));
        append(out, line, length);
    }
    close(out, path);
}

}  // namespace corpus
