// How the model learns: what a hit symbol changes beyond the context it was found in, rescaling, and the start.
#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "unarchiver/RarModel.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned unitsFor(unsigned states) { return (states + 1) / 2; }

}  // namespace

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

STATE* ModelPPM::stateOf(PPM_CONTEXT& context, unsigned char symbol) {
    if (context.stateCount == 1) return &context.only;
    STATE* const states = statesOf(context);
    if (!states) return nullptr;
    STATE* const end = states + context.stateCount;
    STATE* const state = std::find_if(states, end, [symbol](const STATE& s) { return s.symbol == symbol; });
    return state == end ? corrupt() : state;
}

// Strengthens a symbol that is new enough in the next shorter context, too. Returns its state there, if looked for.
STATE* ModelPPM::raiseInSuffix(const STATE& found) {
    if (found.frequency >= kMostFrequency / 4 || _minContext->suffix == 0) return nullptr;
    PPM_CONTEXT* const suffix = contextAt(_minContext->suffix);
    STATE* state = suffix ? stateOf(*suffix, found.symbol) : nullptr;
    if (!state) return nullptr;
    if (suffix->stateCount == 1) {
        if (state->frequency < 32) ++state->frequency;
        return state;
    }
    if (state != statesOf(*suffix) && state->frequency >= state[-1].frequency) {
        std::swap(state[0], state[-1]);
        --state;
    }
    if (state->frequency < kMostFrequency - 9) {
        state->frequency = static_cast<unsigned char>(state->frequency + 2);
        suffix->several.sum = static_cast<std::uint16_t>(suffix->several.sum + 2);
    }
    return state;
}

// The frequency of the only state of new contexts: how often the symbol followed in the context they extend.
unsigned ModelPPM::initialFrequency(PPM_CONTEXT& context, unsigned char symbol) {
    const STATE* const state = stateOf(context, symbol);
    if (!state) return 0;
    if (context.stateCount == 1) return state->frequency;
    const int hits = state->frequency - 1;
    const int others = context.several.sum - context.stateCount - hits;
    if (others <= 0) {
        corrupt();
        return 0;
    }
    const int estimate = 2 * hits <= others ? 5 * hits > others : (2 * hits + 3 * others - 1) / (2 * others);
    return static_cast<unsigned>(1 + estimate);
}

// Makes the contexts of the found symbol's successors that were not made yet, from the shortest one up. They continue
// with the symbol that stands in the text where the states refer to. `skip` leaves out the found state itself;
// `inSuffix` is the symbol's state in the suffix when that is known. Null when memory ran out or the model is corrupt.
PPM_CONTEXT* ModelPPM::CreateSuccessors(bool skip, STATE* inSuffix) {
    PPM_CONTEXT* context = _minContext;
    const unsigned char symbol = _found->symbol;
    const Offset branch = _found->successor;
    std::array<STATE*, kMostOrder> parents;
    std::size_t count = 0;
    if (!skip) parents[count++] = _found;
    while (context->suffix != 0) {
        context = contextAt(context->suffix);
        STATE* const state = !context   ? nullptr
                             : inSuffix ? std::exchange(inSuffix, nullptr)
                                        : stateOf(*context, symbol);
        if (!state) return nullptr;
        if (state->successor != branch) {
            context = contextAt(state->successor);
            if (!context) return nullptr;
            break;
        }
        if (count == parents.size()) return corrupt();
        parents[count++] = state;
    }
    if (count == 0) return context;
    if (!_allocator.contains(branch, 1)) return corrupt();
    STATE first;
    first.symbol = *_allocator.at(branch);
    first.frequency = static_cast<unsigned char>(initialFrequency(*context, first.symbol));
    first.successor = branch + 1;
    if (_corrupt) return nullptr;
    while (count-- > 0) {
        const Offset at = _allocator.AllocContext();
        if (at == 0) return nullptr;
        PPM_CONTEXT* const child = contextAt(at);
        if (!child) return nullptr;
        child->stateCount = 1;
        child->only = first;
        child->suffix = _allocator.offsetOf(context);
        parents[count]->successor = at;
        context = child;
    }
    return context;
}

