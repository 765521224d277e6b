#include "ContentBuffer.h"

#include <algorithm>
#include <limits>

#include "Exception.h"
#include "Raise.h"

ContentBuffer::ContentBuffer(const vole_content& content) : _content(content) {
    // Contents are below 2 GiB, whatever the number could say.
    _setSize(static_cast<long>(std::min<std::uint64_t>(content.size, std::numeric_limits<std::int32_t>::max())));
}

int ContentBuffer::read(long pos) {
    char byte;
    return read(pos, &byte, 1) == 1 ? static_cast<unsigned char>(byte) : -1;
}

int ContentBuffer::read(long pos, char* buf, int n) {
    using ZOV_SPACE::IOException;
    if (pos < 0) ZOV_SPACE::raise<IOException>("Index out of bound");
    if (!buf || n < 1 || pos >= getSize()) return 0;
    const std::ptrdiff_t count =
        vole_content_read(&_content, static_cast<std::uint64_t>(pos), buf, static_cast<std::size_t>(n));
    if (count < 0) ZOV_SPACE::raise<IOException>("the content cannot be read");
    return static_cast<int>(count);
}
