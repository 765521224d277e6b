// RarVm.h: the virtual machine of the published RAR 2.9 method. Archives carry programs for it that transform blocks of
// unpacked data back into what they were before compression: addresses in machine code, tables, images, sound, text.
//
// Programs are hostile. None reaches beyond the machine's memory, runs on without end, or makes the machine throw;
// only memory that runs out does. Objects are used by one thread at a time.
#ifndef PAKFOLD_RAR_VM_RARVM_H
#define PAKFOLD_RAR_VM_RARVM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <vector>

#include "ByteOrder.h"
#include "Raise.h"
#include "rar/vm/RarStandardFilters.h"
#include "rar/vm/RarVmLayout.h"
#include "rar/vm/VmOpcodes.h"

namespace ZOV_SPACE {

// A growable array.
template <class T>
class Array {
public:
    // Appends n elements, zeros where T is a number. Throws OutOfMemoryException "Array too large", and changes
    // nothing, when n is negative or the array would take 2 GiB or more.
    void Add(int n) {
        constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max() / sizeof(T);
        if (n < 0 || static_cast<std::size_t>(n) > kMost - size()) raise<OutOfMemoryException>("Array too large");
        _elements.resize(size() + static_cast<std::size_t>(n));
    }
    // Frees all elements and their memory.
    void Reset() { std::vector<T>().swap(_elements); }

    bool empty() const { return _elements.empty(); }
    std::size_t size() const { return _elements.size(); }
    T* data() { return _elements.data(); }
    const T* data() const { return _elements.data(); }
    T& operator[](std::size_t i) { return _elements[i]; }
    const T& operator[](std::size_t i) const { return _elements[i]; }
    auto begin() { return _elements.begin(); }
    auto end() { return _elements.end(); }

private:
    std::vector<T> _elements;
};

// Bytes in memory as bits, most significant first: what RarBitInputStream is for a stream.
class RarMemoryBits {
public:
    explicit RarMemoryBits(std::span<const unsigned char> bytes) : _bytes(bytes) {}

    // The next 16 bits; they stay. Bits behind the last byte are zero.
    unsigned int getBits() const;
    // Consumes n bits.
    void addBits(unsigned int n) { _position += n; }
    // Whether no byte is left that is still untouched or has bits left.
    bool atEnd() const { return _position / 8 >= _bytes.size(); }
    // Whether more bits were consumed than there are.
    bool overrun() const { return (_position + 7) / 8 > _bytes.size(); }

private:
    std::span<const unsigned char> _bytes;
    std::uint64_t _position = 0;  // In bits.
};

// The value itself (Base), a register, or memory at register + Base.
struct VM_PreparedOperand {
    enum class Kind : std::uint8_t { immediate, inRegister, inMemory };

    Kind Type = Kind::immediate;
    std::uint8_t Register = 0;
    std::uint32_t Base = 0;
};

struct VM_PreparedCommand {
    VmOperation OpCode = VmOperation::ret;
    bool ByteMode = false;
    VM_PreparedOperand Op1;
    VM_PreparedOperand Op2;
};

struct VM_PreparedProgram {
    Array<VM_PreparedCommand> Cmd;
    VM_PreparedCommand* AltCmd = nullptr;  // Borrowed; runs instead of Cmd when set. CmdCount is its length then.
    int CmdCount = 0;
    std::array<unsigned int, 7> InitR{};  // Of the registers R0 to R6.
    Array<unsigned char> GlobalData;
    Array<unsigned char> StaticData;
    unsigned char* FilteredData = nullptr;  // In the machine's memory, after a run.
    unsigned int FilteredDataSize = 0;
};

class RarVM : public RarVmLayout {
public:
    static constexpr std::uint32_t kMostInstructions = 25'000'000;  // Of one run.

    // Makes the memory, zeroed, unless it is there. To be called before anything below.
    void Init();

    // Makes a program of `length` bytes of code: a check byte (the others combined by exclusive or), optional static
    // data, and commands, of which one that the end cuts short and all behind it are none. Code that does not pass
    // its check becomes a single return. So does any when the scan's budget for prepared code is spent: then false.
    bool Prepare(const unsigned char* code, int length, VM_PreparedProgram* program);

