// Runs a target on inputs that are kept: files, and all files in directories. With a checksum, also on damaged forms of
// each, up to three times PLACES; all that they come to must have that checksum.
//   usage: vole_fuzz_replay TARGET[=PLACES:CHECKSUM] PATH...
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>

#include "Target.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

void run(Target* target, const std::string& input) {
    static const TempDir latest;  // Stays, with its input, when the target does not come back.
    latest.write("input", input);
    // In memory that ends where the input does.
    const std::unique_ptr<char[]> exact(new char[input.size()]);
    input.copy(exact.get(), input.size());
    runTarget(target, {exact.get(), input.size()});
}

// Cuts the input everywhere, and changes every byte of it; in large ones, at so many places. Then several changes at
// once: bytes that lie scattered, or a stretch of them, come to be random, all ones or zeros.
void damage(Target* target, const std::string& input, std::size_t places) {
    std::minstd_rand random(1);
    const auto below = [&random](std::size_t n) { return random() / 8 % n; };
    for (std::size_t at = 0; at < input.size(); at += input.size() / places + 1) {
        run(target, input.substr(0, at));
        std::string changed = input;
        changed[at] = static_cast<char>(changed[at] ^ 1 << below(8));
        run(target, changed);
    }
    for (std::size_t round = 0; round < places && !input.empty(); ++round) {
        std::string changed = input;
        const bool scattered = round % 2 == 0;
        const std::size_t length = 1 + below(scattered ? 6 : 40), start = below(input.size());
        for (std::size_t i = 0; i < length; ++i) {
            const std::size_t at = (scattered ? below(input.size()) : start + i) % input.size();
            changed[at] = static_cast<char>(round % 8 == 1 ? 0xFF : round % 8 == 3 ? 0 : below(256));
        }
        run(target, changed);
    }
}

// In the same order everywhere.
std::set<fs::path> filesAt(const fs::path& path) {
    if (!fs::is_directory(path)) return {path};
    return {fs::directory_iterator(path), fs::directory_iterator()};
}

}  // namespace

int main(int argc, char** argv) {
    const std::string argument = argc > 2 ? argv[1] : "";
    const std::size_t nameLength = argument.find('='), colon = argument.find(':');
    const bool damages = nameLength != std::string::npos;
    const unsigned long places = damages ? std::strtoul(argument.c_str() + nameLength + 1, nullptr, 10) : 0;
    Target* const target = findTarget(argument.substr(0, nameLength));
    if (!argument.empty() && !target) {
        std::fprintf(stderr, "%s: Target.cpp has no target of that name\n", argument.c_str());
        return 2;
    }
    if (!target || (damages && (places == 0 || colon == std::string::npos))) {
        std::fprintf(stderr, "usage: %s TARGET[=PLACES:CHECKSUM] PATH...\n", argv[0]);
        return 2;
    }
    char checksum[9] = "";
    for (int i = 2; i < argc; ++i) {
        if (!fs::exists(argv[i])) {
            std::fprintf(stderr, "%s: no such file or folder\n", argv[i]);
            return 2;
        }
        for (const fs::path& file : filesAt(argv[i])) {
            const std::string input = TempDir::contentOf(file);
            run(target, input);
            if (damages) damage(target, input, places);
            std::snprintf(checksum, sizeof checksum, "%08x", noted());
            std::printf("%s %s\n", checksum, file.c_str());
        }
    }
    if (!damages || argument.substr(colon + 1) == checksum) return 0;
    std::printf("The checksum of what all of them come to is %s now.\n", checksum);
    return 1;
}
