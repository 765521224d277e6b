// What is rare: the start of a model, and the halving of a context's frequencies. A model starts with one context, the
// empty one, in which all 256 symbols are equally likely; everything else grows out of it.
#include <algorithm>
#include <array>
#include <span>

#include "rar/ppm/ModelPPM.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

// What a new model costs, as so many bytes of output: its tables (8 microseconds). A header asks for one in eight
// bytes.
constexpr std::int64_t kStartCost = 4 << 10;

constexpr unsigned unitsFor(unsigned states) { return (states + 1) / 2; }

}  // namespace

void RangeCoder::InitDecoder(RarBitInputStream* in) {
    _in = in;
    _low = 0;
    _range = 0xFFFFFFFF;
    _code = 0;
    for (int i = 0; i < 4; ++i) _code = _code << 8 | nextByte();
}

bool ModelPPM::DecodeInit(RarBitInputStream* in, int& escapeChar) {
    const auto nextByte = [in] { return static_cast<int>(in->nextByte()); };
    constexpr int kReset = 0x20;
    constexpr int kNewEscape = 0x40;
    constexpr int kOrderMask = 0x1F;
    const int flags = nextByte();
    const bool reset = flags & kReset;
    const int megabytes = reset ? nextByte() + 1 : 0;
    if (!reset && !_ready) return false;
    if (flags & kNewEscape) escapeChar = nextByte();
    _coder.InitDecoder(in);
    if (!reset) return true;
    _ready = false;
    int order = (flags & kOrderMask) + 1;
    if (order > 16) order = 16 + 3 * (order - 16);
    if (order == 1) {
        _allocator.StopSubAllocator();
        return false;
    }
    ScanBudget::chargeDiscardedBytes(kStartCost);
    restart(order, megabytes);
    return _ready = true;
}

void ModelPPM::StartModelRare(int maxOrder) {
    _maxOrder = maxOrder;
    RestartModelRare();
}

void ModelPPM::resetEstimates() {
    constexpr std::array<unsigned, 8> kInitialEscapes = {0x3CDD, 0x1F3F, 0x59BF, 0x48F3,
                                                         0x64A1, 0x5ABC, 0x6632, 0x6051};
    for (unsigned i = 0; i < _binEstimates.size(); ++i) {
        auto& row = _binEstimates[i];
        for (unsigned j = 0; j < kInitialEscapes.size(); ++j) {
            row[j] = static_cast<std::uint16_t>(kBinTotal - kInitialEscapes[j] / (i + 2));
        }
        for (std::size_t j = kInitialEscapes.size(); j < row.size(); ++j) row[j] = row[j - kInitialEscapes.size()];
    }
    constexpr unsigned char kShift = 3;
    for (unsigned i = 0; i < _see.size(); ++i) {
        _see[i].fill({static_cast<std::uint16_t>((5 * i + 10) << kShift), kShift, 4});
    }
    _dummySee = {0, 7, 0};
}

void ModelPPM::RestartModelRare() {
    _corrupt = false;
    _allocator.InitSubAllocator();
    _orderFall = _maxOrder;
    _runLength = _initialRunLength = -std::min(_maxOrder, 12) - 1;
    _previousSuccess = 0;
    _initialEscape = 0;
    _previousSymbol = 0;
    resetEstimates();

    // A fresh heap has room for these.
    _minContext = _maxContext = contextAt(_allocator.AllocContext());
    _minContext->stateCount = kMostStates;
    _minContext->several.sum = kMostStates + 1;
    _minContext->several.states = _allocator.AllocUnits(unitsFor(kMostStates));
    _minContext->suffix = 0;
    STATE* const states = statesOf(*_minContext);
    for (unsigned i = 0; i < kMostStates; ++i) {
        states[i].symbol = static_cast<unsigned char>(i);
        states[i].frequency = 1;
        states[i].successor = 0;
    }
    _found = states;
}

// Halves all frequencies, keeps the states in descending order and adds what their sums were before and are now.
static void halve(std::span<STATE> states, unsigned rounding, unsigned& before, unsigned& after) {
    STATE* const first = states.data();
    for (STATE* next = first; next != first + states.size(); ++next) {
        STATE state = *next;
        before += state.frequency;
        state.frequency = static_cast<unsigned char>((state.frequency + rounding) / 2);
        after += state.frequency;
        STATE* to = next;
        for (; to != first && state.frequency > to[-1].frequency; --to) *to = to[-1];
        *to = state;
    }
}

// Brings the found state to the front, halves, and removes the states that come to zero; the escape gets a share.
void PPM_CONTEXT::rescale(ModelPPM* model) {
    STATE* const states = model->statesOf(*this);
    if (!states) return;
    const unsigned oldCount = stateCount;
    std::rotate(states, model->_found, model->_found + 1);
    states->frequency = static_cast<unsigned char>(states->frequency + 4);
    unsigned before = 0;
    unsigned total = 0;
    halve({states, oldCount}, model->_orderFall != 0, before, total);
    unsigned count = oldCount;
    while (count > 1 && states[count - 1].frequency == 0) --count;
    unsigned escape = several.sum + 4U - before + (oldCount - count);
    SubAllocator& allocator = model->_allocator;
    const SubAllocator::Offset block = several.states;
    if (count == 1 && oldCount > 1) {
        STATE state = *states;
        do {
            state.frequency = static_cast<unsigned char>(state.frequency - state.frequency / 2);
            escape /= 2;
        } while (escape > 1);
        allocator.FreeUnits(block, unitsFor(oldCount));
        stateCount = 1;
        only = state;
        model->_found = &only;
        return;
    }
    several.sum = static_cast<std::uint16_t>(total + escape - escape / 2);
    if (unitsFor(count) != unitsFor(oldCount)) {
        several.states = allocator.ShrinkUnits(block, unitsFor(oldCount), unitsFor(count));
    }
    stateCount = static_cast<std::uint16_t>(count);
    model->_found = model->statesOf(*this);
}

}  // namespace ZOV_SPACE
