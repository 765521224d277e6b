// The RAR 2.9 method's side of the session: the kinds of blocks, and what stands between them.
#include <array>
#include <vector>

#include "rar/RarDecompressSession.h"
#include "rar/lz/RarWindowCursor.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {

void RarDecompressSession::unpack29(InputStream& in) {
    const End end = decode(&RarDecompressSession::decode29);
    if (end != End::kProcessor) _out->finishOutput();
    if (end == End::kStopRule) readTail29();
    _filtered->dropFilters();
    skipUntaken(in);
}

// In PPM blocks the end of the packed bytes says nothing: the model's coder reads ahead, and the last symbols are
// decoded after the last byte was taken.
RarDecompressSession::End RarDecompressSession::decode29() {
    if (!_tablesRead && !ReadTables()) return End::kData;
    for (;;) {
        if (!_asked && !run29()) return End::kData;
        if (_mode == BlockMode::kLz && _in->atEnd()) return End::kData;
        if (_out->limitReached()) return End::kStopRule;
        if (isStopped()) return End::kProcessor;
        if (!step29()) return End::kData;
    }
}

// As far as no check is due; false when the data ends the entry.
bool RarDecompressSession::run29() {
    if (_mode == BlockMode::kPpm) return runPpm();
    const std::uint32_t control = _rar29.run(*_in, *_out);
    return control == kRarNoSymbol || obey29(control);
}

// One symbol; false when it ends the entry.
bool RarDecompressSession::step29() {
    if (_mode == BlockMode::kPpm) {
        const int byte = _model.DecodeChar();
        chargePpm(1);
        if (byte < 0) return false;
        if (byte == _escapeChar) return obeyPpm();
        _out->putch(byte);
        return true;
    }
    const RarMeaning symbol = _rar29.readSymbol(*_in);
    if (Rar29::isControl(symbol.value())) return obey29(symbol.value());
    _rar29.writeSymbol(symbol, *_in, *_out);
    return true;
}

// Behind the last byte of an entry there may be commands that the next solid entry depends on. The first symbol that
// would write something, or makes no sense, ends them. The entry is complete, whatever they are.
void RarDecompressSession::readTail29() {
    try {
        for (bool goesOn = true; goesOn;) {
            if (_mode == BlockMode::kLz) {
                const std::uint32_t symbol = _rar29.readSymbol(*_in).value();
                goesOn = Rar29::isControl(symbol) && obey29(symbol);
            } else {
                goesOn = _model.DecodeChar() == _escapeChar && obeyPpmControl(_model.DecodeChar());
            }
        }
    } catch (const OutOfBudgetException&) {
        throw;
    } catch (const Exception&) {
    }
}

bool RarDecompressSession::obey29(std::uint32_t control) {
    return control == Rar29::kEndOfBlock ? ReadEndOfBlock() : ReadVMCode();
}

bool RarDecompressSession::ReadTables() {
    constexpr unsigned kPpmBlock = 0x8000;
    _in->alignToByte();
    _tablesRead = false;
    if (_in->getBits() & kPpmBlock) {
        _mode = BlockMode::kPpm;
        return _model.DecodeInit(_in.get(), _escapeChar);
    }
    _mode = BlockMode::kLz;
    _tablesRead = _rar29.readTables(*_in);
    return _tablesRead;
}

// One bit: new tables follow. Otherwise the entry ends here, and the next bit says whether the next solid entry begins
// with tables.
bool RarDecompressSession::ReadEndOfBlock() {
    if (_in->readBits(1) != 0) return ReadTables();
    _tablesRead = _in->readBits(1) == 0;
    return false;
}

namespace {

// The length of a filter's description: in the low bits of its first byte, or in one or two bytes behind it. nextByte()
// is negative when there is none.
template <class NextByte>
int readVmCodeLength(int firstByte, NextByte nextByte) {
    const int length = (firstByte & 7) + 1;
    if (length < 7) return length;
    const int first = nextByte();
    if (first < 0) return first;
    if (length == 7) return first + 7;
    const int second = nextByte();
    return second < 0 ? second : first << 8 | second;
}

template <class NextByte>
bool readVmCode(RarPrograms& programs, RarVMOutputStream* out, NextByte nextByte) {
    const int firstByte = nextByte();
    const int length = firstByte < 0 ? firstByte : readVmCodeLength(firstByte, nextByte);
    if (length < 0) return false;
    std::vector<unsigned char> code(static_cast<std::size_t>(length));
    for (unsigned char& byte : code) {
        const int next = nextByte();
        if (next < 0) return false;
        byte = static_cast<unsigned char>(next);
    }
    return programs.AddVMCode(static_cast<unsigned>(firstByte), code, out);
}

}  // namespace

bool RarDecompressSession::ReadVMCode() {
    return readVmCode(_programs, _filtered, [this] { return static_cast<int>(_in->nextByte()); });
}

bool RarDecompressSession::ReadVMCodePPM() {
    return readVmCode(_programs, _filtered, [this] { return _model.DecodeChar(); });
}

// As far as no check is due; false when the data ends the entry.
bool RarDecompressSession::runPpm() {
    const std::int64_t before = _out->writeCount();
    RarWindowCursor window(*_out);
    int last = 0;
    try {
        while (window.ready() && (last = _model.DecodeChar()) >= 0 && last != _escapeChar) {
            window.put(static_cast<unsigned>(last));
        }
    } catch (const Exception&) {
        window.sync();
        throw;
    }
    window.sync();
    const bool commandFollows = last == _escapeChar;
    chargePpm(_out->writeCount() - before + (commandFollows ? 2 : 0));
    return last >= 0 && (!commandFollows || obeyPpm());
}

// Besides what each byte is charged where it is written. A symbol takes many times as long as a byte that a match
// copies: one that leads all over a large heap takes about a microsecond.
void RarDecompressSession::chargePpm(std::int64_t symbols) const {
    const std::int64_t bytes = symbols * (ScanBudget::kBytesPerPpmSymbol - 1);
    _target->discards() ? ScanBudget::chargeDiscardedBytes(bytes) : ScanBudget::chargeTakenBytes(bytes);
}

// What follows an escape character: a command, or the character means itself.
bool RarDecompressSession::obeyPpm() {
    const int command = _model.DecodeChar();
    switch (command) {
        case kPpmFarMatch:
        case kPpmRun:
            return copyPpmMatch(command);
        case kPpmNewTables:
        case kPpmEndOfEntry:
        case kPpmVmCode:
            return obeyPpmControl(command);
        default:
            if (command >= 0) _out->putch(_escapeChar);
            return command >= 0;
    }
}

// The commands that write nothing; false when the data ends the entry, or for another command.
bool RarDecompressSession::obeyPpmControl(int command) {
    return (command == kPpmNewTables && ReadTables()) || (command == kPpmVmCode && ReadVMCodePPM());
}

// Of a match, three bytes are its distance, most significant first, and one its length; of a run, only the length is
// coded.
bool RarDecompressSession::copyPpmMatch(int command) {
    std::uint32_t distance = 0;
    for (int bytes = command == kPpmFarMatch ? 3 : 0; bytes > 0; --bytes) {
        const int byte = _model.DecodeChar();
        if (byte < 0) return false;
        distance = distance << 8 | static_cast<std::uint32_t>(byte);
    }
    const int length = _model.DecodeChar();
    if (length < 0) return false;
    const auto coded = static_cast<std::uint32_t>(length);
    if (command == kPpmFarMatch) {
        _out->copyContent(distance + 2, coded + 32);
    } else {
        _out->copyContent(1, coded + 4);
    }
    return true;
}

}  // namespace ZOV_SPACE
