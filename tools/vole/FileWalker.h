// FileWalker: the files at and below one path, one after another.
//
//     FileWalker walker(path);
//     while (walker.next()) { walker.error().empty() ? scan(walker.path()) : complain(walker.path(), walker.error()); }
//
// A path that is not a folder is handed out as it is, whatever it names and even when nothing is there: the engine has
// the say about it. Below a folder only regular files are handed out, in byte order of the names in each folder; links
// are not followed there, so that no loop arises. A link given as the path itself is followed. What the rules leave out
// is neither handed out nor entered, without a word, the path itself included.
//   Cost:    one pass over each folder; a file's status is read only where the file system does not tell its type.
//   Memory:  the names of the folders between the root and the current file; no recursion, no descriptor kept open.
//   Errors:  a folder that cannot be read, or only in part, is handed out with its error text; the walk goes on.
//   Threads: one at a time.
#ifndef VOLE_TOOL_FILE_WALKER_H
#define VOLE_TOOL_FILE_WALKER_H

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "WalkRules.h"

class FileWalker {
public:
    // Borrows the rules.
    FileWalker(std::string root, const WalkRules& rules);

    // Goes to the next file or unreadable folder; false when there is none left.
    bool next();

    const std::string& path() const { return _path; }

    // Empty for a file; otherwise why the folder path() could not be read.
    const std::string& error() const { return _error; }

private:
    struct Entry {
        std::string name;
        bool isFolder;
    };
    struct Folder {
        std::size_t pathLength;  // of the part of _path that names this folder, without a slash at the end
        std::vector<Entry> entries;
        std::size_t position;
    };

    bool startAtRoot();
    bool goOn();
    bool enterFolder(int extraOpenFlags);
    Folder list(DIR* dir);
    void nameInFolder(const Folder& folder, const std::string& name);

    const WalkRules& _rules;
    dev_t _rootDevice = 0;
    std::string _path;
    std::string _error;
    std::vector<Folder> _folders;
    bool _started = false;
};

#endif  // VOLE_TOOL_FILE_WALKER_H
