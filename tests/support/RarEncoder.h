// RarEncoder: writes LZ data of the RAR 2.0 and 2.9 methods, and what it unpacks to.
//
// It codes what it is told to, match by match, with prefix codes made for each block. It knows nothing of the decoder.
#ifndef TESTS_SUPPORT_RARENCODER_H
#define TESTS_SUPPORT_RARENCODER_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/RarVmAssembler.h"

namespace ZOV_SPACE {

// A filter's description behind its first byte, which has these bits: which program (0: all anew), how far ahead the
// block begins, and its length; the program when it is new.
constexpr unsigned kFilterHead = 0xA0;
std::vector<unsigned char> filterOf(std::uint32_t number, std::uint32_t ahead, std::uint32_t length,
                                    const std::vector<unsigned char>& program = {});

class RarEncoder {
public:
    static constexpr std::uint32_t kWindowBytes = 4 << 20;

    explicit RarEncoder(int version);  // 20 or 29.
    // The packed bytes of an entry without matches.
    static std::string literals(int version, std::string_view bytes) {
        RarEncoder encoder(version);
        encoder.text(bytes);
        return encoder.finish();
    }

    void literal(char byte);
    void text(std::string_view bytes);
    // 3 to 258 bytes (longer ones for far distances), and 2 bytes from at most 256 before.
    void match(std::uint32_t distance, std::uint32_t length);
    void shortMatch(std::uint32_t distance);
    // The last match again, and another length at one of the last four distances, the latest being 0.
    void repeatMatch();
    void oldDistance(std::uint32_t index, std::uint32_t length);
    // RAR 2.9: promises that of the next 16 distances above 32, each less 1 has the same low four bits as the one
    // before.
    void repeatLowBits() { _repeatLow = true; }
    std::uint32_t lowBits() const { return _lastLow; }
    // RAR 2.9: a filter's description behind its first byte, whose low bits are set here.
    void filter(unsigned firstByte, const std::vector<unsigned char>& description);
    // Ends the block; the next one's tables say how they differ from this one's, or stand for themselves.
    void nextBlock(bool keepLengths = false);

    // The packed bytes of the entry. With RAR 2.9 an end mark says whether the next entry has tables; with RAR 2.0
    // tables for it may follow instead.
    std::string finish(bool tablesFollow = false);

    const std::string& unpacked() const { return _unpacked; }  // Of all entries so far.
    // Of this entry, and afterwards it is another's turn.
    std::string takeEntry();

private:
    enum Alphabet { kMain, kDistances, kLowDistances, kRepeats, kAlphabets };
    struct Token {
        int alphabet;  // kAlphabets: bits alone.
        std::uint32_t value;
        unsigned bits = 0;
    };
    using Lengths = std::vector<unsigned char>;

    bool is20() const { return _version == 20; }
    void symbol(Alphabet alphabet, std::uint32_t number) { _tokens.push_back({alphabet, number}); }
    void bits(std::uint32_t value, unsigned count) { _tokens.push_back({kAlphabets, value, count}); }
    void number(Alphabet alphabet, std::uint32_t first, std::uint32_t value, const std::vector<unsigned>& bitsOf);
    void distance(std::uint32_t value);
    void copy(std::uint32_t distance, std::uint32_t length);
    void remember(std::uint32_t distance, std::uint32_t length, std::size_t from);
    void put(std::uint32_t value, unsigned count);
    void writeBlock(bool codeAll);
    std::string takePacked(bool codeAll);
    void writeTables(const Lengths& lengths);
    std::uint32_t shortLengths() const { return is20() ? 13 : 12; }
    void putLength(std::uint32_t length);
    void writeLengths(const Lengths& lengths);

    int _version;
    bool _tablesDue = true;
    bool _keepLengths = false;
    std::array<std::size_t, kAlphabets + 1> _first;  // Of each alphabet's symbols, among all.
    Lengths _lengths;                                // Of the last tables.
    std::vector<std::uint32_t> _codes;
    std::vector<Token> _tokens;
    RarBitWriter _out;
    std::size_t _bitCount = 0;
    std::string _unpacked;
    std::size_t _entryStart = 0;
    std::array<std::uint32_t, 4> _old{};  // Latest first.
    std::uint32_t _lastLength = 0;
    std::uint32_t _lastLow = 0;
    unsigned _lowRepeats = 0;
    bool _repeatLow = false;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_RARENCODER_H
