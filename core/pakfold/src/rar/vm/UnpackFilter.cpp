#include "rar/vm/UnpackFilter.h"

#include <algorithm>
#include <utility>

#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {

UnpackFilter::UnpackFilter(RarVM& vm, std::shared_ptr<RarProgram> program, std::uint32_t start, std::uint32_t length)
    : _vm(vm), _program(std::move(program)), _start(start), _length(length) {}

UnpackFilter::~UnpackFilter() = default;

std::uint32_t UnpackFilter::copy(const unsigned char* bytes, std::uint32_t n) {
    if (!_block) _block = std::make_unique_for_overwrite<unsigned char[]>(_length);
    n = std::min(n, _length - _filled);
    std::copy_n(bytes, n, _block.get() + _filled);
    _filled += n;
    return _filled;
}

void UnpackFilter::execute(RarVMOutputStream* out, RarFilterQueue* queue) {
    const RarVM::Run outcome = run(static_cast<std::uint32_t>(out->flushedTotal()));
    if (outcome == RarVM::Run::idle) out->troubles().note(RarTrouble::filterNotRun);
    if (outcome == RarVM::Run::cutShort) out->troubles().note(RarTrouble::instructionsSpent);
    const unsigned char* const result = _prepared.FilteredData;
    const std::uint32_t size = _prepared.FilteredDataSize;
    // What a filter swallows is never written, and so neither meets the entry's limit nor costs whoever takes it.
    if (size < _length) ScanBudget::chargeDiscardedBytes(_length - size);
    if (queue->empty() || queue->front().start != out->flushedCount() || queue->front().filter->getLength() != size) {
        out->writeFiltered(result, size);
        return;
    }
    const std::unique_ptr<RarOutputFilter> next = std::move(queue->front().filter);
    queue->erase(queue->begin());
    next->copy(result, size);
    next->execute(out, queue);
}

// `position` is the block's, in the whole output. Global data behind the fixed fields is what the last run left, if it
// left any.
RarVM::Run UnpackFilter::run(std::uint32_t position) {
    constexpr std::size_t kFixed = RarVM::kFixedGlobalBytes;
    _vm.SetMemory(0, _block.get(), _filled);
    _block.reset();

    Array<unsigned char>& kept = _program->prepared.GlobalData;
    Array<unsigned char>& global = _prepared.GlobalData;
    if (kept.size() > kFixed) {
        if (global.size() < kept.size()) global.Add(static_cast<int>(kept.size() - global.size()));
        std::copy(kept.begin() + kFixed, kept.end(), global.begin() + kFixed);
    }
    auto fields = loadLittleEndian<RarVmGlobals>(global.data());
    fields.position = {position, 0};
    storeLittleEndian(global.data(), fields);
    _prepared.InitR[6] = position;
    _prepared.StaticData = _program->prepared.StaticData;
    _prepared.AltCmd = _program->prepared.Cmd.data();
    _prepared.CmdCount = _program->prepared.CmdCount;
    // A program that begins with a return is one that could not be understood, or was cut short before.
    const bool idle = _program->prepared.Cmd[0].OpCode == VmOperation::ret;
    const RarVM::Run outcome = _vm.Execute(&_prepared);

    kept.Reset();
    if (global.size() > kFixed) std::swap(kept, global);
    return idle ? RarVM::Run::idle : outcome;
}

}  // namespace ZOV_SPACE
