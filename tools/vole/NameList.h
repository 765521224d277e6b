// NameList: the names in a list of files, one after another.
//   Owns:    the descriptor, unless it is standard input.
//   Memory:  one block and one name; longer names than any system takes are errors.
//   Throws:  ListError when the list cannot be opened. Afterwards whatever is wrong is told in its place.
//   Threads: one at a time.
#ifndef VOLE_TOOL_NAME_LIST_H
#define VOLE_TOOL_NAME_LIST_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "Target.h"

struct ListError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class NameList {
public:
    // `path` "-" is standard input. Names end with `separator`, the last one also with the list.
    NameList(std::string path, char separator);
    ~NameList();
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;

    // The next name, or "LIST:NUMBER" with an error for one that cannot be used. False at the end, also when a signal
    // asks for it.
    bool next(Target& name);

    // Whether next() answers without waiting for more of the list.
    bool hasWholeName() const { return _block.find(_separator, _position) != std::string::npos; }

private:
    bool readBlock();
    bool readName(std::string& name);
    Target judged(std::string name) const;

    std::string _path;
    char _separator;
    int _fd;
    std::string _block;
    std::size_t _position = 0;  // In the block.
    std::uint64_t _number = 0;  // Of the name, counted from 1.
    bool _tooLong = false;
    bool _ended = false;
    std::string _readError;
};

#endif  // VOLE_TOOL_NAME_LIST_H
