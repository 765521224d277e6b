#include "RunProgram.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using TemporaryFile = std::unique_ptr<std::FILE, FileCloser>;

TemporaryFile makeTemporaryFile() {
    TemporaryFile file(std::tmpfile());
    if (!file) throw std::runtime_error("no temporary file");
    return file;
}

std::string contentOf(std::FILE* file) {
    std::rewind(file);
    std::string content;
    char block[4096];
    while (const std::size_t count = std::fread(block, 1, sizeof block, file)) content.append(block, count);
    return content;
}

[[noreturn]] void becomeProgram(char* const* argv, const char* workingDir, int outFd, int errFd) {
    if (::chdir(workingDir) == 0 && ::dup2(outFd, STDOUT_FILENO) >= 0 && ::dup2(errFd, STDERR_FILENO) >= 0) {
        ::execv(argv[0], argv);
    }
    ::_exit(127);
}

}  // namespace

ProgramResult runProgram(const std::vector<std::string>& arguments, const std::string& workingDir,
                         const char* outPath) {
    const TemporaryFile out(outPath != nullptr ? std::fopen(outPath, "w") : makeTemporaryFile().release());
    const TemporaryFile err = makeTemporaryFile();
    if (!out) throw std::runtime_error("cannot open the file for the output");
    std::vector<char*> argv;
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) becomeProgram(argv.data(), workingDir.c_str(), fileno(out.get()), fileno(err.get()));
    ProgramResult result;
    int status = 0;
    if (::waitpid(child, &status, 0) == child && WIFEXITED(status)) result.status = WEXITSTATUS(status);
    if (outPath == nullptr) result.out = contentOf(out.get());
    result.err = contentOf(err.get());
    return result;
}
