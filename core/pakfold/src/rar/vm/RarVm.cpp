// The machine: memory, runs and the commands. Eight registers, the last of them the stack pointer, and flags for carry,
// zero and sign. Every address is masked to the memory, every command position compared with the program's length, and
// every command counted, so that nothing a program does has to be trusted.
#include "rar/vm/RarVm.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

// Shifts take the low five bits of their count; the last bit out is the carry.
std::uint32_t shiftLeft(std::uint32_t a, std::uint32_t n) { return a << (n & 31); }
std::uint32_t shiftRight(std::uint32_t a, std::uint32_t n) { return a >> (n & 31); }
std::uint32_t shiftRightSigned(std::uint32_t a, std::uint32_t n) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(a) >> (n & 31));
}
std::uint32_t extendSign(std::uint32_t a) { return static_cast<std::uint32_t>(static_cast<std::int8_t>(a)); }

void store(unsigned char* to, bool byteMode, std::uint32_t value) {
    if (byteMode) {
        *to = static_cast<unsigned char>(value);
    } else {
        RarVM::SetValue(to, value);
    }
}

}  // namespace

void RarVM::Init() {
    if (!_memory) _memory = std::make_unique<unsigned char[]>(kMemoryBytes + kSpareBytes);
}

void RarVM::SetMemory(unsigned int pos, const unsigned char* data, unsigned int size) {
    if (pos >= kMemoryBytes || data == &_memory[pos]) return;
    if (size > 0) std::memmove(&_memory[pos], data, std::min(size, kMemoryBytes - pos));
}

RarVM::Run RarVM::Execute(VM_PreparedProgram* program) {
    std::copy(program->InitR.begin(), program->InitR.end(), _registers.begin());
    _registers[kStackPointer] = kMemoryBytes;
    _flags = 0;

    const std::size_t globalSize = std::min<std::size_t>(program->GlobalData.size(), kGlobalBytes);
    const std::size_t staticSize = std::min<std::size_t>(program->StaticData.size(), kGlobalBytes - globalSize);
    std::copy_n(program->GlobalData.data(), globalSize, &_memory[kGlobalAddress]);
    std::copy_n(program->StaticData.data(), staticSize, &_memory[kGlobalAddress + globalSize]);

    VM_PreparedCommand* const code = program->AltCmd ? program->AltCmd : program->Cmd.data();
    Run outcome = Run::done;
    if (program->CmdCount > 0 && code[0].OpCode == VmOperation::standard) {
        outcome = runStandardFilter(static_cast<VM_StandardFilters>(code[0].Op1.Base));
    } else if (!ExecuteCode(code, program->CmdCount)) {
        code[0] = {};
        outcome = Run::cutShort;
    }

    const auto globals = loadLittleEndian<RarVmGlobals>(&_memory[kGlobalAddress]);
    const std::uint32_t start = globals.blockStart & kMask;
    const std::uint32_t length = globals.blockLength & kMask;
    const bool fits = start + length < kMemoryBytes;
    program->FilteredData = &_memory[fits ? start : 0];
    program->FilteredDataSize = fits ? length : 0;

    const std::uint32_t kept = std::min(globals.keptBytes, kGlobalBytes) + kFixedGlobalBytes;
    program->GlobalData.Reset();
    program->GlobalData.Add(static_cast<int>(kept));
    std::copy_n(&_memory[kGlobalAddress], kept, program->GlobalData.data());
    return outcome;
}

RarVM::Run RarVM::runStandardFilter(VM_StandardFilters filter) {
    const RarStandardFilters::Parameters parameters{_registers[0], _registers[1], _registers[4], _registers[6]};
    if (parameters.size > kGlobalAddress) return Run::idle;
    const std::uint32_t cost = RarStandardFilters::costOf(filter, parameters.size);
    if (!ScanBudget::takeVmInstructions(cost)) return Run::cutShort;
    std::optional<RarStandardFilters::Result> result;
    if (!RarStandardFilters::run(filter, _memory.get(), parameters, result)) return Run::idle;
    if (result) {
        auto globals = loadLittleEndian<RarVmGlobals>(&_memory[kGlobalAddress]);
        globals.blockStart = result->start;
        globals.blockLength = result->length;
        storeLittleEndian(&_memory[kGlobalAddress], globals);
    }
    return Run::done;
}

