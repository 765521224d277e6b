// ChunkedInput: a stream that gives a text in pieces of at most so many bytes.
#ifndef TESTS_SUPPORT_CHUNKEDINPUT_H
#define TESTS_SUPPORT_CHUNKEDINPUT_H

#include <algorithm>
#include <string>
#include <utility>

#include "io/InputStream.h"

namespace ZOV_SPACE {

class ChunkedInput : public InputStream {
public:
    explicit ChunkedInput(std::string text, int chunk = 1 << 20) : _text(std::move(text)), _chunk(chunk) {}

    int available() override { return static_cast<int>(_text.size() - _next); }
    void close() override {}
    int read() override { return _next < _text.size() ? static_cast<unsigned char>(_text[_next++]) : -1; }
    int read(char* buf, int len) override {
        const std::size_t count = _text.copy(buf, static_cast<std::size_t>(std::min(len, _chunk)), _next);
        _next += count;
        return static_cast<int>(count);
    }

private:
    std::string _text;
    std::size_t _next = 0;
    int _chunk;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_CHUNKEDINPUT_H
