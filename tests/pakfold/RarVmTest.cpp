#include "rar/vm/RarVm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "rar/RarBitInputStream.h"
#include "support/RarVmAssembler.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using Bytes = std::vector<unsigned char>;
using Op = VmOperation;

constexpr std::uint32_t kCarry = 1;
constexpr std::uint32_t kZero = 2;
constexpr std::uint32_t kSign = 0x80000000;

class RarVmTest : public testing::Test {
protected:
    RarVmTest() { vm.Init(); }

    // The block's first words after the program.
    std::vector<std::uint32_t> words(RarVmAssembler program, std::size_t count = 4) {
        const Bytes result = runProgram(vm, program.dword(Op::ret).build(), Bytes(256));
        std::vector<std::uint32_t> values(count);
        for (std::size_t i = 0; i < count && result.size() >= 4 * count; ++i) values[i] = loadU32(&result[4 * i]);
        return values;
    }

    RarVM vm;
};

std::vector<std::uint32_t> someWords(std::initializer_list<std::uint32_t> values) { return values; }

// Counts of shifts are taken modulo 32, that of the carry, too.
TEST_F(RarVmTest, commandsComputeAndSetFlags) {
    using enum VmOperation;
    struct Row {
        Op operation;
        bool byteMode;
        std::uint32_t a, b, flagsBefore, expectedA, expectedFlags;
        std::uint32_t expectedB = 0xBBBBBBBB;  // As it was.
    };
    constexpr std::uint32_t kCS = kCarry | kSign, kCZ = kCarry | kZero, kKept = kCS;  // Of commands that set none.
    constexpr bool kB = true, kD = false;                                             // Operand sizes.
    const Row rows[] = {{mov, kD, 1, 0x12345678, kKept, 0x12345678, kKept},
                        {mov, kB, 0xAABBCCDD, 0x12345678, kKept, 0xAABBCC78, kKept},
                        {cmp, kD, 5, 5, kKept, 5, kZero},
                        {cmp, kD, 5, 6, 0, 5, kCS},
                        {cmp, kD, 6, 5, 0, 6, 0},
                        {cmp, kB, 0x105, 0x206, 0, 0x105, kCS},
                        {cmp, kB, 0x1FF, 0x001, 0, 0x1FF, 0},
                        {add, kD, 0xFFFFFFFF, 1, 0, 0, kCZ},
                        {add, kD, 0x7FFFFFFF, 1, 0, 0x80000000, kSign},
                        {add, kB, 0x1FF, 1, 0, 0x100, kCZ},
                        {add, kB, 0x17F, 1, 0, 0x180, kSign},
                        {sub, kD, 3, 5, 0, 0xFFFFFFFE, kCS},
                        {sub, kB, 0x103, 5, 0, 0x1FE, kCS},
                        {sub, kB, 0x1FF, 0x0F, 0, 0x1F0, 0},
                        {inc, kD, 0xFFFFFFFF, 0, kCarry, 0, kZero},
                        {inc, kB, 0x17F, 0, 0, 0x180, 0},
                        {inc, kB, 0x1FF, 0, 0, 0x100, kZero},
                        {dec, kD, 1, 0, kCarry, 0, kZero},
                        {dec, kB, 0x100, 0, 0, 0x1FF, kSign},
                        {bitXor, kD, 0xF0F0F0F0, 0xFF000000, kCarry, 0x0FF0F0F0, 0},
                        {bitXor, kB, 0x1F0, 0x1F0, 0, 0x100, kZero},
                        {bitAnd, kD, 0xF0000001, 0x80000001, 0, 0x80000001, kSign},
                        {bitOr, kB, 0x101, 0x280, 0, 0x181, 0},
                        {test, kD, 0x0F, 0xF0, kCarry, 0x0F, kZero},
                        {test, kD, 0x80000000, 0xF0000000, 0, 0x80000000, kSign},
                        {bitNot, kD, 0x0000FFFF, 0, kKept, 0xFFFF0000, kKept},
                        {bitNot, kB, 0x10F, 0, kKept, 0x1F0, kKept},
                        {shl, kD, 0xC0000001, 1, 0, 0x80000002, kCS},
                        {shl, kD, 0x40000000, 2, 0, 0, kCZ},
                        {shl, kD, 3, 32, 0, 3, kCarry},
                        {shl, kB, 0x181, 1, 0, 0x102, 0},
                        {shr, kD, 0x80000003, 1, 0, 0x40000001, kCarry},
                        {shr, kD, 1, 33, 0, 0, kCZ},
                        {sar, kD, 0x80000002, 1, 0, 0xC0000001, kSign},
                        {sar, kB, 0x1FF, 4, 0, 0x10F, kCarry},
                        {neg, kD, 1, 0, 0, 0xFFFFFFFF, kCS},
                        {neg, kD, 0, 0, kCarry, 0, kZero},
                        {neg, kB, 0x101, 0, 0, 0x1FF, kCS},
                        {movZeroExtended, kD, 0xAAAAAAAA, 0x123456F8, kKept, 0xF8, kKept},
                        {movSignExtended, kD, 0xAAAAAAAA, 0x123456F8, kKept, 0xFFFFFFF8, kKept},
                        {movSignExtended, kD, 0xAAAAAAAA, 0x12345678, kKept, 0x78, kKept},
                        {xchg, kD, 1, 2, kKept, 2, kKept, 1},
                        {xchg, kB, 0x101, 0x202, kKept, 0x102, kKept, 0x201},
                        {mul, kD, 0x10001, 0x10001, kKept, 0x20001, kKept},
                        {mul, kB, 0x110, 0x111, kKept, 0x110, kKept},
                        {div, kD, 100, 7, kKept, 14, kKept},
                        {div, kD, 100, 0, kKept, 100, kKept},
                        {div, kB, 0x164, 0x200, kKept, 0x164, kKept},
                        {adc, kD, 1, 2, kCarry, 4, 0},
                        {adc, kD, 5, 0xFFFFFFFF, kCarry, 5, kCarry},
                        {adc, kD, 0xFFFFFFFF, 1, 0, 0, kCZ},
                        {adc, kB, 0x17F, 0, kCarry, 0x180, 0},
                        {sbb, kD, 5, 4, kCarry, 0, kZero},
                        {sbb, kD, 5, 0xFFFFFFFF, kCarry, 5, kCarry},
                        {sbb, kB, 0x100, 1, 0, 0x1FF, kCarry},
                        {print, kD, 1, 2, kKept, 1, kKept}};
    const std::set<Op> unary{inc, dec, bitNot, neg};
    for (const Row& row : rows) {
        for (const bool inMemory : {false, true}) {
            for (const bool flagsRead : {true, false}) {
                SCOPED_TRACE(testing::Message()
                             << "row " << &row - rows << " memory " << inMemory << " flags " << flagsRead);
                const RarVmOperand a = inMemory ? at(reg(6), 0x40) : reg(0), b = inMemory ? at(0x24) : reg(1), none;
                const RarVmOperand to = row.operation == print ? none : a;
                const RarVmOperand from = row.operation == print || unary.contains(row.operation) ? none : b;
                RarVmAssembler program;
                program.mov(reg(6), imm(0xFFFFFFE0)).mov(a, imm(row.a)).mov(b, imm(row.b));
                program.dword(push, imm(row.flagsBefore)).dword(popFlags);
                row.byteMode ? program.byte(row.operation, to, from) : program.dword(row.operation, to, from);
                if (!flagsRead) program.dword(test, reg(2), reg(2));
                program.dword(pushFlags).dword(pop, at(8)).dword(test, reg(2), reg(2));
                program.mov(at(0), a).mov(at(4), b);
                const std::uint32_t expectedB = row.expectedB == 0xBBBBBBBB ? row.b : row.expectedB;
                EXPECT_EQ(words(program, 3),
                          someWords({row.expectedA, expectedB, flagsRead ? row.expectedFlags : kZero}));
            }
        }
    }
}

