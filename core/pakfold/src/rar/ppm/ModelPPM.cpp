// A symbol takes one step in the longest context and, after each escape, one in the next shorter context that knows
// other symbols; those that were ruled out by then do not count. Afterwards the symbol's frequency is raised where it
// was found, and it is entered in the contexts that escaped. Contexts for it are made only when it comes again: until
// then states refer to the text behind it. When the heap is full, everything begins anew, for the encoder too.
#include "rar/ppm/ModelPPM.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace ZOV_SPACE {
namespace {

constexpr unsigned kFrequencyStep = 4;

constexpr unsigned kPeriodBits = 7;
constexpr unsigned kInterval = 1 << 7;

// The escape's initial frequency in what a binary context becomes, by the upper bits of its estimate.
constexpr std::array<unsigned char, 16> kEscapeOfEstimate = {25, 14, 9, 7, 5, 5, 4, 4, 4, 3, 3, 3, 2, 2, 2, 2};

// The part of a binary estimate's index that says how many states the suffix has, by that number less one.
constexpr std::array<unsigned char, 256> binIndexOfStates() {
    std::array<unsigned char, 256> index{};
    for (unsigned i = 0; i < index.size(); ++i) index[i] = i < 2 ? static_cast<unsigned char>(2 * i) : i < 11 ? 4 : 6;
    return index;
}
constexpr auto kBinIndexOfStates = binIndexOfStates();

// The row of an escape estimate by the number of candidates less one: 0, 1, 2, 3, then 2 of the next, then 3, and so
// on.
constexpr std::array<unsigned char, 256> seeRowOfCandidates() {
    std::array<unsigned char, 256> rows{};
    unsigned char row = 0;
    for (unsigned i = 0, left = 1, run = 1; i < rows.size(); ++i) {
        rows[i] = row;
        if (--left != 0) continue;
        ++row;
        left = i < 2 ? 1 : run++;
    }
    return rows;
}
constexpr auto kSeeRowOfCandidates = seeRowOfCandidates();

constexpr unsigned highSymbolFlag(unsigned char symbol) { return symbol >= 0x40 ? 8 : 0; }

constexpr unsigned meanStep(unsigned estimate) { return (estimate + (1 << (kPeriodBits - 2))) >> kPeriodBits; }

}  // namespace

std::uint32_t SEE2_CONTEXT::takeMean() {
    const std::uint32_t mean = static_cast<std::uint32_t>(sum) >> shift;
    sum = static_cast<std::uint16_t>(sum - mean);
    return mean + (mean == 0);
}

void SEE2_CONTEXT::update() {
    if (shift >= kPeriodBits || --count != 0) return;
    sum = static_cast<std::uint16_t>(sum << 1);
    count = static_cast<unsigned char>(3 << shift++);
}

// Both indexes are cut to the tables' size, which a model that is right never exceeds.
std::uint16_t* ModelPPM::binEstimate(const PPM_CONTEXT& context) {
    const PPM_CONTEXT* const suffix = contextAt(context.suffix);
    if (!suffix) return nullptr;
    const unsigned statesIndex = kBinIndexOfStates[(suffix->stateCount - 1U) % kMostStates];
    const unsigned index = _previousSuccess + statesIndex + highSymbolFlag(_previousSymbol) +
                           2 * highSymbolFlag(context.only.symbol) + (_runLength < 0 ? 0x20 : 0);
    return &_binEstimates[(context.only.frequency - 1U) % _binEstimates.size()][index];
}

void ModelPPM::hitOnly(PPM_CONTEXT& context, std::uint16_t& estimate) {
    estimate = static_cast<std::uint16_t>(estimate + kInterval - meanStep(estimate));
    _previousSuccess = 1;
    ++_runLength;
    if (context.only.frequency < 128) ++context.only.frequency;
    _found = &context.only;
}

void ModelPPM::escapeOnly(const PPM_CONTEXT& context, std::uint16_t& estimate) {
    estimate = static_cast<std::uint16_t>(estimate - meanStep(estimate));
    _initialEscape = kEscapeOfEstimate[estimate >> 10];
    escape(context, &context.only);
}

bool PPM_CONTEXT::decodeBinSymbol(ModelPPM* model) {
    std::uint16_t* const estimate = model->binEstimate(*this);
    if (!estimate) return false;
    RangeCoder& coder = model->_coder;
    const std::uint32_t part = coder.split(ModelPPM::kBinTotal);
    const std::uint32_t bound = part * *estimate;
    if (coder.code() < bound) {
        coder.take(0, bound);
        model->hitOnly(*this, *estimate);
    } else {
        coder.take(bound, part * ModelPPM::kBinTotal - bound);
        model->escapeOnly(*this, *estimate);
    }
    return true;
}

void ModelPPM::hitFirst(PPM_CONTEXT& context, STATE* first) {
    const unsigned sum = context.several.sum;
    _previousSuccess = 2U * first->frequency > sum;
    _runLength += static_cast<int>(_previousSuccess);
    context.several.sum = static_cast<std::uint16_t>(sum + kFrequencyStep);
    first->frequency = static_cast<unsigned char>(first->frequency + kFrequencyStep);
    _found = first;
    if (first->frequency > kMostFrequency) context.rescale(this);
}

void ModelPPM::hit(PPM_CONTEXT& context, STATE* state) {
    _previousSuccess = 0;
    context.several.sum = static_cast<std::uint16_t>(context.several.sum + kFrequencyStep);
    state->frequency = static_cast<unsigned char>(state->frequency + kFrequencyStep);
    _found = state;
    if (state->frequency <= state[-1].frequency) return;
    std::swap(state[0], state[-1]);
    _found = state - 1;
    if (_found->frequency > kMostFrequency) context.rescale(this);
}

