#include "Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Timing.h"

namespace {

// Returns the processor time.
double run(const std::vector<std::string>& command, bool showOutput) {
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
    rusage usage;
    if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(command[0] + " failed");
    }
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

RunTime timeToRun(const std::vector<std::string>& command) {
    RunTime time;
    time.wall = secondsOf([&] { time.cpu = run(command, false); });
    return time;
}

double secondsToRun(const std::vector<std::string>& command) { return timeToRun(command).wall; }

long peakKilobytes(const std::vector<std::string>& command, const std::string& file) {
    std::vector<std::string> measured{"time", "-f", "%M", "-o", file};
    measured.insert(measured.end(), command.begin(), command.end());
    run(measured, false);
    long kilobytes = 0;
    if (!(std::ifstream(file) >> kilobytes)) throw std::runtime_error("cannot read " + file);
    return kilobytes;
}

void runAndShow(const std::vector<std::string>& command) { run(command, true); }

std::string benchDir() { return std::filesystem::read_symlink("/proc/self/exe").parent_path().string(); }

std::string buildDir() { return std::filesystem::path(benchDir()).parent_path().string(); }
