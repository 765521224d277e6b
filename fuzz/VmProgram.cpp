// Programs of RAR's virtual machine, run twice on one block.
// Input: 16 bits, little-endian, with the size of the program; the program, whose check byte is put right; the rest is
// the block, whose first words are also what the registers start with.
#include <cstddef>
#include <vector>

#include "Input.h"
#include "Target.h"
#include "rar/vm/RarVm.h"

using namespace ZOV_SPACE;

void runVmProgram(std::string_view input) {
    if (input.size() < 2) return;
    const std::string_view packed = input.substr(2, loadU16(input.data()));
    std::vector<unsigned char> code(packed.begin(), packed.end());
    if (!code.empty()) code[0] = 0;
    for (std::size_t i = 1; i < code.size(); ++i) code[0] ^= code[i];
    const std::string_view block = input.substr(2 + packed.size());

    RarVM vm;
    vm.Init();
    VM_PreparedProgram program;
    require(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
    for (std::size_t i = 0; i < program.InitR.size() && 4 * i + 4 <= block.size(); ++i) {
        program.InitR[i] = loadU32(block.data() + 4 * i);
    }
    program.GlobalData.Add(RarVM::kFixedGlobalBytes);
    RarVM::SetValue(&program.GlobalData[offsetof(RarVmGlobals, blockLength)], static_cast<unsigned>(block.size()));
    for (int turn = 0; turn < 2; ++turn) {
        program.InitR[3] = RarVM::kGlobalAddress;
        program.InitR[4] = static_cast<unsigned>(block.size());
        vm.SetMemory(0, reinterpret_cast<const unsigned char*>(block.data()), program.InitR[4]);
        vm.Execute(&program);
        require(program.FilteredDataSize < RarVM::kMemoryBytes);
        NotedOutput().write(reinterpret_cast<const char*>(program.FilteredData),
                            static_cast<int>(program.FilteredDataSize));
    }
}
