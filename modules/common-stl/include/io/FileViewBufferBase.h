// FileViewBufferBase: a private view of an open file as a buffer. Reads come from the file; the first operation that
// changes the content copies all of it into an anonymous temporary file and works on that from then on. The viewed
// file is never written and never mapped.
//
// Others may shorten or change the file meanwhile. A read then returns what there is, fewer bytes than the size
// promises, or throws with the system error text; both are remembered in sourceFailed(). A copy made then is as long
// as what could be read.
// Threads: any; a mutex serialises every operation.
#ifndef COMMON_STL_IO_FILEVIEWBUFFERBASE_H
#define COMMON_STL_IO_FILEVIEWBUFFERBASE_H

#include <memory>

#include "Mutex.h"
#include "io/BufferBase.h"
#include "io/FileBufferBase.h"
#include "io/FileWindow.h"
#include "io/OwnFd.h"

namespace ZOV_SPACE {

class FileViewBufferBase : public BufferBase {
public:
    static constexpr long kMaxSize = 0x7FFFFFFF;  // Bytes.

    // The first `size` bytes of the file. `fd` is duplicated and stays the caller's; its offset does not matter and is
    // not moved. Not valid when it cannot be duplicated or the size is not in 0 .. kMaxSize.
    FileViewBufferBase(int fd, long size);
    ~FileViewBufferBase() override;

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
    long getSize() const override;
    int getFileDescriptor() override;

    bool sourceFailed() const override;

private:
    int _read(long pos, char* buf, int n) VOLE_REQUIRES(_mutex);
    FileBufferBase& _ownCopy() VOLE_REQUIRES(_mutex);
    long _currentSize() const VOLE_REQUIRES(_mutex);

    OwnFd _source VOLE_GUARDED_BY(_mutex);
    std::unique_ptr<FileBufferBase> _copy VOLE_GUARDED_BY(_mutex);
    bool _sourceFailed VOLE_GUARDED_BY(_mutex) = false;
    mutable Mutex _mutex;
    FileWindow _window VOLE_GUARDED_BY(_mutex);
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FILEVIEWBUFFERBASE_H
