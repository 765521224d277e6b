#include "SetLoader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "Boundary.h"
#include "CompiledSet.h"
#include "Raise.h"
#include "VirusList.h"
#include "io/File.h"
#include "io/RegularFile.h"
#include "util/XMLTree.h"

namespace {

using ZOV_SPACE::systemErrorText;

// In byte order, so that equal directories give equal sets whatever order the file system lists them in.
vole_error listDirectory(const char* directory, std::vector<std::string>& names) {
    if (!ZOV_SPACE::File(directory).list(names)) return capi::errorOfPath(errno);
    std::sort(names.begin(), names.end());
    return VOLE_OK;
}

std::string pathOf(const std::string& directory, const std::string& name) {
    return directory + (directory.ends_with('/') ? "" : "/") + name;
}

// Bytes of all files of MD5 records, as far as they can be told.
std::uint64_t md5Bytes(const std::string& directory, const std::vector<std::string>& names) {
    std::uint64_t bytes = 0;
    for (const std::string& name : names) {
        struct stat status;
        if (!name.ends_with(kMd5FileSuffix) || ::stat(pathOf(directory, name).c_str(), &status) != 0) continue;
        if (S_ISREG(status.st_mode)) bytes += static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
    }
    return bytes;
}

bool isLink(const char* path) {
    struct stat status;
    return ::lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

vole_error SetLoader::load(const char* path) {
    struct stat status;
    if (::stat(path, &status) != 0) return capi::errorOfPath(errno);
    if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) return VOLE_E_NOT_FILE;
    _path = path;
    try {
        const vole_error error = S_ISDIR(status.st_mode) ? loadDirectory(path) : loadCompiled();
        if (error != VOLE_OK) return error;
    } catch (const Stopped&) {
        return VOLE_E_SIGNATURES;
    }
    if (_failed) return VOLE_E_SIGNATURES;
    _set.memoryBytes = sizeof _set + _set.file.bytes().size() + _set.patterns.memoryBytes() +
                       _set.falseAlarms.memoryBytes() + _set.id.size();
    return VOLE_OK;
}

vole_error SetLoader::loadDirectory(const char* directory) {
    std::vector<std::string> names;
    if (const vole_error error = listDirectory(directory, names)) return error;
    const auto second = sharing(directory, names);
    loadAll(directory, names);
    if (_failed) return VOLE_E_SIGNATURES;
    _set.patterns.prepare();
    _set.id = _digest.hex();
    return VOLE_OK;
}

vole_error SetLoader::loadCompiled() {
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::openRegularFile(_path.c_str());
    if (!file) return capi::errorOfPath(errno);
    if (!compiled::isCompiledSet(file.get())) {
        tellOfFile("It is neither a pattern directory nor a compiled set of signatures", true);
        return VOLE_E_NOT_FILE;
    }
    try {
        compiled::mapSet(file.get(), _options.flags & VOLE_LOAD_STRICT, _set);
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw;
    } catch (ZOV_SPACE::Exception& e) {
        tellOfFile(e.getMessage(), true);
    }
    return VOLE_OK;
}

// The second thread, if the host allows one, there is enough to do for it, and it could be started.
std::unique_ptr<SecondThread> SetLoader::sharing(const std::string& directory, const std::vector<std::string>& names) {
    constexpr std::uint64_t kWorthTwo = 256 * 1024;  // Bytes that are loaded in the time that a thread takes to start.
    if (!(_options.flags & VOLE_LOAD_THREADS)) return nullptr;
    const std::uint64_t bytes = md5Bytes(directory, names);
    if (bytes <= kWorthTwo) return nullptr;
    auto second = std::make_unique<SecondThread>();
    if (!*second) return nullptr;
    _set.patterns.shareWith(*second, bytes);
    return second;
}

void SetLoader::loadAll(const std::string& directory, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (!PatternContainer::isPatternName(name)) continue;
        _path = pathOf(directory, name);
        loadFile();
    }
    _path = pathOf(directory, kVirusListFile);
    loadFalseAlarms();
}

// A name that the directory has just listed. What was taken away since is passed over, and so is what is no file.
void SetLoader::loadFile() {
    struct stat status;
    if (::stat(_path.c_str(), &status) == 0) {
        if (S_ISREG(status.st_mode)) readFile();
    } else if (!PatternContainer::meansNoFile(errno)) {
        tellOfFile(systemErrorText(), true);
    } else if (isLink(_path.c_str())) {
        tellOfFile("The link leads nowhere", false);
    }
}

void SetLoader::readFile() {
    try {
        const int result = _set.patterns.loadPattern(_path, this);
        if (result == PatternContainer::kCannotOpen) tellOfFile(systemErrorText(), true);
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw;
    } catch (ZOV_SPACE::Exception& e) {
        tellOfFile(e.getMessage(), true);
    }
}

void SetLoader::loadFalseAlarms() {
    const auto parser = ZOV_SPACE::XMLParser::createDefaultXMLParser();
    if (!parser) throw std::bad_alloc();
    VirusList list;
    try {
        const bool opened = readVirusList(*parser, _path, list);
        if (!opened && !PatternContainer::meansNoFile(errno)) tellOfFile(systemErrorText(), true);
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        throw;
    } catch (ZOV_SPACE::IOException& e) {
        tellOfFile(e.getMessage(), true);
    } catch (ZOV_SPACE::Exception& e) {
        tellOfFile(e.getMessage(), false);
    }
    for (const std::string& name : list.falseAlarms()) {
        _set.falseAlarms.add(name);
        _digest.addFalseAlarm(name);
    }
}

void SetLoader::onProblem(const PatternLine& line, const RecordFault& fault) {
    // Nobody may be listening, and the text costs more than the line did.
    tell(line, _options.on_problem ? fault.message() : std::string(), false);
}

void SetLoader::tellOfFile(const std::string& reason, bool fatal) { tell({}, reason, fatal); }

void SetLoader::tell(const PatternLine& line, const std::string& reason, bool fatal) {
    _failed = _failed || fatal || (_options.flags & VOLE_LOAD_STRICT);
    if (!_options.on_problem) return;
    const std::string text(line.text);  // With a NUL behind it.
    const vole_load_problem problem{_path.c_str(), line.number, text.c_str(), text.size(), reason.c_str(), fatal};
    if (_options.on_problem(_options.context, &problem) != 0) throw Stopped();
}