TEST_F(RarVmTest, jumpsGoByTheFlags) {
    constexpr std::uint32_t kFlags[] = {0, kCarry, kZero, kSign, kCarry | kZero};
    const std::pair<Op, std::string> rows[] = {
        {Op::jmp, "yyyyy"}, {Op::jz, "nnyny"},  {Op::jnz, "yynyn"}, {Op::js, "nnnyn"},  {Op::jns, "yyyny"},
        {Op::jb, "nynny"},  {Op::jbe, "nyyny"}, {Op::ja, "ynnyn"},  {Op::jae, "ynyyn"},
    };
    for (const auto& [operation, expected] : rows) {
        std::string taken;
        for (const std::uint32_t flags : kFlags) {
            RarVmAssembler program;
            program.dword(Op::push, imm(flags)).dword(Op::popFlags).jump(operation, 4).mov(at(0), imm(1));
            taken += words(program, 1)[0] == 0 ? 'y' : 'n';
        }
        EXPECT_EQ(taken, expected) << "operation " << static_cast<int>(operation);
    }
}

TEST_F(RarVmTest, jumpsAreCodedAsDistancesOrTargets) {
    constexpr std::uint32_t kPosition = 200;
    const std::pair<std::uint32_t, std::uint32_t> rows[] = {
        {0, 200},  {7, 207},   {8, 192}, {15, 199}, {16, 208},         {135, 327},
        {136, 72}, {255, 191}, {256, 0}, {300, 44}, {0xFFFFFF9C, 100}, {0x7FFFFFFF, 0x7FFFFEFF},
    };
    for (const auto& [coded, target] : rows) {
        for (const Op operation : {Op::jmp, Op::jae, Op::call}) {
            RarVmAssembler program;
            while (program.next() < kPosition) program.dword(Op::print);
            const Bytes code = program.dword(operation, imm(coded)).dword(Op::push, imm(coded)).build();
            VM_PreparedProgram prepared;
            ASSERT_TRUE(vm.Prepare(code.data(), static_cast<int>(code.size()), &prepared));
            EXPECT_EQ(prepared.Cmd[kPosition].Op1.Base, target) << coded;
            EXPECT_EQ(prepared.Cmd[kPosition + 1].Op1.Base, coded);
        }
    }
}