// False when the program was cut short.
bool RarVM::ExecuteCode(VM_PreparedCommand* code, int count) {
    if (count <= 0) return true;
    const auto most =
        static_cast<std::uint32_t>(std::clamp<std::int64_t>(ScanBudget::vmInstructionsLeft(), 0, kMostInstructions));
    std::uint32_t left = most;
    const bool ended = run({code, static_cast<std::size_t>(count)}, left);
    ScanBudget::takeVmInstructions(most - left);
    return ended;
}

bool RarVM::run(std::span<VM_PreparedCommand> code, std::uint32_t& instructionsLeft) {
    std::uint32_t left = instructionsLeft;
    std::uint32_t position = 0;
    for (; position < code.size() && left > 0; --left) {
        VM_PreparedCommand& command = code[position++];
        switch (command.OpCode) {
            case VmOperation::movByte: {
                const unsigned char* const from = locate(command.Op2);
                *locate(command.Op1) = *from;
                break;
            }
            case VmOperation::movDword: {
                const std::uint32_t value = loadU32(locate(command.Op2));
                SetValue(locate(command.Op1), value);
                break;
            }
            case VmOperation::jmp:
            case VmOperation::jz:
            case VmOperation::jnz:
            case VmOperation::js:
            case VmOperation::jns:
            case VmOperation::jb:
            case VmOperation::jbe:
            case VmOperation::ja:
            case VmOperation::jae:
                if (opcodeOf(command.OpCode).isTaken(_flags)) position = loadU32(locate(command.Op1));
                break;
            case VmOperation::call: {
                const unsigned char* const target = locate(command.Op1);
                push(position);
                position = loadU32(target);
                break;
            }
            case VmOperation::ret:
                // A return with nothing on the stack ends the program.
                position = _registers[kStackPointer] < kMemoryBytes ? pop() : static_cast<std::uint32_t>(code.size());
                break;
            default:
                executeStep(command);
        }
    }
    instructionsLeft = left;
    return position >= code.size();
}

// Where an operand is: in the memory, or the bytes of a register or of the command itself, which a program may change.
unsigned char* RarVM::locate(VM_PreparedOperand& operand) {
    using Kind = VM_PreparedOperand::Kind;
    if (operand.Type == Kind::inMemory) return &_memory[(_registers[operand.Register] + operand.Base) & kMask];
    return reinterpret_cast<unsigned char*>(operand.Type == Kind::inRegister ? &_registers[operand.Register]
                                                                             : &operand.Base);
}

// All that goes on with the next command. Operands that a command does not have are read as 0.
void RarVM::executeStep(VM_PreparedCommand& command) {
    const bool byteMode = command.ByteMode;
    unsigned char* const to = locate(command.Op1);
    unsigned char* const from = locate(command.Op2);
    const std::uint32_t a = byteMode ? *to : loadU32(to);
    const std::uint32_t b = byteMode ? *from : loadU32(from);
    switch (command.OpCode) {
        case VmOperation::mov:
            return store(to, byteMode, b);
        case VmOperation::cmp:
            subtract(a, b);
            return;
        case VmOperation::add:
            return store(to, byteMode, add(a, b, byteMode));
        case VmOperation::sub:
            return store(to, byteMode, subtract(a, b));
        case VmOperation::inc:
            return store(to, byteMode, setFlags(byteMode ? (a + 1) & 0xFF : a + 1));
        case VmOperation::dec:
            return store(to, byteMode, setFlags(a - 1));
        case VmOperation::quietAdd:
            return store(to, byteMode, a + b);
        case VmOperation::quietSub:
            return store(to, byteMode, a - b);
        case VmOperation::quietInc:
            return store(to, byteMode, a + 1);
        case VmOperation::quietDec:
            return store(to, byteMode, a - 1);
        case VmOperation::quietNeg:
            return store(to, byteMode, 0 - a);
        case VmOperation::neg:
            return store(to, byteMode, setFlags(0 - a, a != 0));
        case VmOperation::adc:
            return store(to, byteMode, addWithCarry(a, b, byteMode));
        case VmOperation::sbb:
            return store(to, byteMode, subtractWithBorrow(a, b, byteMode));
        case VmOperation::bitXor:
            return store(to, byteMode, setFlags(a ^ b));
        case VmOperation::bitAnd:
            return store(to, byteMode, setFlags(a & b));
        case VmOperation::bitOr:
            return store(to, byteMode, setFlags(a | b));
        case VmOperation::test:
            setFlags(a & b);
            return;
        case VmOperation::shl:
            return store(to, byteMode, setFlags(shiftLeft(a, b), shiftLeft(a, b - 1) & kVmSign));
        case VmOperation::shr:
            return store(to, byteMode, setFlags(shiftRight(a, b), shiftRight(a, b - 1) & 1));
        case VmOperation::sar:
            return store(to, byteMode, setFlags(shiftRightSigned(a, b), shiftRight(a, b - 1) & 1));
        case VmOperation::movZeroExtended:
            return SetValue(to, b & 0xFF);
        case VmOperation::movSignExtended:
            return SetValue(to, extendSign(b));
        case VmOperation::bitNot:
            return store(to, byteMode, ~a);
        case VmOperation::mul:
            return store(to, byteMode, a * b);
        case VmOperation::div:
            return store(to, byteMode, b == 0 ? a : a / b);
        case VmOperation::xchg:
            store(to, byteMode, b);
            return store(from, byteMode, a);
        default:
            executeStackStep(command.OpCode, to);
    }
}

