#include "unarchiver/RarVm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "support/RarVmAssembler.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"
#include "utils/RarStream.h"

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

TEST_F(RarVmTest, commandsComputeAndSetFlags) {
    struct Row {
        Op operation;
        bool byteMode;
        std::uint32_t a, b, flagsBefore, expectedA, expectedFlags;
        std::uint32_t expectedB = 0xBBBBBBBB;  // As it was.
    };
    constexpr std::uint32_t kKept = kCarry | kSign;  // Of commands that set none.
    constexpr bool kByte = true, kDword = false;
    const Row rows[] = {
        {Op::mov, kDword, 1, 0x12345678, kKept, 0x12345678, kKept},
        {Op::mov, kByte, 0xAABBCCDD, 0x12345678, kKept, 0xAABBCC78, kKept},
        {Op::cmp, kDword, 5, 5, kKept, 5, kZero},
        {Op::cmp, kDword, 5, 6, 0, 5, kCarry | kSign},
        {Op::cmp, kDword, 6, 5, 0, 6, 0},
        {Op::cmp, kByte, 0x105, 0x206, 0, 0x105, kCarry | kSign},
        {Op::cmp, kByte, 0x1FF, 0x001, 0, 0x1FF, 0},
        {Op::add, kDword, 0xFFFFFFFF, 1, 0, 0, kCarry | kZero},
        {Op::add, kDword, 0x7FFFFFFF, 1, 0, 0x80000000, kSign},
        {Op::add, kByte, 0x1FF, 1, 0, 0x100, kCarry | kZero},
        {Op::add, kByte, 0x17F, 1, 0, 0x180, kSign},
        {Op::sub, kDword, 3, 5, 0, 0xFFFFFFFE, kCarry | kSign},
        {Op::sub, kByte, 0x103, 5, 0, 0x1FE, kCarry | kSign},
        {Op::sub, kByte, 0x1FF, 0x0F, 0, 0x1F0, 0},
        {Op::inc, kDword, 0xFFFFFFFF, 0, kCarry, 0, kZero},
        {Op::inc, kByte, 0x17F, 0, 0, 0x180, 0},
        {Op::inc, kByte, 0x1FF, 0, 0, 0x100, kZero},
        {Op::dec, kDword, 1, 0, kCarry, 0, kZero},
        {Op::dec, kByte, 0x100, 0, 0, 0x1FF, kSign},
        {Op::bitXor, kDword, 0xF0F0F0F0, 0xFF000000, kCarry, 0x0FF0F0F0, 0},
        {Op::bitXor, kByte, 0x1F0, 0x1F0, 0, 0x100, kZero},
        {Op::bitAnd, kDword, 0xF0000001, 0x80000001, 0, 0x80000001, kSign},
        {Op::bitOr, kByte, 0x101, 0x280, 0, 0x181, 0},
        {Op::test, kDword, 0x0F, 0xF0, kCarry, 0x0F, kZero},
        {Op::test, kDword, 0x80000000, 0xF0000000, 0, 0x80000000, kSign},
        {Op::bitNot, kDword, 0x0000FFFF, 0, kKept, 0xFFFF0000, kKept},
        {Op::bitNot, kByte, 0x10F, 0, kKept, 0x1F0, kKept},
        {Op::shl, kDword, 0xC0000001, 1, 0, 0x80000002, kCarry | kSign},
        {Op::shl, kDword, 0x40000000, 2, 0, 0, kCarry | kZero},
        {Op::shl, kDword, 3, 32, 0, 3, kCarry},  // Counts are taken modulo 32, that of the carry, too.
        {Op::shl, kByte, 0x181, 1, 0, 0x102, 0},
        {Op::shr, kDword, 0x80000003, 1, 0, 0x40000001, kCarry},
        {Op::shr, kDword, 1, 33, 0, 0, kCarry | kZero},
        {Op::sar, kDword, 0x80000002, 1, 0, 0xC0000001, kSign},
        {Op::sar, kByte, 0x1FF, 4, 0, 0x10F, kCarry},
        {Op::neg, kDword, 1, 0, 0, 0xFFFFFFFF, kCarry | kSign},
        {Op::neg, kDword, 0, 0, kCarry, 0, kZero},
        {Op::neg, kByte, 0x101, 0, 0, 0x1FF, kCarry | kSign},
        {Op::movZeroExtended, kDword, 0xAAAAAAAA, 0x123456F8, kKept, 0xF8, kKept},
        {Op::movSignExtended, kDword, 0xAAAAAAAA, 0x123456F8, kKept, 0xFFFFFFF8, kKept},
        {Op::movSignExtended, kDword, 0xAAAAAAAA, 0x12345678, kKept, 0x78, kKept},
        {Op::xchg, kDword, 1, 2, kKept, 2, kKept, 1},
        {Op::xchg, kByte, 0x101, 0x202, kKept, 0x102, kKept, 0x201},
        {Op::mul, kDword, 0x10001, 0x10001, kKept, 0x20001, kKept},
        {Op::mul, kByte, 0x110, 0x111, kKept, 0x110, kKept},
        {Op::div, kDword, 100, 7, kKept, 14, kKept},
        {Op::div, kDword, 100, 0, kKept, 100, kKept},
        {Op::div, kByte, 0x164, 0x200, kKept, 0x164, kKept},
        {Op::adc, kDword, 1, 2, kCarry, 4, 0},
        {Op::adc, kDword, 5, 0xFFFFFFFF, kCarry, 5, kCarry},
        {Op::adc, kDword, 0xFFFFFFFF, 1, 0, 0, kCarry | kZero},
        {Op::adc, kByte, 0x17F, 0, kCarry, 0x180, 0},
        {Op::sbb, kDword, 5, 4, kCarry, 0, kZero},
        {Op::sbb, kDword, 5, 0xFFFFFFFF, kCarry, 5, kCarry},
        {Op::sbb, kByte, 0x100, 1, 0, 0x1FF, kCarry},
        {Op::print, kDword, 1, 2, kKept, 1, kKept},
    };
    const auto hasOperands = [](Op operation) { return operation != Op::print; };
    const auto hasOne = [](Op operation) {
        return operation == Op::inc || operation == Op::dec || operation == Op::bitNot || operation == Op::neg;
    };
    for (const Row& row : rows) {
        for (const bool inMemory : {false, true}) {
            for (const bool flagsRead : {true, false}) {
                SCOPED_TRACE(testing::Message()
                             << "row " << &row - rows << " memory " << inMemory << " flags " << flagsRead);
                const RarVmOperand a = inMemory ? at(reg(6), 0x40) : reg(0);
                const RarVmOperand b = inMemory ? at(0x24) : reg(1);
                RarVmAssembler program;
                program.dword(Op::mov, reg(6), imm(0xFFFFFFE0)).dword(Op::mov, a, imm(row.a));
                program.dword(Op::mov, b, imm(row.b)).dword(Op::push, imm(row.flagsBefore)).dword(Op::popFlags);
                const RarVmOperand to = hasOperands(row.operation) ? a : RarVmOperand{};
                const RarVmOperand from = hasOperands(row.operation) && !hasOne(row.operation) ? b : RarVmOperand{};
                row.byteMode ? program.byte(row.operation, to, from) : program.dword(row.operation, to, from);
                if (!flagsRead) program.dword(Op::test, reg(2), reg(2));
                program.dword(Op::pushFlags).dword(Op::pop, at(8)).dword(Op::test, reg(2), reg(2));
                program.dword(Op::mov, at(0), a).dword(Op::mov, at(4), b);
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
            program.dword(Op::push, imm(flags)).dword(Op::popFlags).jump(operation, 4).dword(Op::mov, at(0), imm(1));
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
    values.dword(Op::mov, reg(0), imm(0x11)).dword(Op::push, reg(7)).dword(Op::pop, at(0));
    values.dword(Op::push, at(reg(7), 0xFFFFFFFC))
        .dword(Op::push, imm(7))
        .dword(Op::pop, at(4))
        .dword(Op::mov, at(8), reg(7));
    values.dword(Op::pop, at(reg(7), 12 - 0x3FFFC));
    EXPECT_EQ(words(values), someWords({0x3FFFC, 7, 0x3FFFC, 0x3FFFC}));

    RarVmAssembler registers;
    for (unsigned i = 0; i < 7; ++i) registers.dword(Op::mov, reg(i), imm(i + 1));
    registers.dword(Op::pushAll).dword(Op::mov, at(0), at(0x3FFFC)).dword(Op::mov, at(4), at(0x3FFE0));
    registers.dword(Op::mov, reg(6), imm(0))
        .dword(Op::popAll)
        .dword(Op::mov, at(8), reg(6))
        .dword(Op::mov, at(12), reg(7));
    EXPECT_EQ(words(registers), someWords({1, 0x40000, 7, 0x40000}));

    RarVmAssembler calls;
    calls.jump(Op::call, 4).jump(Op::call, 4).dword(Op::mov, at(4), imm(1)).dword(Op::ret);
    calls.dword(Op::inc, at(0)).dword(Op::mov, at(8), at(reg(7)));
    EXPECT_EQ(words(calls), someWords({2, 1, 2, 0}));

    RarVmAssembler wrapped;
    wrapped.dword(Op::mov, reg(7), imm(0)).dword(Op::push, imm(5)).dword(Op::mov, at(0), at(0x3FFFC));
    wrapped.dword(Op::mov, at(4), reg(7));
    EXPECT_EQ(words(wrapped), someWords({5, 0xFFFFFFFC, 0, 0}));
}

TEST_F(RarVmTest, addressesWrapAndAccessAtTheLastStaysInside) {
    RarVmAssembler program;
    program.dword(Op::mov, reg(0), imm(0xFFFC0004))
        .dword(Op::mov, at(reg(0)), imm(1))
        .byte(Op::mov, at(0x40009), imm(2));
    program.dword(Op::mov, at(0xFFFFFFFF), imm(0x33333333)).dword(Op::mov, at(12), at(0x3FFFF));
    EXPECT_EQ(words(program), someWords({0, 1, 0x200, 0x33333333}));

    Bytes data(16, 7);
    vm.SetMemory(0x3FFFE, data.data(), 16);
    vm.SetMemory(0x40000, data.data(), 16);
    RarVmAssembler read;
    EXPECT_EQ(words(read.dword(Op::mov, at(0), at(0x3FFFE)), 1), someWords({0x33330707}));
}

TEST_F(RarVmTest, aRunLoadsAndKeepsGlobalData) {
    const Bytes code = RarVmAssembler()
                           .staticData({9, 8, 7})
                           .dword(Op::mov, at(0x3C010), at(RarVM::kGlobalAddress + 100))
                           .dword(Op::mov, at(0x3C01C), reg(0))
                           .dword(Op::mov, at(0x3C020), reg(1))
                           .dword(Op::mov, at(0x3C030), reg(2))
                           .dword(Op::ret)
                           .build();
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
        VM_PreparedProgram program;
        ASSERT_TRUE(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
        program.InitR = {row.length, row.start, row.globalSize};
        program.GlobalData.Add(100);
        program.GlobalData[99] = 0x5A;
        vm.Execute(&program);
        SCOPED_TRACE(row.start);
        EXPECT_EQ(program.FilteredDataSize, row.resultSize);
        vm.SetMemory(static_cast<unsigned>(row.resultStart), reinterpret_cast<const unsigned char*>("x"), 1);
        EXPECT_EQ(*program.FilteredData, 'x');
        ASSERT_EQ(program.GlobalData.size(), row.kept);
        EXPECT_EQ(loadU32(&program.GlobalData[0x10]) & 0xFFFFFF, 0x070809U)
            << "static data stands behind the global data";
    }

    VM_PreparedProgram full;
    full.GlobalData.Add(RarVM::kGlobalBytes + 5);
    full.StaticData.Add(5);
    std::fill(full.StaticData.begin(), full.StaticData.end(), std::uint8_t{0xEE});
    full.GlobalData[RarVM::kGlobalSizeOffset + 1] = 0x20;
    full.GlobalData[RarVM::kGlobalBytes] = 0xEE;
    vm.Execute(&full);
    EXPECT_EQ(std::count(full.GlobalData.begin(), full.GlobalData.end(), 0xEE), 0);
}

TEST_F(RarVmTest, runsEndAtTheirLimit) {
    VM_PreparedProgram program;
    const auto prepare = [&](RarVmAssembler& assembler) {
        const Bytes code = assembler.build();
        ASSERT_TRUE(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
    };
    RarVmAssembler endless;
    prepare(endless.dword(Op::inc, at(0)).jump(Op::jmp, 0));
    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    vm.Execute(&program);
    EXPECT_EQ(ScanBudget::vmInstructionsLeft(), ScanBudget::kVmInstructions - RarVM::kMostInstructions);
    EXPECT_EQ(program.Cmd[0].OpCode, Op::ret);
    EXPECT_EQ(program.Cmd[1].OpCode, Op::jmp);
    vm.Execute(&program);
    EXPECT_EQ(ScanBudget::vmInstructionsLeft(), ScanBudget::kVmInstructions - RarVM::kMostInstructions - 1);

    for (const int left : {3, 2}) {  // The program takes three.
        RarVmAssembler three;
        prepare(three.dword(Op::print).dword(Op::print).dword(Op::ret));
        ScanBudget::takeVmInstructions(ScanBudget::vmInstructionsLeft() - left);
        program.AltCmd = left == 2 ? program.Cmd.data() : nullptr;
        vm.Execute(&program);
        EXPECT_EQ(program.Cmd[0].OpCode, left == 3 ? Op::print : Op::ret);
        EXPECT_EQ(ScanBudget::vmInstructionsLeft(), 0);
        budget = ScanBudget();
    }
}

TEST_F(RarVmTest, codeThatDoesNotParseIsCutShort) {
    const Bytes code = RarVmAssembler()
                           .dword(Op::mov, at(reg(1), 0x12345678), imm(0x12345678))
                           .byte(Op::add, at(0x12345), imm(200))
                           .dword(Op::ret)
                           .build();
    const auto commandsOf = [this](const Bytes& bytes) {
        VM_PreparedProgram program;
        EXPECT_TRUE(vm.Prepare(bytes.data(), static_cast<int>(bytes.size()), &program));
        EXPECT_EQ(program.Cmd[program.Cmd.size() - 1].OpCode, Op::ret);
        return program.CmdCount;
    };
    // The commands end in the 11th, 17th and 18th byte behind the check byte; a return is always added.
    for (std::size_t n = 0; n <= code.size(); ++n) {
        Bytes prefix(code.begin(), code.begin() + static_cast<std::ptrdiff_t>(n));
        if (n > 0) prefix[0] = 0;
        for (std::size_t i = 1; i < n; ++i) prefix[0] ^= prefix[i];
        EXPECT_EQ(commandsOf(prefix), 1 + (n > 11) + (n > 17) + (n > 18)) << n << " bytes";
    }
    Bytes wrong = code;
    wrong[3] ^= 1;
    EXPECT_EQ(commandsOf(wrong), 1) << "the check byte does not fit";

    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    ScanBudget::takeVmCodeBytes(ScanBudget::kVmCodeBytes - 50);
    VM_PreparedProgram program;
    EXPECT_FALSE(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
    EXPECT_EQ(program.CmdCount, 1);
    EXPECT_EQ(program.Cmd[0].OpCode, Op::ret);
}

TEST_F(RarVmTest, hostileProgramsEndAndStayInside) {
    std::mt19937 random(1);
    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    for (int round = 0; round < 3000; ++round) {
        budget = ScanBudget();
        ScanBudget::takeVmInstructions(ScanBudget::kVmInstructions - 5000);
        Bytes code(2 + random() % (round % 50 == 0 ? 65536 : 200));
        for (unsigned char& byte : code) byte = static_cast<unsigned char>(random());
        code[0] = 0;
        for (std::size_t i = 1; i < code.size(); ++i) code[0] ^= code[i];
        std::array<unsigned int, 7> registers{};
        for (unsigned& value : registers) value = static_cast<unsigned>(random());
        const Bytes result = runProgram(vm, code, Bytes(random() % 1000, 0x55), registers);
        ASSERT_LT(result.size(), RarVM::kMemoryBytes);
    }
}

TEST_F(RarVmTest, numbersComeFromStreamsAndMemory) {
    const std::uint32_t values[] = {0,       15,         16,         255,        256,       0xFFFF,
                                    0x10000, 0x80000000, 0xFFFFFEFF, 0xFFFFFF00, 0xFFFFFFFF};
    RarBitWriter writer;
    for (const std::uint32_t value : values) writer.putNumber(value);
    RarMemoryBits memory(writer.bytes());
    MemBufferBase buffer;
    buffer.append(reinterpret_cast<const char*>(writer.bytes().data()), static_cast<int>(writer.bytes().size()));
    BufferBaseInputStream source(&buffer);
    RarBitInputStream stream(&source, static_cast<std::int64_t>(writer.bytes().size()));
    for (const std::uint32_t value : values) {
        EXPECT_EQ(RarVM::ReadData(&memory), value);
        EXPECT_EQ(RarVM::ReadData(&stream), value);
    }
    EXPECT_FALSE(memory.overrun());
    memory.addBits(16);
    EXPECT_TRUE(memory.overrun() && memory.atEnd());
    EXPECT_EQ(RarVM::ReadData(&memory), 0U);
}

TEST(RarVmArray, refusesSizesThatCannotBe) {
    Array<int> array;
    array.Add(3);
    EXPECT_EQ(thrownBy<OutOfMemoryException>([&] { array.Add(-1); }), "Array too large");
    EXPECT_EQ(thrownBy<OutOfMemoryException>([&] { array.Add(0x20000000 - 3); }), "Array too large");
    EXPECT_EQ(array.size(), 3U);
    array.Reset();
    EXPECT_TRUE(array.empty());
}

}  // namespace
}  // namespace ZOV_SPACE