TEST_F(RarVmTest, theStackTakesValuesRegistersAndReturns) {
    RarVmAssembler values;
    values.dword(Op::push, reg(7)).dword(Op::pop, at(0)).dword(Op::push, at(reg(7), 0xFFFFFFFC));
    values.dword(Op::push, imm(7)).dword(Op::pop, at(4)).mov(at(8), reg(7)).dword(Op::pop, at(reg(7), 12 - 0x3FFFC));
    EXPECT_EQ(words(values), someWords({0x3FFFC, 7, 0x3FFFC, 0x3FFFC}));

    RarVmAssembler registers;
    for (unsigned i = 0; i < 7; ++i) registers.mov(reg(i), imm(i + 1));
    registers.dword(Op::pushAll).mov(at(0), at(0x3FFFC)).mov(at(4), at(0x3FFE0)).mov(reg(6), imm(0));
    registers.dword(Op::popAll).mov(at(8), reg(6)).mov(at(12), reg(7));
    EXPECT_EQ(words(registers), someWords({1, 0x40000, 7, 0x40000}));

    RarVmAssembler calls;
    calls.jump(Op::call, 4).jump(Op::call, 4).mov(at(4), imm(1)).dword(Op::ret);
    calls.dword(Op::inc, at(0)).mov(at(8), at(reg(7)));
    EXPECT_EQ(words(calls), someWords({2, 1, 2, 0}));

    RarVmAssembler wrapped;
    wrapped.mov(reg(7), imm(0)).dword(Op::push, imm(5)).mov(at(0), at(0x3FFFC)).mov(at(4), reg(7));
    EXPECT_EQ(words(wrapped), someWords({5, 0xFFFFFFFC, 0, 0}));
}