void RarVM::executeStackStep(VmOperation operation, unsigned char* operand) {
    switch (operation) {
        case VmOperation::push:
            _registers[kStackPointer] -= 4;  // Ahead of the look at the operand, which may be this register.
            return SetValue(stackTop(), loadU32(operand));
        case VmOperation::pop:
            SetValue(operand, loadU32(stackTop()));
            _registers[kStackPointer] += 4;
            return;
        case VmOperation::pushAll:
            return pushAll();
        case VmOperation::popAll:
            return popAll();
        case VmOperation::pushFlags:
            return push(_flags);
        case VmOperation::popFlags:
            _flags = pop();
            return;
        default:
            return;  // print, which shows something to a program's author
    }
}

void RarVM::push(std::uint32_t value) {
    _registers[kStackPointer] -= 4;
    SetValue(stackTop(), value);
}

std::uint32_t RarVM::pop() {
    const std::uint32_t value = loadU32(stackTop());
    _registers[kStackPointer] += 4;
    return value;
}

// All registers as they were before, R0 first.
void RarVM::pushAll() {
    const auto before = _registers;
    for (unsigned i = 0; i < kRegisterCount; ++i) push(before[i]);
}

void RarVM::popAll() {
    std::uint32_t address = _registers[kStackPointer];
    for (unsigned i = kRegisterCount; i-- > 0; address += 4) _registers[i] = loadU32(&_memory[address & kMask]);
}

std::uint32_t RarVM::setFlags(std::uint32_t result, bool carry) {
    _flags = (carry ? kVmCarry : 0) | (result == 0 ? kVmZero : result & kVmSign);
    return result;
}

// Only this command takes the sign of bytes from their own top bit.
std::uint32_t RarVM::add(std::uint32_t a, std::uint32_t b, bool byteMode) {
    if (!byteMode) return setFlags(a + b, a + b < a);
    const std::uint32_t result = (a + b) & 0xFF;
    setFlags(result, result < a);
    if (result & 0x80) _flags |= kVmSign;
    return result;
}

std::uint32_t RarVM::addWithCarry(std::uint32_t a, std::uint32_t b, bool byteMode) {
    const std::uint32_t carry = _flags & kVmCarry;
    const std::uint32_t result = (a + b + carry) & (byteMode ? 0xFF : ~0U);
    return setFlags(result, result < a || (result == a && carry));
}

std::uint32_t RarVM::subtract(std::uint32_t a, std::uint32_t b) { return setFlags(a - b, a - b > a); }

std::uint32_t RarVM::subtractWithBorrow(std::uint32_t a, std::uint32_t b, bool byteMode) {
    const std::uint32_t borrow = _flags & kVmCarry;
    const std::uint32_t result = (a - b - borrow) & (byteMode ? 0xFF : ~0U);
    return setFlags(result, result > a || (result == a && borrow));
}

}  // namespace ZOV_SPACE
