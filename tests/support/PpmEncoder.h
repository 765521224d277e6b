// PpmEncoder: writes PPM blocks of RAR 2.9. It goes through the decoder's own model, so a round trip shows that both
// agree, not that either is right; a pinned checksum of what other decoders accepted does.
#ifndef TESTS_SUPPORT_PPMENCODER_H
#define TESTS_SUPPORT_PPMENCODER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "rar/ppm/ModelPPM.h"

namespace ZOV_SPACE {

class PpmEncoder : private ModelPPM {
public:
    static constexpr int kEscape = 2;  // The escape character unless a block header brings another.

    // Begins with a block that brings a new model. The order is 2 to 16, or up to 64 in steps of 3.
    PpmEncoder(int order, int megabytes);

    // The character as it is: behind the escape character, a command.
    void put(unsigned char symbol);
    // Text; behind each escape character in it goes the command that means the character itself.
    void text(std::string_view bytes);
    // Ends the range coder's data and, behind a command for it, begins another block: with the same model, or afresh.
    void nextBlock(bool reset = false);
    // Ends with the command for the end of the data, and returns everything since the last call.
    std::string finish();
    // Begins the data of another entry, behind finish(), with the same model.
    void nextEntry() { beginBlock(false); }

private:
    void beginBlock(bool reset);
    void putInBinContext(PPM_CONTEXT& context, unsigned char symbol);
    void putFirst(PPM_CONTEXT& context, unsigned char symbol);
    void putAgain(PPM_CONTEXT& context, unsigned char symbol);
    void narrow(std::uint32_t start, std::uint32_t length, std::uint32_t total);
    void shiftOut();
    void flush();

    int _order;
    int _megabytes;
    std::uint32_t _low = 0;
    std::uint32_t _range = 0;
    std::string _out;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_PPMENCODER_H
