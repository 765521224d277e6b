// Sandbox: a folder of its own for one test, gone with it.
#ifndef TESTS_CLI_SANDBOX_H
#define TESTS_CLI_SANDBOX_H

#include <string>

#include "../support/TempDir.h"

class Sandbox {
public:
    std::string dir() const { return _folder.path().string(); }
    std::string operator/(const std::string& name) const { return dir() + "/" + name; }

    // Creates the file with the folders it needs. `name` is relative to the sandbox.
    void write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((_folder / name).parent_path());
        _folder.write(name, content);
    }

private:
    TempDir _folder;
};

#endif  // TESTS_CLI_SANDBOX_H
