// Runs a target on inputs that are kept: files, and all files below directories.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "Target.h"

namespace {

namespace fs = std::filesystem;

void replay(const Target& target, const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(stream), {}};
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);
    // In memory that ends where the input does.
    const std::unique_ptr<char[]> exact(new char[input.size()]);
    input.copy(exact.get(), input.size());
    target({exact.get(), input.size()});
}

int replayAll(const Target& target, const fs::path& path) {
    if (!fs::is_directory(path)) return replay(target, path), 1;
    int count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) replay(target, entry.path()), ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    const Target* const target = argc > 2 ? Target::find(argv[1]) : nullptr;
    if (!target) {
        std::fprintf(stderr, "usage: %s TARGET PATH...\n", argv[0]);
        return 2;
    }
    int count = 0;
    for (int i = 2; i < argc; ++i) count += replayAll(*target, argv[i]);
    return count > 0 ? 0 : 1;
}
