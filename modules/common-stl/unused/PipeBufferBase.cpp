// One mutex guards the inner buffer, and one condition says that it changed. A reader at the end sleeps on the
// condition until a look at the inner buffer gives bytes or writing was closed. Whatever may have brought bytes wakes
// all readers, also when it throws, since it may have brought some before.
#include "unused/PipeBufferBase.h"

#include <new>

#include "io/BufferSupport.h"

namespace ZOV_SPACE {

namespace {

// Also when the operation throws: it may have brought bytes before.
struct NotifyAtEnd {
    ~NotifyAtEnd() { condition.notifyAll(); }
    Condition& condition;
};

}  // namespace

PipeBufferBase::PipeBufferBase(BufferBase* inner) : FilteredBufferBase(inner), _changed(_mutex) {}

PipeBufferBase::~PipeBufferBase() = default;

int PipeBufferBase::read(long pos) {
    Monitor guard(_mutex);
    for (;;) {
        const int byte = _inner->read(pos);
        if (byte != -1 || _closed) return byte;
        _changed.wait();
    }
}

int PipeBufferBase::read(long pos, char* buf, int n) {
    Monitor guard(_mutex);
    for (;;) {
        const int count = _inner->read(pos, buf, n);
        if (count != 0 || _closed || nothingToDo(buf, n)) return count;
        _changed.wait();
    }
}

template <class Operation>
int PipeBufferBase::_notifying(Operation operation) {
    Monitor guard(_mutex);
    const NotifyAtEnd notify{_changed};
    return operation();
}

int PipeBufferBase::write(long pos, char c) {
    return _notifying([&] { return _inner->write(pos, c); });
}

int PipeBufferBase::write(long pos, const char* buf, int n) {
    return _notifying([&] { return _inner->write(pos, buf, n); });
}

int PipeBufferBase::insert(long pos, char c) {
    return _notifying([&] { return _inner->insert(pos, c); });
}

int PipeBufferBase::insert(long pos, const char* buf, int n) {
    return _notifying([&] { return _inner->insert(pos, buf, n); });
}

int PipeBufferBase::cut(long pos) {
    Monitor guard(_mutex);
    return _inner->cut(pos);
}

int PipeBufferBase::cut(long pos, int n) {
    Monitor guard(_mutex);
    return _inner->cut(pos, n);
}

int PipeBufferBase::append(char c) {
    return _notifying([&] { return _inner->append(c); });
}

int PipeBufferBase::append(const char* buf, int n) {
    return _notifying([&] { return _inner->append(buf, n); });
}

int PipeBufferBase::truncate(long len) {
    Monitor guard(_mutex);
    return _inner->truncate(len);
}

std::span<const char> PipeBufferBase::view(long) { return {}; }

PipeProducerOutputStream* PipeBufferBase::getProducerOutputStream() {
    Monitor guard(_mutex);
    if (!_producer) _producer.reset(new (std::nothrow) PipeProducerOutputStream(this));
    if (!_producer) kBufferUnit.raise<OutOfMemoryException>("Out of memory");
    return _producer.get();
}

void PipeBufferBase::closeWriting() {
    Monitor guard(_mutex);
    _closed = true;
    _changed.notifyAll();
}

PipeProducerOutputStream::~PipeProducerOutputStream() = default;

PipeBufferBase* PipeProducerOutputStream::_target() const {
    requireStreamOpen(_closed);
    return _pipe.load(std::memory_order_acquire);
}

void PipeProducerOutputStream::close() {
    PipeBufferBase* const pipe = _target();
    _closed = true;
    if (pipe) pipe->closeWriting();
}

void PipeProducerOutputStream::flush() { requireStreamOpen(_closed); }

int PipeProducerOutputStream::write(char c) {
    PipeBufferBase* const pipe = _target();
    return pipe ? pipe->append(c) : 1;
}

int PipeProducerOutputStream::write(const char* buf, int len) {
    PipeBufferBase* const pipe = _target();
    if (nothingToDo(buf, len)) return 0;
    return pipe ? pipe->append(buf, len) : len;
}

void PipeProducerOutputStream::ignoreProducer() { _pipe.store(nullptr, std::memory_order_release); }

}  // namespace ZOV_SPACE
