// RarVmAssembler: writes programs of RAR's virtual machine, as archives carry them.
#ifndef TESTS_SUPPORT_RARVMASSEMBLER_H
#define TESTS_SUPPORT_RARVMASSEMBLER_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "rar/vm/RarVm.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {

// Bits, most significant first; the last byte is filled with zeros.
class RarBitWriter {
public:
    void put(std::uint32_t value, unsigned count) {
        while (count-- > 0) {
            if (_used++ % 8 == 0) _bytes.push_back(0);
            _bytes.back() = static_cast<unsigned char>(_bytes.back() | (value >> count & 1) << (7 - (_used - 1) % 8));
        }
    }
    // As RarVM::ReadData() reads it, in the fewest bits.
    void putNumber(std::uint32_t value) {
        if (value < 16) {
            put(0, 2), put(value, 4);
        } else if (value < 256) {
            put(1, 2), put(value, 8);
        } else if (value >= 0xFFFFFF00) {
            put(1, 2), put(0, 4), put(value & 0xFF, 8);
        } else if (value <= 0xFFFF) {
            put(2, 2), put(value, 16);
        } else {
            put(3, 2), put(value >> 16, 16), put(value & 0xFFFF, 16);
        }
    }
    const std::vector<unsigned char>& bytes() const { return _bytes; }

private:
    std::vector<unsigned char> _bytes;
    unsigned _used = 0;
};

// As it is coded: the first bits, and the number behind them, if any.
struct RarVmOperand {
    unsigned head = 0, headBits = 0;
    bool hasNumber = false;
    std::uint32_t number = 0;

    bool isImmediate() const { return headBits == 2; }
};

inline RarVmOperand imm(std::uint32_t value) { return {0, 2, true, value}; }
inline RarVmOperand reg(unsigned number) { return {8 | number, 4}; }
inline RarVmOperand at(RarVmOperand base) { return {2 << 3 | (base.head & 7), 6}; }
inline RarVmOperand at(RarVmOperand base, std::uint32_t n) { return {6 << 3 | (base.head & 7), 7, true, n}; }
inline RarVmOperand at(std::uint32_t address) { return {7, 4, true, address}; }

class RarVmAssembler {
public:
    explicit RarVmAssembler(const std::vector<unsigned char>& staticData = {}) {
        _bits.put(0, 8);
        _bits.put(staticData.empty() ? 0 : 1, 1);
        if (!staticData.empty()) _bits.putNumber(static_cast<std::uint32_t>(staticData.size() - 1));
        for (const unsigned char data : staticData) _bits.put(data, 8);
    }

    RarVmAssembler& dword(VmOperation operation, RarVmOperand to = {}, RarVmOperand from = {}) {
        return command(operation, false, to, from);
    }
    RarVmAssembler& byte(VmOperation operation, RarVmOperand to = {}, RarVmOperand from = {}) {
        return command(operation, true, to, from);
    }
    RarVmAssembler& mov(RarVmOperand to, RarVmOperand from) { return dword(VmOperation::mov, to, from); }
    // To the command with that number; they count from 0.
    RarVmAssembler& jump(VmOperation operation, std::uint32_t target) { return dword(operation, imm(target + 256)); }
    std::uint32_t next() const { return _count; }

    std::vector<unsigned char> build() const { return checked(_bits.bytes()); }

    // The code with the check byte that it needs.
    static std::vector<unsigned char> checked(std::vector<unsigned char> code) {
        if (!code.empty()) code[0] = 0;
        for (std::size_t i = 1; i < code.size(); ++i) code[0] ^= code[i];
        return code;
    }

private:
    RarVmAssembler& command(VmOperation operation, bool byteMode, RarVmOperand to, RarVmOperand from) {
        const auto number = static_cast<unsigned>(operation);
        number < 8 ? _bits.put(number, 4) : _bits.put(number + 24, 6);
        if (hasModeBit(operation)) _bits.put(byteMode, 1);
        for (const RarVmOperand& operand : {to, from}) {
            _bits.put(operand.head, operand.headBits);
            if (!operand.hasNumber) continue;
            const bool isByte = byteMode && operand.isImmediate();
            isByte ? _bits.put(operand.number & 0xFF, 8) : _bits.putNumber(operand.number);
        }
        ++_count;
        return *this;
    }
    static bool hasModeBit(VmOperation operation) {
        using enum VmOperation;
        const auto isAmong = [operation](auto... others) { return ((operation == others) || ...); };
        return !isAmong(jz, jnz, jmp, js, jns, jb, jbe, ja, jae, push, pop, call, ret, pushAll, popAll, pushFlags,
                        popFlags, movZeroExtended, movSignExtended, print);
    }

