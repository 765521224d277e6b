#include "Sandbox.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

Sandbox::Sandbox() {
    std::string pattern = (fs::temp_directory_path() / "vole-cli-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    _dir = pattern;
}

Sandbox::~Sandbox() {
    std::error_code ignored;
    fs::remove_all(_dir, ignored);
}

void Sandbox::write(std::string_view name, std::string_view content) const {
    const fs::path path = *this / name;
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::string eicar() {
    return std::string("X5O!P%@AP[4\\PZX54(P^)7CC)7}$") + "EICAR-STANDARD" + "-ANTIVIRUS-TEST" + "-FILE!$H+H*";
}
