// RarPrograms: the filter programs that an archive of RAR 2.9 has sent.
#ifndef PAKFOLD_RAR_VM_RARPROGRAMS_H
#define PAKFOLD_RAR_VM_RARPROGRAMS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "rar/RarVMOutputStream.h"
#include "rar/vm/RarVm.h"
#include "rar/vm/UnpackFilter.h"

namespace ZOV_SPACE {

// The programs of a chain of solid entries.
class RarPrograms {
public:
    static constexpr std::size_t kMostPrograms = 1024;
    static constexpr std::uint32_t kLargestBlock = RarVM::kGlobalAddress;

    // Forgets the programs.
    void InitFilters();
    // Takes a filter's description: which program, the program itself when it is new, and the block ahead in the
    // output. False when it makes no sense or exceeds a bound, which is noted in the stream's troubles.
    bool AddVMCode(unsigned int firstByte, std::span<const unsigned char> code, RarVMOutputStream* out);

private:
    bool addFilter(unsigned int firstByte, std::span<const unsigned char> code, RarVMOutputStream* out);
    bool selectProgram(RarMemoryBits& bits, bool isGiven, RarVMOutputStream* out);
    std::shared_ptr<RarProgram> readProgram(RarMemoryBits& bits, RarTroubles& troubles);

    RarVM _vm;
    std::vector<std::shared_ptr<RarProgram>> _programs;
    std::size_t _selected = 0;  // In the programs, or behind them: a new one.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_VM_RARPROGRAMS_H
