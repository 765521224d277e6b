// RarVmAssembler: writes programs of RAR's virtual machine, as archives carry them.
#ifndef TESTS_SUPPORT_RARVMASSEMBLER_H
#define TESTS_SUPPORT_RARVMASSEMBLER_H

#include <array>
#include <bit>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <utility>
#include <vector>

#include "unarchiver/RarVm.h"
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

struct RarVmOperand {
    enum class Form { none, immediate, inRegister, atRegister, atRegisterAndBase, atAddress } form = Form::none;
    unsigned number = 0;  // Of the register.
    std::uint32_t value = 0;
};

inline RarVmOperand imm(std::uint32_t value) { return {RarVmOperand::Form::immediate, 0, value}; }
inline RarVmOperand reg(unsigned number) { return {RarVmOperand::Form::inRegister, number, 0}; }
inline RarVmOperand at(RarVmOperand base) { return {RarVmOperand::Form::atRegister, base.number, 0}; }
inline RarVmOperand at(RarVmOperand base, std::uint32_t n) {
    return {RarVmOperand::Form::atRegisterAndBase, base.number, n};
}
inline RarVmOperand at(std::uint32_t address) { return {RarVmOperand::Form::atAddress, 0, address}; }

class RarVmAssembler {
public:
    using Operation = VmOperation;

    RarVmAssembler& staticData(const std::vector<unsigned char>& bytes) {
        _staticData = bytes;
        return *this;
    }
    RarVmAssembler& dword(Operation operation, RarVmOperand to = {}, RarVmOperand from = {}) {
        return command(operation, false, to, from);
    }
    RarVmAssembler& byte(Operation operation, RarVmOperand to = {}, RarVmOperand from = {}) {
        return command(operation, true, to, from);
    }
    // To the command with that number; they count from 0.
    RarVmAssembler& jump(Operation operation, std::uint32_t target) { return dword(operation, imm(target + 256)); }
    std::uint32_t next() const { return static_cast<std::uint32_t>(_commands.size()); }

    std::vector<unsigned char> build() const {
        RarBitWriter bits;
        bits.put(0, 8);
        bits.put(_staticData.empty() ? 0 : 1, 1);
        if (!_staticData.empty()) bits.putNumber(static_cast<std::uint32_t>(_staticData.size() - 1));
        for (const unsigned char data : _staticData) bits.put(data, 8);
        for (const Command& each : _commands) write(bits, each);
        std::vector<unsigned char> code = bits.bytes();
        for (std::size_t i = 1; i < code.size(); ++i) code[0] ^= code[i];
        return code;
    }

private:
    struct Command {
        Operation operation;
        bool byteMode;
        std::array<RarVmOperand, 2> operands;
    };

    RarVmAssembler& command(Operation operation, bool byteMode, RarVmOperand to, RarVmOperand from) {
        _commands.push_back({operation, byteMode, {to, from}});
        return *this;
    }
    static bool hasModeBit(Operation operation) {
        using enum VmOperation;
        for (const Operation without : {jz,
                                        jnz,
                                        jmp,
                                        js,
                                        jns,
                                        jb,
                                        jbe,
                                        ja,
                                        jae,
                                        push,
                                        pop,
                                        call,
                                        ret,
                                        pushAll,
                                        popAll,
                                        pushFlags,
                                        popFlags,
                                        movZeroExtended,
                                        movSignExtended,
                                        print}) {
            if (operation == without) return false;
        }
        return true;
    }
    static void write(RarBitWriter& bits, const Command& command) {
        const auto number = static_cast<unsigned>(command.operation);
        number < 8 ? bits.put(number, 4) : bits.put(number + 24, 6);
        if (hasModeBit(command.operation)) bits.put(command.byteMode, 1);
        for (const RarVmOperand& operand : command.operands) write(bits, operand, command.byteMode);
    }
    static void write(RarBitWriter& bits, const RarVmOperand& operand, bool byteMode) {
        using Form = RarVmOperand::Form;
        switch (operand.form) {
            case Form::none:
                return;
            case Form::inRegister:
                return bits.put(8 | operand.number, 4);
            case Form::immediate:
                bits.put(0, 2);
                return byteMode ? bits.put(operand.value & 0xFF, 8) : bits.putNumber(operand.value);
            case Form::atRegister:
                return bits.put(2 << 3 | operand.number, 6);
            case Form::atRegisterAndBase:
                bits.put(6 << 3 | operand.number, 7);
                return bits.putNumber(operand.value);
            case Form::atAddress:
                bits.put(7, 4);
                return bits.putNumber(operand.value);
        }
    }

