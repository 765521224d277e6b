#include "rar/RarWindow.h"

#include <cstdlib>
#include <cstring>

#include "LargePages.h"
#include "Raise.h"

namespace ZOV_SPACE {

static constexpr ThrowUnit kUnit{"../../core/pakfold/src/utils/RarStream"};

RarWindow::RarWindow(std::uint32_t size) : _size(size) {
    const std::size_t bytes = ringSize() + kOverrun;
    _bytes.reset(static_cast<char*>(std::calloc(bytes, 1)));
    if (!_bytes) kUnit.raise<OutOfMemoryException>("Out of memory");
    preferLargePages(_bytes.get(), bytes);
}

void RarWindow::clear() {
    std::memset(_bytes.get(), 0, _reach);
    _reach = 0;
}

}  // namespace ZOV_SPACE
