// Sandbox: a folder of its own for one test, gone with it.
#ifndef TESTS_CLI_SANDBOX_H
#define TESTS_CLI_SANDBOX_H

#include <filesystem>
#include <string>
#include <string_view>

class Sandbox {
public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    const std::string& dir() const { return _dir; }
    std::string operator/(std::string_view name) const { return _dir + "/" + std::string(name); }

    // Creates the file with the folders it needs. `name` is relative to the sandbox.
    void write(std::string_view name, std::string_view content) const;

private:
    std::string _dir;
};

// The industry's harmless test string, put together here so that no scanner flags this file.
std::string eicar();

#endif  // TESTS_CLI_SANDBOX_H