    std::vector<unsigned char> _staticData;
    std::vector<Command> _commands;
};

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
    RarVM::SetValue(&program.GlobalData[RarVM::kBlockLengthOffset], registers[4]);
    vm.SetMemory(0, block.data(), registers[4]);
    vm.Execute(&program);
    return {program.FilteredData, program.FilteredData + program.FilteredDataSize};
}

// Code that has the length and the CRC-32 given and passes its check, and so counts as a standard filter's program:
// both sums are linear in the code's bits, so elimination finds the bits of the first bytes to set.
inline std::vector<unsigned char> standInProgram(std::size_t length, std::uint32_t crc32) {
    const auto sumsOf = [](const std::vector<unsigned char>& code) {
        RarCrc crc;
        std::uint64_t sums = ~crc.add(code.data(), static_cast<unsigned>(code.size()));
        for (const unsigned char byte : code) sums ^= std::uint64_t{byte} << 32;
        return sums;
    };
    std::vector<unsigned char> code(length, 0);
    const std::uint64_t sumsOfZeros = sumsOf(code);
    std::uint64_t missing = sumsOfZeros ^ crc32;
    // By its highest bit: what a combination of the code's bits, the second number, adds to the sums.
    std::array<std::pair<std::uint64_t, std::uint64_t>, 40> basis{};
    const auto reduce = [&basis](std::uint64_t& sums, std::uint64_t& bits) {
        for (; sums != 0;) {
            const auto& row = basis[static_cast<std::size_t>(std::bit_width(sums)) - 1];
            if (row.first == 0) return;
            sums ^= row.first;
            bits ^= row.second;
        }
    };
    for (unsigned bit = 0; bit < 64; ++bit) {
        std::vector<unsigned char> one(length, 0);
        one[bit / 8] = static_cast<unsigned char>(1U << bit % 8);
        std::uint64_t sums = sumsOf(one) ^ sumsOfZeros;
        std::uint64_t bits = std::uint64_t{1} << bit;
        reduce(sums, bits);
        if (sums != 0) basis[static_cast<std::size_t>(std::bit_width(sums)) - 1] = {sums, bits};
    }
    std::uint64_t chosen = 0;
    reduce(missing, chosen);
    for (unsigned bit = 0; bit < 64; ++bit) {
        if (chosen >> bit & 1) code[bit / 8] = static_cast<unsigned char>(code[bit / 8] | 1U << bit % 8);
    }
    return code;
}

inline std::vector<unsigned char> standInProgram(VM_StandardFilters filter) {
    switch (filter) {
        case kFilterE8:
            return standInProgram(53, 0xAD576887);
        case kFilterE8E9:
            return standInProgram(57, 0x3CD7E57E);
        case kFilterItanium:
            return standInProgram(120, 0x3769893F);
        case kFilterDelta:
            return standInProgram(29, 0x0E06077D);
        case kFilterRgb:
            return standInProgram(149, 0x1C2C5DC8);
        case kFilterAudio:
            return standInProgram(216, 0xBC85E701);
        case kFilterUpcase:
            return standInProgram(40, 0x46B9C560);
        default:
            return {};
    }
}

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_RARVMASSEMBLER_H
