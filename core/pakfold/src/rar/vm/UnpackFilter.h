// UnpackFilter: a filter that runs a program of the archive on its block.
#ifndef PAKFOLD_RAR_VM_UNPACKFILTER_H
#define PAKFOLD_RAR_VM_UNPACKFILTER_H

#include <cstdint>
#include <memory>

#include "rar/RarVMOutputStream.h"
#include "rar/vm/RarVm.h"

namespace ZOV_SPACE {

// A program with what it keeps from one run to the next.
struct RarProgram {
    VM_PreparedProgram prepared;
    std::uint32_t blockLength = 0;  // Of its last filter.
    std::uint32_t uses = 0;         // Filters before that.
};

// One run of a program, on one block.
class UnpackFilter : public RarOutputFilter {
public:
    UnpackFilter(RarVM& vm, std::shared_ptr<RarProgram> program, std::uint32_t start, std::uint32_t length);
    ~UnpackFilter() override;

    // To be set before the run: initial registers, and global data with at least the fixed fields.
    VM_PreparedProgram& prepared() { return _prepared; }

    std::uint32_t getStart() const override { return _start; }
    std::uint32_t getLength() const override { return _length; }
    std::uint32_t copy(const unsigned char* bytes, std::uint32_t n) override;
    bool ready() const override { return _filled >= _length; }
    // Bytes of the block that the result lacks are charged to the scan's budget.
    void execute(RarVMOutputStream* out, RarFilterQueue* queue) override;

private:
    RarVM::Run run(std::uint32_t position);

    RarVM& _vm;
    std::shared_ptr<RarProgram> _program;
    std::uint32_t _start;
    std::uint32_t _length;
    std::uint32_t _filled = 0;
    std::unique_ptr<unsigned char[]> _block;  // Allocated with the first bytes.
    VM_PreparedProgram _prepared;             // The program's commands, with registers and data of this run.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_VM_UNPACKFILTER_H
