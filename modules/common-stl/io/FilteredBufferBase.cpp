#include "io/FilteredBufferBase.h"

namespace ZOV_SPACE {

FilteredBufferBase::~FilteredBufferBase() = default;

int FilteredBufferBase::read(long pos) { return _inner->read(pos); }
int FilteredBufferBase::read(long pos, char* buf, int n) { return _inner->read(pos, buf, n); }
int FilteredBufferBase::write(long pos, char c) { return _inner->write(pos, c); }
int FilteredBufferBase::write(long pos, const char* buf, int n) { return _inner->write(pos, buf, n); }
int FilteredBufferBase::insert(long pos, char c) { return _inner->insert(pos, c); }
int FilteredBufferBase::insert(long pos, const char* buf, int n) { return _inner->insert(pos, buf, n); }
int FilteredBufferBase::cut(long pos) { return _inner->cut(pos); }
int FilteredBufferBase::cut(long pos, int n) { return _inner->cut(pos, n); }
int FilteredBufferBase::append(char c) { return _inner->append(c); }
int FilteredBufferBase::append(const char* buf, int n) { return _inner->append(buf, n); }
int FilteredBufferBase::truncate(long len) { return _inner->truncate(len); }
long FilteredBufferBase::getSize() const { return _inner->getSize(); }
bool FilteredBufferBase::isValid() const { return _inner->isValid(); }
void FilteredBufferBase::discardUsedBuffer() { _inner->discardUsedBuffer(); }
char* FilteredBufferBase::getMemAddress() { return _inner->getMemAddress(); }
int FilteredBufferBase::getFileDescriptor() { return _inner->getFileDescriptor(); }
std::span<const char> FilteredBufferBase::view(long pos) { return _inner->view(pos); }

}  // namespace ZOV_SPACE
