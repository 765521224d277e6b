// PpmContext.h: what the heap of a PPM model holds: contexts and their states.
#ifndef PAKFOLD_RAR_PPM_PPMCONTEXT_H
#define PAKFOLD_RAR_PPM_PPMCONTEXT_H

#include <cstdint>

#include "rar/ppm/HeapValue.h"
#include "rar/ppm/SubAllocator.h"

namespace ZOV_SPACE {

class ModelPPM;

// A symbol of a context. The successor is the context that is the longer one by this symbol, or, when it lies before
// the end of the text, the place in the text behind the symbol: the context is made once it is needed.
struct STATE {
    unsigned char symbol;
    unsigned char frequency;
    HeapValue<SubAllocator::Offset> successor;
};

// All operations are those of the model in whose heap the context is. The decoding ones read one step: they leave the
// state they found in the model, or none after an escape; false says that the data cannot be right.
class PPM_CONTEXT {
public:
    // Halves the frequencies, when the found state's has become too large.
    void rescale(ModelPPM* model);
    bool decodeBinSymbol(ModelPPM* model);
    bool decodeSymbol1(ModelPPM* model);  // With more than one state, as a symbol's first step.
    bool decodeSymbol2(ModelPPM* model);  // Behind an escape: without the states that are ruled out.

    struct Frequencies {
        HeapValue<std::uint16_t> sum;  // Of all states' frequencies and the escape's.
        HeapValue<SubAllocator::Offset> states;
    };

    HeapValue<std::uint16_t> stateCount;
    union {
        Frequencies several;
        STATE only;
    };
    HeapValue<SubAllocator::Offset> suffix;  // The context that is shorter by the first symbol; 0 for the empty one.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_PPMCONTEXT_H
