// VmOpcodes.h: the commands of RAR's virtual machine, as published with it, a row for each.
#ifndef PAKFOLD_RAR_VM_VMOPCODES_H
#define PAKFOLD_RAR_VM_VMOPCODES_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace ZOV_SPACE {

// In the order of their numbers. Those behind `print` have no number: they are what Prepare() makes of others.
enum class VmOperation : std::uint8_t {
    mov,
    cmp,
    add,
    sub,
    jz,
    jnz,
    inc,
    dec,
    jmp,
    bitXor,
    bitAnd,
    bitOr,
    test,
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
    bitNot,
    shl,
    shr,
    sar,
    neg,
    pushAll,
    popAll,
    pushFlags,
    popFlags,
    movZeroExtended,
    movSignExtended,
    xchg,
    mul,
    div,
    adc,
    sbb,
    print,
    standard,  // Runs the standard filter whose number is the first operand.
    movByte,
    movDword,  // mov, either mode.
    quietAdd,
    quietSub,
    quietInc,
    quietDec,
    quietNeg  // For flags that nothing reads.
};

// The machine's flags.
constexpr std::uint32_t kVmCarry = 1;
constexpr std::uint32_t kVmZero = 2;
constexpr std::uint32_t kVmSign = 0x80000000;

// What is known of a command.
struct VmOpcode {
    enum class Flags : std::uint8_t { untouched, read, set, readAndSet };
    enum class Mode : std::uint8_t { dword, either };  // Either: a bit of the command says whether it works on bytes.
    enum class Goes : std::uint8_t { on, elsewhere };  // Elsewhere: an immediate operand is a coded distance.

    VmOperation operation;
    std::uint8_t operands;
    Mode mode = Mode::dword;
    Flags flags = Flags::untouched;
    Goes goes = Goes::on;
    // Of a jump: it goes when one of these flags is set, or, with `jumpsUnless`, when none is.
    std::uint32_t jumpFlags = 0;
    bool jumpsUnless = false;
    VmOperation quiet = VmOperation::print;  // What does the same without setting flags; print: nothing does.

    constexpr VmOperation quietly() const { return quiet == VmOperation::print ? operation : quiet; }
    constexpr bool readsFlags() const { return flags == Flags::read || flags == Flags::readAndSet; }
    constexpr bool setsFlags() const { return flags == Flags::set || flags == Flags::readAndSet; }
    constexpr bool isTaken(std::uint32_t now) const { return ((now & jumpFlags) == 0) == jumpsUnless; }
};

inline constexpr auto kVmOpcodes = [] {
    using enum VmOperation;
    using enum VmOpcode::Flags;
    using enum VmOpcode::Mode;
    using enum VmOpcode::Goes;
    return std::to_array<VmOpcode>({
        {mov, 2, either},
        {cmp, 2, either, set},
        {add, 2, either, set, on, 0, false, quietAdd},
        {sub, 2, either, set, on, 0, false, quietSub},
        {jz, 1, dword, read, elsewhere, kVmZero},
        {jnz, 1, dword, read, elsewhere, kVmZero, true},
        {inc, 1, either, set, on, 0, false, quietInc},
        {dec, 1, either, set, on, 0, false, quietDec},
        {jmp, 1, dword, untouched, elsewhere, 0, true},
        {bitXor, 2, either, set},
        {bitAnd, 2, either, set},
        {bitOr, 2, either, set},
        {test, 2, either, set},
        {js, 1, dword, read, elsewhere, kVmSign},
        {jns, 1, dword, read, elsewhere, kVmSign, true},
        {jb, 1, dword, read, elsewhere, kVmCarry},
        {jbe, 1, dword, read, elsewhere, kVmCarry | kVmZero},
        {ja, 1, dword, read, elsewhere, kVmCarry | kVmZero, true},
        {jae, 1, dword, read, elsewhere, kVmCarry, true},
        {push, 1},
        {pop, 1},
        {call, 1, dword, untouched, elsewhere},
        {ret, 0, dword, untouched, elsewhere},
        {bitNot, 1, either},
        {shl, 2, either, set},
        {shr, 2, either, set},
        {sar, 2, either, set},
        {neg, 1, either, set, on, 0, false, quietNeg},
        {pushAll, 0},
        {popAll, 0},
        {pushFlags, 0, dword, read},
        {popFlags, 0, dword, set},
        {movZeroExtended, 2},
        {movSignExtended, 2},
        {xchg, 2, either},
        {mul, 2, either},
        {div, 2, either},
        {adc, 2, either, readAndSet},
        {sbb, 2, either, readAndSet},
        {print, 0},
    });
}();
static_assert([] {
    for (std::size_t i = 0; i < kVmOpcodes.size(); ++i) {
        if (static_cast<std::size_t>(kVmOpcodes[i].operation) != i) return false;
    }
    return kVmOpcodes.size() == static_cast<std::size_t>(VmOperation::print) + 1;
}());

// REQUIRES: a command that has a number.
constexpr const VmOpcode& opcodeOf(VmOperation operation) { return kVmOpcodes[static_cast<std::size_t>(operation)]; }

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_VM_VMOPCODES_H
