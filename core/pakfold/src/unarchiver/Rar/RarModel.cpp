#include "unarchiver/RarModel.h"

#include <span>
#include <utility>

#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kFrequencyStep = 4;

// What a new model costs, as so many bytes of output: its tables. A header asks for one in eight bytes.
constexpr std::int64_t kStartCost = 16 << 10;

constexpr unsigned kPeriodBits = 7;
constexpr unsigned kInterval = 1 << 7;

// The escape's initial frequency in what a binary context becomes, by the upper bits of its estimate.
constexpr std::array<unsigned char, 16> kEscapeOfEstimate = {25, 14, 9, 7, 5, 5, 4, 4, 4, 3, 3, 3, 2, 2, 2, 2};

// The part of a binary estimate's index that says how many states the suffix has, by that number less one.
constexpr auto kBinIndexOfStates = [] {
    std::array<unsigned char, 256> index{};
    for (unsigned i = 0; i < index.size(); ++i) index[i] = i < 2 ? static_cast<unsigned char>(2 * i) : i < 11 ? 4 : 6;
    return index;
}();

// The row of an escape estimate by the number of candidates less one: 0, 1, 2, 3, then 2 of the next, then 3, and so
// on.
constexpr auto kSeeRowOfCandidates = [] {
    std::array<unsigned char, 256> rows{};
    unsigned char row = 0;
    for (unsigned i = 0, left = 1, run = 1; i < rows.size(); ++i) {
        rows[i] = row;
        if (--left != 0) continue;
        ++row;
        left = i < 2 ? 1 : run++;
    }
    return rows;
}();

constexpr unsigned highSymbolFlag(unsigned char symbol) { return symbol >= 0x40 ? 8 : 0; }

constexpr unsigned meanStep(unsigned estimate) { return (estimate + (1 << (kPeriodBits - 2))) >> kPeriodBits; }

}  // namespace

void RangeCoder::InitDecoder(RarBitInputStream* in) {
    _in = in;
    _low = 0;
    _range = 0xFFFFFFFF;
    _code = 0;
    for (int i = 0; i < 4; ++i) _code = _code << 8 | nextByte();
}

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

void ModelPPM::ruleOut(const STATE* states, unsigned count) {
    for (unsigned i = 0; i < count; ++i) _candidate[states[i].symbol] = 0;
}

// The first escape of a symbol.
void ModelPPM::escape(const PPM_CONTEXT& context, const STATE* states) {
    _previousSuccess = 0;
    _candidate.fill(0xFF);
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
    std::array<STATE*, ModelPPM::kMostStates> candidates;
    std::uint32_t sum = 0;
    unsigned count = 0;
    for (STATE *state = states, *const end = states + stateCount; state != end; ++state) {
        const unsigned char mask = model->_candidate[state->symbol];
        candidates[count] = state;
        sum += state->frequency & mask;
        count += mask & 1;
    }
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
    for (STATE* const state : std::span(candidates.data(), count)) {
        const std::uint32_t length = part * state->frequency;
        if (code - start < length) {
            coder.take(start, length);
            model->hitAgain(*this, state, *estimate);
            return true;
        }
        start += length;
    }
    return false;
}

int ModelPPM::DecodeChar() {
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

}  // namespace ZOV_SPACE