TEST_F(RarVmTest, addressesWrapAndAccessAtTheLastStaysInside) {
    RarVmAssembler program;
    program.mov(reg(0), imm(0xFFFC0004)).mov(at(reg(0)), imm(1)).byte(Op::mov, at(0x40009), imm(2));
    program.mov(at(0xFFFFFFFF), imm(0x33333333)).mov(at(12), at(0x3FFFF));
    EXPECT_EQ(words(program), someWords({0, 1, 0x200, 0x33333333}));

    const Bytes data(16, 7);
    vm.SetMemory(0x3FFFE, data.data(), 16);
    vm.SetMemory(0x40000, data.data(), 16);
    EXPECT_EQ(words(RarVmAssembler().mov(at(0), at(0x3FFFE)), 1), someWords({0x33330707}));
}

TEST_F(RarVmTest, aRunLoadsAndKeepsGlobalData) {
    RarVmAssembler assembler({9, 8, 7});
    assembler.mov(at(0x3C010), at(RarVM::kGlobalAddress + 100)).mov(at(0x3C01C), reg(0)).mov(at(0x3C020), reg(1));
    const Bytes code = assembler.mov(at(0x3C030), reg(2)).dword(Op::ret).build();
    struct Row {
        std::uint32_t length, start, globalSize;
        std::size_t resultSize, resultStart, kept;
    };
    const Row rows[] = {
        {0x20, 0x3FFDF, 36, 0x20, 0x3FFDF, 100},      {0x20, 0x3FFE0, 0, 0, 0, 64},
        {0x20, 0x3FFF0, 0x1FFF, 0, 0, 0x203F},        {0xFFF40005, 0xFF040001, 0x2000, 5, 0x1, 0x2040},
        {0x3FFFF, 0x3FFFF, 0xFFFFFFFF, 0, 0, 0x2040},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.start);
        VM_PreparedProgram program;
        ASSERT_TRUE(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
        program.InitR = {row.length, row.start, row.globalSize};
        program.GlobalData.Add(100);
        program.GlobalData[99] = 0x5A;
        vm.Execute(&program);
        EXPECT_EQ(program.FilteredDataSize, row.resultSize);
        vm.SetMemory(static_cast<unsigned>(row.resultStart), code.data(), 1);
        EXPECT_EQ(*program.FilteredData, code[0]);
        ASSERT_EQ(program.GlobalData.size(), row.kept);
        EXPECT_EQ(loadU32(&program.GlobalData[0x10]) & 0xFFFFFF, 0x070809U) << "static data behind the global data";
    }

    VM_PreparedProgram full;
    full.GlobalData.Add(RarVM::kGlobalBytes + 5);
    full.StaticData.Add(5);
    std::fill(full.StaticData.begin(), full.StaticData.end(), std::uint8_t{0xEE});
    full.GlobalData[offsetof(RarVmGlobals, keptBytes) + 1] = 0x20;
    full.GlobalData[RarVM::kGlobalBytes] = 0xEE;
    vm.Execute(&full);
    EXPECT_EQ(std::count(full.GlobalData.begin(), full.GlobalData.end(), 0xEE), 0);
}

