// File: a path and what can be done with the file or directory it names. Holds nothing open. Operations that return
// bool report failure by false, with errno set; nothing but a lack of memory throws.
//   Threads: const operations from any.   Paths with an embedded NUL name nothing.
#ifndef COMMON_STL_IO_FILE_H
#define COMMON_STL_IO_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CPObject.h"
#include "io/OwnFd.h"

namespace ZOV_SPACE {

class File : public CPObject {
public:
    // Slashes at the end of the path are dropped: they would make a symbolic link stand for what it points to.
    explicit File(std::string path);
    File(const std::string& parent, const std::string& name);

    const std::string& getPath() const { return _path; }
    std::string getName() const;    // What follows the last slash.
    std::string getParent() const;  // What precedes it; "/" for a name below the root, "" for a bare name.

    // These follow symbolic links.
    bool exists() const;
    bool isDirectory() const;
    bool isFile() const;          // A regular file.
    std::int64_t length() const;  // In bytes; -1 when there is no such file.

    // Replaces `names` by the directory's entries in the order the system lists them, without "." and "..".
    // False, with `names` empty, when the directory cannot be read to its end.
    bool list(std::vector<std::string>& names) const;

    bool mkdir() const;
    // Creates missing parents as well. True when the directory is there afterwards.
    bool mkdirs() const;

    // Removes a file, a symbolic link or an empty directory.
    bool remove() const;
    // Removes a directory with everything in it, or what remove() does. Symbolic links are removed, never followed,
    // also when others exchange directories for links meanwhile. What can be removed is, even if something else cannot.
    // Refuses the root, ".", ".." and paths ending in these, and does not descend more than kMaxRemoveDepth levels.
    bool removeAll() const;
    static constexpr std::size_t kMaxRemoveDepth = 256;

    // Gives the file another path, replacing what is there. This object keeps the old one.
    bool renameTo(const File& target) const;

    // Creates an empty file "/tmp/<prefix>XXXXXX" for this user only, open for reading and writing, and stores its
    // path. Nothing on failure.
    static OwnFd createTemporary(std::string& path, std::string_view prefix = "");

private:
    std::string _path;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FILE_H
