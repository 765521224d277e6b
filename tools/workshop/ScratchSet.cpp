#include "ScratchSet.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Messages.h"
#include "PatternContainer.h"
#include "io/FileIo.h"

namespace {

// A folder that is its owner's alone, with one file in it; gone with the object.
class ScratchFolder {
public:
    ScratchFolder() {
        std::error_code error;
        const auto parent = std::filesystem::temp_directory_path(error);
        if (error) throw LoadError("no folder for temporary files: " + error.message());
        _path = (parent / "vole-XXXXXX").string();
        if (!::mkdtemp(_path.data())) fail();
        _file = _path + "/records" + kCheckSumFileSuffix;
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        ::unlink(_file.c_str());
        ::rmdir(_path.c_str());
    }

    const std::string& path() const { return _path; }

    void write(std::string_view text) const {
        const auto file = ZOV_SPACE::openFile(_file.c_str(), O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
        if (!file || !ZOV_SPACE::writeAll(file.get(), text.data(), text.size())) fail();
    }

private:
    [[noreturn]] void fail() const { throw LoadError(_path + ": " + systemText(errno)); }

    std::string _path;
    std::string _file;
};

}  // namespace

SignaturesHandle scratchSet(std::string_view checkSumLines) {
    const ScratchFolder folder;
    folder.write(checkSumLines);
    vole_load_options options = VOLE_LOAD_OPTIONS_INIT;
    options.flags = VOLE_LOAD_STRICT;
    vole_signatures* set = nullptr;
    const vole_error error = vole_signatures_load(folder.path().c_str(), &options, &set);
    if (error == VOLE_E_MEMORY) throw std::bad_alloc();
    if (error != VOLE_OK) throw LoadError(folder.path() + ": " + vole_error_text(error));
    return SignaturesHandle(set);
}