TEST_F(RarVmTest, runsEndAtTheirLimit) {
    VM_PreparedProgram program;
    const auto prepare = [&](const RarVmAssembler& assembler) {
        const Bytes code = assembler.build();
        ASSERT_TRUE(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
    };
    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    prepare(RarVmAssembler().dword(Op::inc, at(0)).jump(Op::jmp, 0));
    vm.Execute(&program);
    EXPECT_EQ(ScanBudget::vmInstructionsLeft(), ScanBudget::kVmInstructions - RarVM::kMostInstructions);
    EXPECT_TRUE(program.Cmd[0].OpCode == Op::ret && program.Cmd[1].OpCode == Op::jmp);
    vm.Execute(&program);
    EXPECT_EQ(ScanBudget::vmInstructionsLeft(), ScanBudget::kVmInstructions - RarVM::kMostInstructions - 1);

    for (const int left : {3, 2}) {  // The program takes three.
        prepare(RarVmAssembler().dword(Op::print).dword(Op::print).dword(Op::ret));
        ScanBudget::takeVmInstructions(ScanBudget::vmInstructionsLeft() - left);
        program.AltCmd = left == 2 ? program.Cmd.data() : nullptr;
        vm.Execute(&program);
        EXPECT_EQ(program.Cmd[0].OpCode, left == 3 ? Op::print : Op::ret);
        EXPECT_EQ(ScanBudget::vmInstructionsLeft(), 0);
        budget = ScanBudget();
    }
}

TEST_F(RarVmTest, codeThatDoesNotParseIsCutShort) {
    RarVmAssembler program;
    program.mov(at(reg(1), 0x12345678), imm(0x12345678)).byte(Op::add, at(0x12345), imm(200)).dword(Op::ret);
    const Bytes code = program.build();
    VM_PreparedProgram prepared;
    const auto prepare = [&](const Bytes& bytes) {
        prepared = {};
        const bool done = vm.Prepare(bytes.data(), static_cast<int>(bytes.size()), &prepared);
        EXPECT_EQ(prepared.Cmd[prepared.Cmd.size() - 1].OpCode, Op::ret);
        return done;
    };
    // The commands end in the 11th, 17th and 18th byte behind the check byte; a return is always added.
    for (std::size_t n = 0; n <= code.size(); ++n) {
        EXPECT_TRUE(prepare(RarVmAssembler::checked({code.data(), code.data() + n})));
        EXPECT_EQ(prepared.CmdCount, 1 + (n > 11) + (n > 17) + (n > 18)) << n << " bytes";
    }
    Bytes wrong = code;
    wrong[3] ^= 1;
    EXPECT_TRUE(prepare(wrong));
    EXPECT_EQ(prepared.CmdCount, 1) << "the check byte does not fit";

    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    ScanBudget::takeVmCodeBytes(ScanBudget::kVmCodeBytes - 50);
    EXPECT_FALSE(prepare(code));
    EXPECT_EQ(prepared.CmdCount, 1);
}

TEST_F(RarVmTest, numbersComeFromStreamsAndMemory) {
    const std::uint32_t values[] = {0,       15,         16,         255,        256,       0xFFFF,
                                    0x10000, 0x80000000, 0xFFFFFEFF, 0xFFFFFF00, 0xFFFFFFFF};
    RarBitWriter writer;
    for (const std::uint32_t value : values) writer.putNumber(value);
    RarMemoryBits memory(writer.bytes());
    StringSource source({writer.bytes().begin(), writer.bytes().end()});
    RarBitInputStream stream(&source.stream, source.stream.available());
    for (const std::uint32_t value : values) {
        EXPECT_EQ(RarVM::ReadData(&memory), value);
        EXPECT_EQ(RarVM::ReadData(&stream), value);
    }
    EXPECT_FALSE(memory.overrun());
    memory.addBits(16);
    EXPECT_TRUE(memory.overrun() && memory.atEnd());
    EXPECT_EQ(RarVM::ReadData(&memory), 0U);

    Array<int> array;
    array.Add(3);
    for (const int more : {-1, 0x20000000 - 3}) {
        EXPECT_EQ(thrownBy<OutOfMemoryException>([&] { array.Add(more); }), "Array too large");
    }
    EXPECT_EQ(array.size(), 3U);
}

}  // namespace
}  // namespace ZOV_SPACE
