#include "Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "Timing.h"

namespace {

void run(const std::vector<std::string>& command, bool showOutput) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!showOutput) posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error = ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("cannot start " + command[0]);

    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(command[0] + " failed");
    }
}

}  // namespace

double secondsToRun(const std::vector<std::string>& command) {
    return secondsOf([&] { run(command, false); });
}

void runAndShow(const std::vector<std::string>& command) { run(command, true); }

std::string benchDir() { return std::filesystem::read_symlink("/proc/self/exe").parent_path().string(); }

std::string buildDir() { return std::filesystem::path(benchDir()).parent_path().string(); }
