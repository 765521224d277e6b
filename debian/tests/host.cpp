#include <voleeng.h>

#include <cstdio>

int main(int argc, char** argv) {
    std::string name, message;
    if (argc != 3 || init(argv[1], message) != VOLE_CLEAN) return 2;
    const int result = scanFile(argv[2], name, message);
    std::puts(result == VOLE_FOUND ? "found" : result == VOLE_CLEAN ? "clean" : message.c_str());
    return freeResource();
}