    // What came of a run.
    enum class Run {
        done,
        idle,     // Nothing was changed: a standard filter whose parameters do not fit.
        cutShort  // Instructions ran out.
    };

    // Runs a program on the block at address 0, leaves the result in its FilteredData and keeps its global data. A run
    // ends after kMostInstructions, or when the scan's budget of instructions is spent, and the program's first command
    // becomes a return. Standard filters are charged to that budget by their bytes, and change nothing without it.
    Run Execute(VM_PreparedProgram* program);

    // Puts data into the memory; what would lie behind its end is left out.
    void SetMemory(unsigned int pos, const unsigned char* data, unsigned int size);

    // Stores 32 bits, little-endian, at any alignment.
    static void SetValue(void* address, unsigned int value) { storeLittleEndian<std::uint32_t>(address, value); }

    // Reads a number: two bits select 4, 8, 16 or 32 bits that follow. Eight bits below 16 stand for a negative number,
    // whose low byte they and the next four are. Bits is RarBitInputStream, whose exceptions pass, or RarMemoryBits.
    template <class Bits>
    static unsigned int ReadData(Bits* bits);

private:
    static constexpr std::uint32_t kMask = kMemoryBytes - 1;
    static constexpr std::uint32_t kSpareBytes = 4;  // Behind the memory, for 32-bit access at its last address.
    static constexpr unsigned kStackPointer = 7;
    static constexpr unsigned kRegisterCount = 8;
    static constexpr unsigned kZeroRegister = kRegisterCount;  // Always 0: the base of addresses without a register.

    static void PrepareCommands(RarMemoryBits& bits, VM_PreparedProgram* program);
    static VM_PreparedCommand DecodeCommand(RarMemoryBits& bits, std::uint32_t position);
    static void DecodeArg(RarMemoryBits& bits, VM_PreparedOperand& operand, bool byteMode);
    static void Optimize(VM_PreparedProgram* program);

    Run runStandardFilter(VM_StandardFilters filter);
    bool ExecuteCode(VM_PreparedCommand* code, int count);
    bool run(std::span<VM_PreparedCommand> code, std::uint32_t& instructionsLeft);
    void executeStep(VM_PreparedCommand& command);
    void executeStackStep(VmOperation operation, unsigned char* operand);
    unsigned char* locate(VM_PreparedOperand& operand);
    unsigned char* stackTop() { return &_memory[_registers[kStackPointer] & kMask]; }
    void push(std::uint32_t value);
    std::uint32_t pop();
    void pushAll();
    void popAll();

    std::uint32_t add(std::uint32_t a, std::uint32_t b, bool byteMode);
    std::uint32_t addWithCarry(std::uint32_t a, std::uint32_t b, bool byteMode);
    std::uint32_t subtract(std::uint32_t a, std::uint32_t b);
    std::uint32_t subtractWithBorrow(std::uint32_t a, std::uint32_t b, bool byteMode);
    std::uint32_t setFlags(std::uint32_t result, bool carry = false);

    std::unique_ptr<unsigned char[]> _memory;
    std::array<std::uint32_t, kRegisterCount + 1> _registers{};
    std::uint32_t _flags = 0;
};

template <class Bits>
unsigned int RarVM::ReadData(Bits* bits) {
    const unsigned int head = bits->getBits();
    const auto take16 = [bits] {
        const unsigned int value = bits->getBits();
        bits->addBits(16);
        return value;
    };
    switch (head >> 14) {
        case 0:
            bits->addBits(6);
            return head >> 10 & 0xF;
        case 1: {
            const bool negative = (head & 0x3C00) == 0;
            bits->addBits(negative ? 14 : 10);
            return negative ? 0xFFFFFF00 | (head >> 2 & 0xFF) : head >> 6 & 0xFF;
        }
        case 2:
            bits->addBits(2);
            return take16();
        default: {
            bits->addBits(2);
            const unsigned int high = take16();
            return high << 16 | take16();
        }
    }
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_VM_RARVM_H