void ModelPPM::ruleOut(const STATE* states, unsigned count) { _ruledOutSymbols.add({states, count}); }

// The first escape of a symbol.
void ModelPPM::escape(const PPM_CONTEXT& context, const STATE* states) {
    _previousSuccess = 0;
    _ruledOutSymbols.clear();
    _ruledOut = context.stateCount;
    ruleOut(states, _ruledOut);
    _found = nullptr;
}

bool PPM_CONTEXT::decodeSymbol1(ModelPPM* model) {
    STATE* state = model->statesOf(*this);
    const std::uint32_t total = several.sum;
    if (!state || total == 0) return false;
    RangeCoder& coder = model->_coder;
    const std::uint32_t part = coder.split(total);
    const std::uint32_t code = coder.code();
    if (code >= part * total) return false;
    std::uint32_t length = part * state->frequency;
    if (code < length) {
        coder.take(0, length);
        model->hitFirst(*this, state);
        return true;
    }
    __builtin_prefetch(model->_allocator.at(suffix));  // Needed after an escape, and by most updates.
    std::uint32_t start = 0;
    for (STATE* const last = state + stateCount - 1; state != last;) {
        start += length;
        length = part * (++state)->frequency;
        if (code - start >= length) continue;
        coder.take(start, length);
        model->hit(*this, state);
        return true;
    }
    start += length;
    coder.take(start, part * total - start);
    model->escape(*this, state - (stateCount - 1));
    return true;
}

// Goes to the next shorter context that has states which are not ruled out.
bool ModelPPM::enterSuffix() {
    do {
        if (++_orderFall > kMostOrder) return false;
        _minContext = contextAt(_minContext->suffix);
        if (!_minContext) return false;
    } while (_minContext->stateCount == _ruledOut);
    return _minContext->stateCount > _ruledOut;
}

SEE2_CONTEXT* ModelPPM::escapeEstimate(const PPM_CONTEXT& context) {
    const unsigned states = context.stateCount;
    if (states == kMostStates) return &_dummySee;
    const PPM_CONTEXT* const suffix = contextAt(context.suffix);
    if (!suffix) return nullptr;
    const unsigned candidates = states - _ruledOut;
    const unsigned index = (candidates + states < suffix->stateCount) + 2U * (context.several.sum < 11 * states) +
                           4U * (_ruledOut > candidates) + highSymbolFlag(_previousSymbol);
    return &_see[kSeeRowOfCandidates[(candidates - 1) % kMostStates]][index];
}

void ModelPPM::hitAgain(PPM_CONTEXT& context, STATE* state, SEE2_CONTEXT& estimate) {
    estimate.update();
    context.several.sum = static_cast<std::uint16_t>(context.several.sum + kFrequencyStep);
    state->frequency = static_cast<unsigned char>(state->frequency + kFrequencyStep);
    _runLength = _initialRunLength;
    _found = state;
    if (state->frequency > kMostFrequency) context.rescale(this);
}

void ModelPPM::escapeAgain(const PPM_CONTEXT& context, const STATE* states, SEE2_CONTEXT& estimate,
                           std::uint32_t total) {
    estimate.sum = static_cast<std::uint16_t>(estimate.sum + total);
    _ruledOut = context.stateCount;
    ruleOut(states, _ruledOut);
}

bool PPM_CONTEXT::decodeSymbol2(ModelPPM* model) {
    STATE* const states = model->statesOf(*this);
    SEE2_CONTEXT* const estimate = states ? model->escapeEstimate(*this) : nullptr;
    if (!estimate) return false;
    const std::span<STATE> all(states, stateCount);
    RuledOutSymbols::Frequencies frequencies;
    const std::uint32_t sum = model->_ruledOutSymbols.sumOfOthers(all, frequencies);
    RangeCoder& coder = model->_coder;
    const std::uint32_t total = sum + estimate->takeMean();
    const std::uint32_t part = coder.split(total);
    const std::uint32_t code = coder.code();
    if (code >= part * total) return false;
    if (code >= part * sum) {
        coder.take(part * sum, part * (total - sum));
        model->escapeAgain(*this, states, *estimate, total);
        return true;
    }
    std::uint32_t start = 0;
    for (unsigned i = 0; i < all.size(); ++i) {
        const std::uint32_t length = part * frequencies[i];
        if (code - start < length) {
            coder.take(start, length);
            model->hitAgain(*this, &all[i], *estimate);
            return true;
        }
        start += length;
    }
    return false;
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
    __builtin_prefetch(_allocator.at(successor));  // The next context, or the text behind which it is made.
    _previousSymbol = symbol;
    if (_orderFall == 0 && isContext(successor)) {
        _minContext = _maxContext = contextAt(successor);
    } else if (!UpdateModel() && !_corrupt) {
        RestartModelRare();
    }
    return _corrupt ? -1 : symbol;
}

// One function with all that a symbol usually needs: its calls would cost a tenth more.
[[gnu::flatten]] int ModelPPM::DecodeChar() {
    if (!std::exchange(_ready, false)) return -1;
    PPM_CONTEXT& context = *_minContext;
    if (!(context.stateCount == 1 ? context.decodeBinSymbol(this) : context.decodeSymbol1(this))) return -1;
    _coder.normalize();
    while (!_found) {
        if (!enterSuffix() || !_minContext->decodeSymbol2(this)) return -1;
        _coder.normalize();
    }
    const int symbol = finishSymbol();
    _ready = symbol >= 0;
    return symbol;
}

}  // namespace ZOV_SPACE
