#include "Corpus.h"

#include <stdlib.h>

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
