// PPM blocks alone; of the commands in them, those that end a block or the data.
#include "Input.h"
#include "Target.h"
#include "rar/ppm/ModelPPM.h"

using namespace ZOV_SPACE;

void unpackPpm(std::string_view input) {
    const std::vector<char> blocks = withSmallHeap(input);
    InputBuffer buffer({blocks.data(), blocks.size()});
    BufferBaseInputStream source(&buffer);
    RarBitInputStream bits(&source, static_cast<std::int64_t>(input.size()));
    ModelPPM model;
    int escape = 2;
    if (!model.DecodeInit(&bits, escape)) return;
    NotedOutput out;
    for (int left = NotedOutput::kMost; left > 0; --left) {
        int symbol = model.DecodeChar();
        if (symbol == escape && (symbol = model.DecodeChar()) == 0 && !model.DecodeInit(&bits, escape)) return;
        if (symbol < 0 || symbol == 2) return;
        out.write(static_cast<char>(symbol));
    }
}
