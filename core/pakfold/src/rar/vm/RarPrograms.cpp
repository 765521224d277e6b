// A description says which program a filter runs, where its block begins, counted from what is decoded so far, and how
// long it is; then, if its first byte says so, registers, the program itself, and global data. What is left out is as
// it was for the same program before.
#include "rar/vm/RarPrograms.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace ZOV_SPACE {
namespace {

// Bits of the first byte: what the description has.
constexpr unsigned kHasProgramNumber = 0x80;
constexpr unsigned kFarStart = 0x40;
constexpr unsigned kHasLength = 0x20;
constexpr unsigned kHasRegisters = 0x10;
constexpr unsigned kHasGlobalData = 0x08;

constexpr std::uint32_t kFarStartBytes = 258;
constexpr std::uint32_t kLongestCode = 0xFFFF;

constexpr std::uint32_t kMostGlobalData = RarVM::kGlobalBytes - RarVM::kFixedGlobalBytes;

void readBytes(RarMemoryBits& bits, unsigned char* bytes, std::size_t n) {
    for (; n > 0 && !bits.atEnd(); --n) {
        *bytes++ = static_cast<unsigned char>(bits.getBits() >> 8);
        bits.addBits(8);
    }
}

void readRegisters(RarMemoryBits& bits, std::array<unsigned int, 7>& registers) {
    const unsigned mask = bits.getBits() >> 9;
    bits.addBits(7);
    for (unsigned i = 0; i < registers.size(); ++i) {
        if (mask & 1U << i) registers[i] = RarVM::ReadData(&bits);
    }
}

// The fixed fields: the registers, the block, and how often the program was used.
void initGlobalData(VM_PreparedProgram& prepared, std::uint32_t length, std::uint32_t uses) {
    RarVmGlobals fields{};
    fields.registers = prepared.InitR;
    fields.blockLength = length;
    fields.uses = uses;
    prepared.GlobalData.Add(RarVM::kFixedGlobalBytes);
    storeLittleEndian(prepared.GlobalData.data(), fields);
}

// What follows the fixed fields.
bool readGlobalData(RarMemoryBits& bits, VM_PreparedProgram& prepared) {
    const std::uint32_t size = RarVM::ReadData(&bits);
    if (size > kMostGlobalData) return false;
    prepared.GlobalData.Add(static_cast<int>(size));
    readBytes(bits, prepared.GlobalData.data() + RarVM::kFixedGlobalBytes, size);
    return true;
}

}  // namespace

void RarPrograms::InitFilters() {
    _programs.clear();
    _selected = 0;
}

// Number 0 begins anew with no programs; others count from 1.
bool RarPrograms::selectProgram(RarMemoryBits& bits, bool isGiven, RarVMOutputStream* out) {
    if (!isGiven) return _selected <= _programs.size();
    const std::uint32_t number = RarVM::ReadData(&bits);
    if (number == 0) {
        InitFilters();
        out->dropFilters();
        return true;
    }
    if (number - 1 > _programs.size() || number > kMostPrograms) return false;
    _selected = number - 1;
    return true;
}

std::shared_ptr<RarProgram> RarPrograms::readProgram(RarMemoryBits& bits, RarTroubles& troubles) {
    const std::uint32_t length = RarVM::ReadData(&bits);
    if (length == 0 || length > kLongestCode) return nullptr;
    std::vector<unsigned char> code(length);
    readBytes(bits, code.data(), length);
    auto program = std::make_shared<RarProgram>();
    if (bits.overrun()) return nullptr;
    if (_vm.Prepare(code.data(), static_cast<int>(length), &program->prepared)) return program;
    troubles.note(RarTrouble::codeSpent);
    return nullptr;
}

bool RarPrograms::AddVMCode(unsigned int firstByte, std::span<const unsigned char> code, RarVMOutputStream* out) {
    const bool added = addFilter(firstByte, code, out);
    if (!added) out->troubles().note(RarTrouble::filterNotRun);
    return added;
}

bool RarPrograms::addFilter(unsigned int firstByte, std::span<const unsigned char> code, RarVMOutputStream* out) {
    RarMemoryBits bits(code);
    _vm.Init();
    if (!selectProgram(bits, (firstByte & kHasProgramNumber) != 0, out)) return false;
    const bool isNew = _selected == _programs.size();
    RarProgram* const known = isNew ? nullptr : _programs[_selected].get();

    std::uint64_t ahead = RarVM::ReadData(&bits);
    if (firstByte & kFarStart) ahead += kFarStartBytes;
    std::uint32_t length = known ? known->blockLength : 0;
    if (firstByte & kHasLength) length = RarVM::ReadData(&bits);
    const std::uint32_t uses = known ? ++known->uses : 0;

    std::array<unsigned int, 7> registers{0, 0, 0, RarVM::kGlobalAddress, length, uses, 0};
    if (firstByte & kHasRegisters) readRegisters(bits, registers);
    if (isNew) {
        std::shared_ptr<RarProgram> program = readProgram(bits, out->troubles());
        if (!program) return false;
        _programs.push_back(std::move(program));
    }
    _programs[_selected]->blockLength = length;
    if (ahead >= out->windowSize() || length > kLargestBlock) return false;

    const auto start = static_cast<std::uint32_t>((out->writePosition() + ahead) % out->windowSize());
    auto filter = std::make_unique<UnpackFilter>(_vm, _programs[_selected], start, length);
    filter->prepared().InitR = registers;
    initGlobalData(filter->prepared(), length, uses);
    if ((firstByte & kHasGlobalData) && !readGlobalData(bits, filter->prepared())) return false;
    return !bits.overrun() && out->registerFilter(std::move(filter));
}

}  // namespace ZOV_SPACE