    RarBitWriter _bits;
    std::uint32_t _count = 0;
};

// Adds 1 to each byte of the block (its length is in R4), in place.
inline std::vector<unsigned char> incrementProgram() {
    using enum VmOperation;
    RarVmAssembler program;
    program.mov(reg(0), imm(0)).byte(inc, at(reg(0))).dword(inc, reg(0)).dword(cmp, reg(0), reg(4)).jump(jb, 1);
    return program.dword(ret).build();
}

// What a program makes of a block, run as archives' filters are.
inline std::vector<unsigned char> runProgram(RarVM& vm, const std::vector<unsigned char>& code,
                                             const std::vector<unsigned char>& block,
                                             std::array<unsigned int, 7> registers = {}) {
    VM_PreparedProgram program;
    vm.Prepare(code.data(), static_cast<int>(code.size()), &program);
    registers[3] = RarVM::kGlobalAddress;
    registers[4] = static_cast<unsigned>(block.size());
    program.InitR = registers;
    program.GlobalData.Add(RarVM::kFixedGlobalBytes);
    RarVM::SetValue(&program.GlobalData[offsetof(RarVmGlobals, blockLength)], registers[4]);
    vm.SetMemory(0, block.data(), registers[4]);
    vm.Execute(&program);
    return {program.FilteredData, program.FilteredData + program.FilteredDataSize};
}

// Code that has the length and the CRC-32 given and passes its check, and so counts as a standard filter's program:
// both sums are linear in the code's bits, so elimination finds the bits of the first bytes to set.
inline std::vector<unsigned char> standInProgram(std::size_t length, std::uint32_t crc32) {
    const auto codeOf = [length](std::uint64_t start) {
        std::vector<unsigned char> code(length);
        for (std::size_t i = 0; i < 8; ++i) code[i] = static_cast<unsigned char>(start >> 8 * i);
        return code;
    };
    const auto sumsOf = [&codeOf](std::uint64_t start) {
        const std::vector<unsigned char> code = codeOf(start);
        std::uint64_t sums = ~RarCrc().add(code.data(), static_cast<unsigned>(code.size()));
        for (const unsigned char byte : code) sums ^= std::uint64_t{byte} << 32;
        return sums;
    };
    // By its highest bit: what some bits of the start, the second number, add to the sums.
    std::array<std::pair<std::uint64_t, std::uint64_t>, 40> basis{};
    const auto reduce = [&basis](std::uint64_t sums, std::uint64_t start) {
        while (sums != 0) {
            auto& row = basis[static_cast<std::size_t>(std::bit_width(sums)) - 1];
            if (row.first == 0) row = {sums, start};
            sums ^= row.first;
            start ^= row.second;
        }
        return start;
    };
    const std::uint64_t sumsOfZeros = sumsOf(0);
    for (std::uint64_t bit = 1; bit != 0; bit <<= 1) reduce(sumsOf(bit) ^ sumsOfZeros, bit);
    return codeOf(reduce(sumsOfZeros ^ crc32, 0));
}

inline std::vector<unsigned char> standInProgram(VM_StandardFilters filter) {
    // From kFilterE8 on.
    static constexpr std::pair<std::size_t, std::uint32_t> kPrograms[] = {
        {53, 0xAD576887},  {57, 0x3CD7E57E},  {120, 0x3769893F}, {29, 0x0E06077D},
        {149, 0x1C2C5DC8}, {216, 0xBC85E701}, {40, 0x46B9C560}};
    const auto& [length, crc32] = kPrograms[filter - kFilterE8];
    return standInProgram(length, crc32);
}

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_RARVMASSEMBLER_H
