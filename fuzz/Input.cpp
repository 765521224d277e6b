#include "Input.h"

#include <algorithm>

#include "Raise.h"
#include "Target.h"

using namespace ZOV_SPACE;

int InputBuffer::read(long pos) {
    const std::span<const char> bytes = view(pos);
    return bytes.empty() ? -1 : static_cast<unsigned char>(bytes[0]);
}

int InputBuffer::read(long pos, char* buf, int n) {
    const std::span<const char> bytes = view(pos);
    const std::size_t count = std::min(bytes.size(), static_cast<std::size_t>(std::max(n, 0)));
    std::copy_n(bytes.data(), count, buf);
    return static_cast<int>(count);
}

std::span<const char> InputBuffer::view(long pos) {
    if (pos < 0) raise<IOException>("Index out of bound");
    if (pos >= getSize()) return {};
    return std::span(_input).subspan(static_cast<std::size_t>(pos));
}

std::vector<char> withSmallHeap(std::string_view block) {
    constexpr char kNewModel = 0x20;
    std::vector<char> bytes(block.begin(), block.end());
    if (bytes.size() > 1 && (bytes[0] & kNewModel)) bytes[1] = static_cast<char>(bytes[1] & 1);
    return bytes;
}

int NotedOutput::write(const char* buf, int len) {
    note({buf, static_cast<std::size_t>(std::min(len, kMost - _taken))});
    if (len > kMost - _taken) raise<UnarchiveRatioExceed>("full");
    _taken += len;
    return len;
}

std::unique_ptr<OutputStream> NotedEntries::processEntry(ArchiveEntryInfo* entry, int& action) {
    static constexpr int kTurns[] = {kActionDecompress, kActionDecompress, kActionCopy, kActionSkip};
    note(entry->name + " " + std::to_string(entry->compressedSize) + " " + std::to_string(entry->uncompressedSize));
    action = _count == kMost ? kActionAbort : kTurns[_count % 4];
    ++_count;
    return action == kActionSkip ? nullptr : std::make_unique<NotedOutput>();
}
