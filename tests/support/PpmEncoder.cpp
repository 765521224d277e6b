#include "support/PpmEncoder.h"

#include <stdexcept>
#include <utility>

namespace ZOV_SPACE {

PpmEncoder::PpmEncoder(int order, int megabytes) : _order(order), _megabytes(megabytes) { beginBlock(true); }

void PpmEncoder::beginBlock(bool reset) {
    if (reset) {
        _out += static_cast<char>(0xA0 | ((_order > 16 ? (_order - 16) / 3 + 16 : _order) - 1));
        _out += static_cast<char>(_megabytes - 1);
        restart(_order, _megabytes);
    } else {
        _out += '\x80';
    }
    _low = 0;
    _range = 0xFFFFFFFF;
}

void PpmEncoder::shiftOut() {
    _out += static_cast<char>(_low >> 24);
    _low <<= 8;
    _range <<= 8;
}

void PpmEncoder::flush() {
    for (int i = 0; i < 4; ++i) shiftOut();
}

void PpmEncoder::narrow(std::uint32_t start, std::uint32_t length, std::uint32_t total) {
    const std::uint32_t part = _range / total;
    _low += part * start;
    _range = part * length;
    for (;;) {
        if ((_low ^ (_low + _range)) >= 1 << 24) {
            if (_range >= 1 << 15) return;
            _range = (0 - _low) & 0x7FFF;
        }
        shiftOut();
    }
}

void PpmEncoder::putInBinContext(PPM_CONTEXT& context, unsigned char symbol) {
    std::uint16_t& estimate = *binEstimate(context);
    if (context.only.symbol == symbol) {
        narrow(0, estimate, kBinTotal);
        hitOnly(context, estimate);
    } else {
        narrow(estimate, kBinTotal - estimate, kBinTotal);
        escapeOnly(context, estimate);
    }
}

void PpmEncoder::putFirst(PPM_CONTEXT& context, unsigned char symbol) {
    STATE* const states = statesOf(context);
    const unsigned total = context.several.sum;
    unsigned start = 0;
    for (STATE* state = states; state != states + context.stateCount; start += state++->frequency) {
        if (state->symbol != symbol) continue;
        narrow(start, state->frequency, total);
        return state == states ? hitFirst(context, state) : hit(context, state);
    }
    narrow(start, total - start, total);
    escape(context, states);
}

void PpmEncoder::putAgain(PPM_CONTEXT& context, unsigned char symbol) {
    STATE* const states = statesOf(context);
    STATE* const end = states + context.stateCount;
    SEE2_CONTEXT& estimate = *escapeEstimate(context);
    STATE* wanted = nullptr;
    unsigned start = 0;
    unsigned sum = 0;
    for (STATE* state = states; state != end; ++state) {
        if (!isCandidate(*state)) continue;
        if (state->symbol == symbol) start = sum, wanted = state;
        sum += state->frequency;
    }
    const unsigned total = sum + estimate.takeMean();
    if (wanted) {
        narrow(start, wanted->frequency, total);
        hitAgain(context, wanted, estimate);
    } else {
        narrow(sum, total - sum, total);
        escapeAgain(context, states, estimate, total);
    }
}

void PpmEncoder::put(unsigned char symbol) {
    PPM_CONTEXT& context = *_minContext;
    context.stateCount == 1 ? putInBinContext(context, symbol) : putFirst(context, symbol);
    while (!_found) {
        if (!enterSuffix()) throw std::logic_error("no context has the symbol");
        putAgain(*_minContext, symbol);
    }
    if (finishSymbol() != symbol) throw std::logic_error("the model is corrupt");
}

void PpmEncoder::text(std::string_view bytes) {
    for (const char c : bytes) {
        put(static_cast<unsigned char>(c));
        if (c == kEscape) put(1);
    }
}

void PpmEncoder::nextBlock(bool reset) {
    put(kEscape);
    put(0);
    flush();
    beginBlock(reset);
}

std::string PpmEncoder::finish() {
    put(kEscape);
    put(2);
    flush();
    return std::exchange(_out, {});
}

}  // namespace ZOV_SPACE
