// From the bytes of a program to commands. Commands and operands are packed bit by bit: four bits or six for the
// command, one for its size where it has both, then each operand with its form ahead. What does not parse ends the
// program there. Flags that nothing reads before they are set anew are then not computed.
#include <algorithm>
#include <iterator>

#include "rar/vm/RarVm.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

// Of a jump at `position`: numbers from 256 on are the target itself, those below say how far it is.
std::uint32_t jumpTarget(std::int32_t coded, std::uint32_t position) {
    const auto ahead = [position](std::int32_t n) { return position + static_cast<std::uint32_t>(n); };
    if (coded >= 256) return static_cast<std::uint32_t>(coded - 256);
    if (coded >= 136) return ahead(coded - 264);
    if (coded >= 16) return ahead(coded - 8);
    if (coded >= 8) return ahead(coded - 16);
    return ahead(coded);
}

bool passesCheck(std::span<const unsigned char> code) {
    unsigned char check = 0;
    for (const unsigned char byte : code) check ^= byte;
    return check == 0;
}

void append(VM_PreparedProgram* program, const VM_PreparedCommand& command) {
    program->Cmd.Add(1);
    program->Cmd[program->Cmd.size() - 1] = command;
}

// What the machine can use of it is kept.
void readStaticData(RarMemoryBits& bits, Array<unsigned char>& data) {
    std::uint64_t left = std::uint64_t{RarVM::ReadData(&bits)} + 1;
    for (; left > 0 && !bits.atEnd(); --left) {
        if (data.size() < RarVM::kGlobalBytes) {
            data.Add(1);
            data[data.size() - 1] = static_cast<unsigned char>(bits.getBits() >> 8);
        }
        bits.addBits(8);
    }
}

}  // namespace

unsigned int RarMemoryBits::getBits() const {
    const std::uint64_t first = _position / 8;
    std::uint32_t bits = 0;
    for (std::uint64_t i = first; i < first + 3; ++i) {
        bits = bits << 8 | (i < _bytes.size() ? _bytes[static_cast<std::size_t>(i)] : 0U);
    }
    return bits >> (8 - _position % 8) & 0xFFFF;
}

bool RarVM::Prepare(const unsigned char* code, int length, VM_PreparedProgram* program) {
    const std::span<const unsigned char> bytes(code, static_cast<std::size_t>(std::max(length, 0)));
    program->Cmd.Reset();
    program->StaticData.Reset();
    if (!bytes.empty() && passesCheck(bytes)) {
        if (const VM_StandardFilters filter = RarStandardFilters::IsStandardFilter(code, length);
            filter != kFilterNone) {
            VM_PreparedCommand command{VmOperation::standard, false, {}, {}};
            command.Op1.Base = filter;
            append(program, command);
        } else {
            RarMemoryBits bits(bytes.subspan(1));
            PrepareCommands(bits, program);
        }
    }
    // Commands may take many times the room of their code.
    const std::uint64_t prepared = program->Cmd.size() * sizeof(VM_PreparedCommand) + program->StaticData.size();
    const bool inBudget =
        ScanBudget::takeVmCodeBytes(static_cast<std::int64_t>(std::max<std::uint64_t>(prepared, bytes.size())));
    if (!inBudget) {
        program->Cmd.Reset();
        program->StaticData.Reset();
    }
    append(program, {});
    program->CmdCount = static_cast<int>(program->Cmd.size());
    return inBudget;
}

void RarVM::PrepareCommands(RarMemoryBits& bits, VM_PreparedProgram* program) {
    const bool hasStaticData = bits.getBits() & 0x8000;
    bits.addBits(1);
    if (hasStaticData) readStaticData(bits, program->StaticData);
    while (!bits.atEnd()) {
        const VM_PreparedCommand command = DecodeCommand(bits, static_cast<std::uint32_t>(program->Cmd.size()));
        if (bits.overrun()) break;
        append(program, command);
    }
    Optimize(program);
}

VM_PreparedCommand RarVM::DecodeCommand(RarMemoryBits& bits, std::uint32_t position) {
    const unsigned int head = bits.getBits();
    const bool isShort = (head & 0x8000) == 0;
    bits.addBits(isShort ? 4 : 6);
    VM_PreparedCommand command;
    command.OpCode = static_cast<VmOperation>(isShort ? head >> 12 : (head >> 10) - 24);
    const VmOpcode& opcode = opcodeOf(command.OpCode);
    if (opcode.mode == VmOpcode::Mode::either) {
        command.ByteMode = bits.getBits() & 0x8000;
        bits.addBits(1);
    }
    if (opcode.operands >= 1) DecodeArg(bits, command.Op1, command.ByteMode);
    if (opcode.operands == 2) DecodeArg(bits, command.Op2, command.ByteMode);
    const bool hasTarget = opcode.goes == VmOpcode::Goes::elsewhere && opcode.operands == 1;
    if (hasTarget && command.Op1.Type == VM_PreparedOperand::Kind::immediate) {
        command.Op1.Base = jumpTarget(static_cast<std::int32_t>(command.Op1.Base), position);
    }
    return command;
}

void RarVM::DecodeArg(RarMemoryBits& bits, VM_PreparedOperand& operand, bool byteMode) {
    using Kind = VM_PreparedOperand::Kind;
    const unsigned int head = bits.getBits();
    if (head & 0x8000) {  // 1, register
        operand = {Kind::inRegister, static_cast<std::uint8_t>(head >> 12 & 7), 0};
        bits.addBits(4);
    } else if ((head & 0x4000) == 0 && byteMode) {  // 00, byte
        operand = {Kind::immediate, 0, head >> 6 & 0xFF};
        bits.addBits(10);
    } else if ((head & 0x4000) == 0) {  // 00, number
        bits.addBits(2);
        operand = {Kind::immediate, 0, ReadData(&bits)};
    } else if ((head & 0x2000) == 0) {  // 010, register
        operand = {Kind::inMemory, static_cast<std::uint8_t>(head >> 10 & 7), 0};
        bits.addBits(6);
    } else if ((head & 0x1000) == 0) {  // 0110, register, number
        bits.addBits(7);
        operand = {Kind::inMemory, static_cast<std::uint8_t>(head >> 9 & 7), ReadData(&bits)};
    } else {  // 0111, number
        bits.addBits(4);
        operand = {Kind::inMemory, kZeroRegister, ReadData(&bits)};
    }
}

// Backwards, because whether flags are needed shows behind the command that sets them. Wherever a jump leads, they are.
void RarVM::Optimize(VM_PreparedProgram* program) {
    bool flagsNeeded = true;
    for (std::size_t i = program->Cmd.size(); i-- > 0;) {
        VM_PreparedCommand& command = program->Cmd[i];
        const VmOpcode& opcode = opcodeOf(command.OpCode);
        if (command.OpCode == VmOperation::mov) {
            command.OpCode = command.ByteMode ? VmOperation::movByte : VmOperation::movDword;
        } else if (!flagsNeeded) {
            command.OpCode = opcode.quietly();
        }
        if (opcode.readsFlags() || opcode.goes == VmOpcode::Goes::elsewhere) {
            flagsNeeded = true;
        } else if (opcode.setsFlags()) {
            flagsNeeded = false;
        }
    }
}

}  // namespace ZOV_SPACE
