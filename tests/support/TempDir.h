// TempDir: a fresh directory under the system's temporary one, removed with all it holds.
#ifndef TESTS_SUPPORT_TEMPDIR_H
#define TESTS_SUPPORT_TEMPDIR_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vole-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
        _path = pattern;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path operator/(const std::string& name) const { return _path / name; }

    // Writes a file, with the folders it needs, and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((_path / name).parent_path());
        std::ofstream(_path / name, std::ios::binary) << content;
        return (_path / name).string();
    }

    static std::string contentOf(const std::filesystem::path& file) {
        std::ostringstream content;
        content << std::ifstream(file, std::ios::binary).rdbuf();
        return content.str();
    }

private:
    std::filesystem::path _path;
};

#endif  // TESTS_SUPPORT_TEMPDIR_H
