#include "Normalize.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include "Ascii.h"
#include "Exception.h"
#include "Text.h"
#include "VoleUtil.h"
#include "util/Diag.h"

namespace {

using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::SmartBufferBase;

constexpr diag::Unit kDiag{"pattern_assistant"};

constexpr long kLargestText = 65536;
constexpr long kProbeSize = 64;
constexpr std::size_t kLineSize = 1024;  // A line's text with a NUL.

bool isTextByte(char c) { return ZOV_SPACE::ascii::isCntrl(c) || ZOV_SPACE::ascii::isPrint(c); }

// The first `size` bytes of the stream, in place when it keeps them in memory, else read into `storage`; fewer when the
// stream ends sooner.
std::string_view contentOf(IOBuffer& input, long size, std::vector<char>& storage) {
    const auto length = static_cast<std::size_t>(size);
    input.seek(SEEK_SET, 0);
    const auto inPlace = input.view();
    if (inPlace.size() >= length) return {inPlace.data(), length};
    storage.resize(length);
    const int got = VoleUtil::readn(&input, storage.data(), static_cast<int>(size));
    return {storage.data(), static_cast<std::size_t>(std::max(got, 0))};
}

bool looksLikeText(IOBuffer& input, long size) {
    std::vector<char> storage;
    const long probeSize = std::min(size, kProbeSize);
    const std::string_view probe = contentOf(input, probeSize, storage);
    if (static_cast<long>(probe.size()) < probeSize) {
        kDiag.at(1112).err("fail to read %d bytes from file", static_cast<int>(probeSize));
        return false;
    }
    if (!std::all_of(probe.begin(), probe.end(), isTextByte)) {
        kDiag.at(1126).dbg("normalize, file is not text file");
        return false;
    }
    return true;
}

// In blocks of a fixed size, which the compiler turns into vectors.
void lower(std::span<char> text) {
    constexpr std::size_t kBlock = 32;
    for (; text.size() >= kBlock; text = text.subspan(kBlock)) {
        const std::span<char, kBlock> block = text.first<kBlock>();
        for (std::size_t i = 0; i < kBlock; ++i) block[i] = ZOV_SPACE::ascii::toLower(block[i]);
    }
    for (char& c : text) c = ZOV_SPACE::ascii::toLower(c);
}

// Writes the normalised form to `out` and returns its length, at most normalizedBound().
std::size_t writeNormalized(std::string_view text, char* out) {
    char* const start = out;
    while (!text.empty()) {
        const std::string_view line = ZOV_SPACE::text::trim(VoleUtil::takeLine(text, kLineSize - 1));
        if (line.empty()) continue;
        out = std::copy(line.begin(), line.end(), out);
        *out++ = '\n';
    }
    const auto length = static_cast<std::size_t>(out - start);
    lower({start, length});
    return length;
}

// Each line gives at most its own bytes, and a line feed that its end already paid for, unless it was cut for its
// length or the text ends without one.
constexpr std::size_t normalizedBound(std::size_t size) { return size + size / (kLineSize - 1) + 1; }

std::unique_ptr<SmartBufferBase> newBuffer(long size) {
    try {
        auto buffer = std::make_unique<SmartBufferBase>(size);
        if (buffer->isValid()) return buffer;
    } catch (const std::bad_alloc&) {
    } catch (const ZOV_SPACE::Exception&) {
    }
    kDiag.at(1134).err("fail to new SmartBufferBase");
    return nullptr;
}

}  // namespace

std::unique_ptr<SmartBufferBase> normalize(IOBuffer* input, bool* failed) {
    if (!input) return nullptr;
    const long size = input->getSize();
    if (size > kLargestText || !looksLikeText(*input, size)) return nullptr;

    std::vector<char> storage;
    const std::string_view text = contentOf(*input, size, storage);
    const auto bound = static_cast<long>(normalizedBound(text.size()));
    auto buffer = newBuffer(bound);
    if (!buffer) {
        if (failed) *failed = true;
        return nullptr;
    }
    const std::span<char> space = buffer->appendSpace(bound);
    if (!space.empty()) {
        buffer->commitAppend(static_cast<long>(writeNormalized(text, space.data())));
    } else {
        std::vector<char> normalized(static_cast<std::size_t>(bound));
        buffer->write(0, normalized.data(), static_cast<int>(writeNormalized(text, normalized.data())));
    }
    return buffer;
}
