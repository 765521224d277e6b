// MemberFolder: a folder that archive members are written to, under names that nobody else chooses: "0001-name", of
// which the number is counted, and the name has nothing but letters, digits, dots, dashes and underscores.
//   Owns:    the folder's descriptor: what happens to its name meanwhile does not matter.
//   Throws:  LoadError when the folder or a file cannot be written, or a file is there already. A file that is not
//            whole is taken away again.
//   Threads: one.
#ifndef VOLE_WORKSHOP_MEMBER_FOLDER_H
#define VOLE_WORKSHOP_MEMBER_FOLDER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "io/OwnFd.h"
#include "vole.h"

class MemberFolder {
public:
    // Makes the folder, for its owner alone, when it is missing; those around it have to be there.
    explicit MemberFolder(const std::string& path);

    // Writes the content to a new file, which its owner alone may read; what that is called in the folder.
    std::string write(const vole_content& content, std::string_view name);

private:
    std::string _path;
    ZOV_SPACE::OwnFd _folder;
    std::uint64_t _written = 0;
};

#endif  // VOLE_WORKSHOP_MEMBER_FOLDER_H