// For one state more. Also turns a binary context into one with several states.
bool ModelPPM::makeRoom(PPM_CONTEXT& context, unsigned foundInStates) {
    const unsigned states = context.stateCount;
    if (states == 1) {
        const Offset at = _allocator.AllocUnits(1);
        if (at == 0) return false;
        STATE state = context.only;
        state.frequency = static_cast<unsigned char>(state.frequency < kMostFrequency / 4 - 1 ? 2 * state.frequency
                                                                                              : kMostFrequency - 4);
        context.several.states = at;
        context.several.sum = static_cast<std::uint16_t>(state.frequency + _initialEscape + (foundInStates > 3));
        *statesOf(context) = state;
        return true;
    }
    if (states >= kMostStates) return corrupt() != nullptr;
    if (states % 2 == 0) {
        const Offset at = _allocator.ExpandUnits(context.several.states, states / 2);
        if (at == 0) return false;
        context.several.states = at;
    }
    const unsigned sum = context.several.sum;
    const unsigned more = (2 * states < foundInStates) + 2U * ((4 * states <= foundInStates) & (sum <= 8 * states));
    context.several.sum = static_cast<std::uint16_t>(sum + more);
    return true;
}

// Adds the symbol to the contexts that were escaped from. False when memory ran out or the model is corrupt.
bool ModelPPM::enterInLongerContexts(const STATE& found, Offset successor) {
    const unsigned foundInStates = _minContext->stateCount;
    const unsigned others = _minContext->several.sum - foundInStates - (found.frequency - 1U);
    for (PPM_CONTEXT* context = _maxContext; context != _minContext; context = contextAt(context->suffix)) {
        if (!context || !makeRoom(*context, foundInStates)) return false;
        STATE* const states = statesOf(*context);
        if (!states) return false;
        const unsigned sum = context->several.sum;
        const unsigned scaled = 2U * found.frequency * (sum + 6);
        const unsigned total = others + sum;
        unsigned frequency;
        if (scaled < 6 * total) {
            frequency = 1U + (scaled > total) + (scaled >= 4 * total);
            context->several.sum = static_cast<std::uint16_t>(sum + 3);
        } else {
            frequency = 4U + (scaled >= 9 * total) + (scaled >= 12 * total) + (scaled >= 15 * total);
            context->several.sum = static_cast<std::uint16_t>(sum + frequency);
        }
        STATE& state = states[context->stateCount];
        state.symbol = found.symbol;
        state.frequency = static_cast<unsigned char>(frequency);
        state.successor = successor;
        context->stateCount = static_cast<std::uint16_t>(context->stateCount + 1);
    }
    return true;
}

// False when memory ran out or the model is corrupt.
bool ModelPPM::UpdateModel() {
    STATE found = *_found;
    STATE* const inSuffix = raiseInSuffix(found);
    if (_corrupt) return false;
    if (_orderFall == 0) {
        PPM_CONTEXT* const next = CreateSuccessors(true, inSuffix);
        if (!next) return false;
        _found->successor = _allocator.offsetOf(next);
        _minContext = _maxContext = next;
        return true;
    }
    if (!_allocator.appendText(found.symbol)) return false;
    Offset successor = _allocator.textEnd();
    PPM_CONTEXT* next = _minContext;
    if (found.successor == 0) {
        _found->successor = successor;
    } else {
        next = isContext(found.successor) ? contextAt(found.successor) : CreateSuccessors(false, inSuffix);
        if (!next) return false;
        if (--_orderFall == 0) {
            successor = _allocator.offsetOf(next);
            if (_maxContext != _minContext) _allocator.dropText();
        }
    }
    if (!enterInLongerContexts(found, successor)) return false;
    _minContext = _maxContext = next;
    return true;
}

int ModelPPM::finishSymbol() {
    const unsigned char symbol = _found->symbol;
    const Offset successor = _found->successor;
    _previousSymbol = symbol;
    if (_orderFall == 0 && isContext(successor)) {
        _minContext = _maxContext = contextAt(successor);
    } else if (!UpdateModel() && !_corrupt) {
        RestartModelRare();
    }
    return _corrupt ? -1 : symbol;
}

}  // namespace ZOV_SPACE
