#include "Input.h"

#include <sys/mman.h>
#include <unistd.h>

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

InputFile::InputFile()
    : _fd(::memfd_create("input", MFD_CLOEXEC)), _path("/proc/self/fd/" + std::to_string(_fd.get())) {
    require(static_cast<bool>(_fd));
}

void InputFile::set(std::string_view input) {
    require(::ftruncate(_fd.get(), 0) == 0);
    require(::pwrite(_fd.get(), input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()));
}

InputDir::InputDir(std::initializer_list<const char*> names) {
    for (const char* name : names) std::filesystem::create_symlink(_file.path(), _dir / name);
}

int DroppedOutput::write(const char* buf, int len) {
    // Reading it shows whether all of it is there.
    for (const char c : std::string_view(buf, static_cast<std::size_t>(len))) _sum ^= static_cast<unsigned char>(c);
    if (len > kMost - _taken) raise<UnarchiveRatioExceed>("full");
    _taken += len;
    return len;
}

std::unique_ptr<OutputStream> DroppedEntries::processEntry(ArchiveEntryInfo*, int& action) {
    static constexpr int kTurns[] = {kActionDecompress, kActionDecompress, kActionCopy, kActionSkip};
    action = _count == kMost ? kActionAbort : kTurns[_count % 4];
    ++_count;
    return action == kActionSkip ? nullptr : std::make_unique<DroppedOutput>();
}
