// FileBufferBase: a buffer in a temporary file that disappears with the buffer. The file is its owner's alone (0600)
// and is not inherited by programs that the host starts.
// Threads: any; a mutex serialises every operation.
#ifndef COMMON_STL_IO_FILEBUFFERBASE_H
#define COMMON_STL_IO_FILEBUFFERBASE_H

#include <string>

#include "Mutex.h"
#include "io/BufferBase.h"
#include "io/FileWindow.h"
#include "io/OwnFd.h"

namespace ZOV_SPACE {

class FileBufferBase : public BufferBase {
public:
    FileBufferBase();                          // An anonymous file. Not valid when it cannot be made.
    explicit FileBufferBase(const char* dir);  // A named file in `dir`. Null or empty: an anonymous one.
    ~FileBufferBase() override;

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;
    int write(long pos, char c) override;
    int write(long pos, const char* buf, int n) override;
    int insert(long pos, char c) override;
    int insert(long pos, const char* buf, int n) override;
    int cut(long pos) override;
    int cut(long pos, int n) override;
    int append(char c) override;
    int append(const char* buf, int n) override;
    int truncate(long len) override;
    bool isValid() const override;
    // The file then holds exactly the content. Later small writes may wait in memory until the next call.
    int getFileDescriptor() override;
    // Writes out what waits in memory. When that fails, it waits on.
    void flush();

    // For a named file; an anonymous one answers with an IOException. close() makes the buffer invalid until open(),
    // which starts again with an empty file. Nothing happens in the wanted state.
    void open();
    void close();

    const std::string& getPath() const { return _path; }  // Empty for an anonymous file.

private:
    void _init() VOLE_REQUIRES(_mutex);
    void _pad(long from, long n) VOLE_REQUIRES(_mutex);
    void _fileMove(long to, long from) VOLE_REQUIRES(_mutex);
    void _write(long pos, const char* buf, int n) VOLE_REQUIRES(_mutex);
    int _cut(long pos, int n);

    OwnFd _file VOLE_GUARDED_BY(_mutex);
    std::string _path;
    mutable Mutex _mutex;
    FileWindow _window VOLE_GUARDED_BY(_mutex);
    bool _created = false;  // The file of that name is ours to remove.
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FILEBUFFERBASE_H
