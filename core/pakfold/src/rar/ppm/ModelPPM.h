// ModelPPM: the text compression of RAR 2.9, D. Shkarin's PPMd variant H ("PPM: one step to practicality", 2002) with a
// carryless range coder.
//
// A symbol is decoded in the context of the symbols before it, up to the maximum order: in the longest context that
// was seen before, or after escapes in ever shorter ones. A context with one state decides between it and the escape by
// an adaptive probability; one with more keeps a frequency for each. Escapes behind the first one are estimated by
// tables of their own (SEE). Afterwards the symbol is entered in the contexts that lacked it.
#ifndef PAKFOLD_RAR_PPM_MODELPPM_H
#define PAKFOLD_RAR_PPM_MODELPPM_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "rar/RarBitInputStream.h"
#include "rar/ppm/PpmContext.h"
#include "rar/ppm/RangeCoder.h"
#include "rar/ppm/RuledOutSymbols.h"
#include "rar/ppm/SeeContext.h"
#include "rar/ppm/SubAllocator.h"

namespace ZOV_SPACE {

// Used by one thread at a time. Everything in the heap is checked before it is followed, so that no data, and no model
// that went wrong, leads outside.
class ModelPPM {
public:
    ModelPPM() = default;
    ModelPPM(const ModelPPM&) = delete;
    ModelPPM& operator=(const ModelPPM&) = delete;

    // Reads the header of a PPM block, which may bring a new model or a new escape character, and prepares decoding.
    // False when there is no model then. The stream is borrowed until the next call.
    // New models are charged to the scan's budget, because they cost far more than their headers.
    //   Throws:  OutOfMemoryException "Out of memory"; OutOfBudgetException; what the stream throws.
    bool DecodeInit(RarBitInputStream* in, int& escapeChar);

    // The next byte, or -1 when the data cannot be right. Behind that, and behind an exception of the stream, there is
    // no model until a block header brings a new one.
    int DecodeChar();

    int maxOrder() const { return _maxOrder; }
    const SubAllocator& allocator() const { return _allocator; }

protected:  // For an encoder, which goes through the same model.
    friend class PPM_CONTEXT;

    using Offset = SubAllocator::Offset;

    static constexpr int kMostOrder = 64;
    static constexpr unsigned kMostStates = 256;
    static constexpr unsigned kMostFrequency = 124;  // Beyond it, a context's frequencies are halved.
    static constexpr unsigned kBinBits = 14;  // Probabilities of binary contexts are multiples of 2 to the power -14.
    static constexpr unsigned kBinTotal = 1 << kBinBits;

    // Begins with a new model, or throws OutOfMemoryException.
    void restart(int maxOrder, int megabytes) {
        _allocator.StartSubAllocator(megabytes);
        StartModelRare(maxOrder);
    }

    // The steps of a symbol. Each leaves the state that was hit, or none after an escape.
    std::uint16_t* binEstimate(const PPM_CONTEXT& context);
    void hitOnly(PPM_CONTEXT& context, std::uint16_t& estimate);
    void escapeOnly(const PPM_CONTEXT& context, std::uint16_t& estimate);
    void hitFirst(PPM_CONTEXT& context, STATE* first);
    void hit(PPM_CONTEXT& context, STATE* state);
    void escape(const PPM_CONTEXT& context, const STATE* states);
    bool enterSuffix();
    SEE2_CONTEXT* escapeEstimate(const PPM_CONTEXT& context);
    void hitAgain(PPM_CONTEXT& context, STATE* state, SEE2_CONTEXT& estimate);
    void escapeAgain(const PPM_CONTEXT& context, const STATE* states, SEE2_CONTEXT& estimate, std::uint32_t total);
    // Enters the hit symbol in the model and returns it, or -1.
    int finishSymbol();

    // What the heap says, checked; null, and the model is corrupt, when it cannot be.
    PPM_CONTEXT* contextAt(Offset at) {
        static_assert(sizeof(PPM_CONTEXT) == SubAllocator::kUnitBytes);
        if (!_allocator.contains(at, sizeof(PPM_CONTEXT))) return corrupt();
        return reinterpret_cast<PPM_CONTEXT*>(_allocator.at(at));
    }
    STATE* statesOf(const PPM_CONTEXT& context) {
        static_assert(sizeof(STATE) == SubAllocator::kUnitBytes / 2);
        const Offset at = context.several.states;
        const unsigned count = context.stateCount;
        if (count - 1 >= kMostStates || !_allocator.contains(at, count * sizeof(STATE))) return corrupt();
        return reinterpret_cast<STATE*>(_allocator.at(at));
    }
    bool isCandidate(const STATE& state) const { return !_ruledOutSymbols.contains(state.symbol); }

    PPM_CONTEXT* _minContext = nullptr;  // The one that the next step is taken in,
    PPM_CONTEXT* _maxContext = nullptr;  // and where the symbol's first step was.
    STATE* _found = nullptr;

private:
    void StartModelRare(int maxOrder);
    void RestartModelRare();
    void resetEstimates();
    void ruleOut(const STATE* states, unsigned count);
    bool UpdateModel();
    STATE* raiseInSuffix(const STATE& found);
    bool enterInLongerContexts(const STATE& found, Offset successor);
    bool makeRoom(PPM_CONTEXT& context, unsigned foundInStates);
    PPM_CONTEXT* CreateSuccessors(bool skip, STATE* inSuffix);
    unsigned initialFrequency(PPM_CONTEXT& context, unsigned char symbol);
    STATE* stateOf(PPM_CONTEXT& context, unsigned char symbol);
    bool isContext(Offset successor) const { return successor > _allocator.textEnd(); }
    std::nullptr_t corrupt() {
        _corrupt = true;
        return nullptr;
    }

    RangeCoder _coder;
    bool _ready = false;  // Whether there is a model that the next symbol can be decoded with.
    bool _corrupt = false;
    int _maxOrder = 0;
    int _orderFall = 0;  // How much shorter than the maximum order the context is.
    int _runLength = 0;
    int _initialRunLength = 0;
    unsigned _previousSuccess = 0;
    unsigned _initialEscape = 0;
    unsigned _ruledOut = 0;  // Number of states in the context that was escaped from.
    unsigned char _previousSymbol = 0;
    SubAllocator _allocator;
    RuledOutSymbols _ruledOutSymbols;
    SEE2_CONTEXT _dummySee{};
    std::array<std::array<SEE2_CONTEXT, 16>, 25> _see{};
    std::array<std::array<std::uint16_t, 64>, 128> _binEstimates{};
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_MODELPPM_H
