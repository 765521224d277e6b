// RarDecompressSession: what survives from one entry of a RAR archive to the next, and the decoding of entries.
#ifndef PAKFOLD_RAR_RARDECOMPRESSSESSION_H
#define PAKFOLD_RAR_RARDECOMPRESSSESSION_H

#include <cstdint>
#include <memory>

#include "rar/RarBitInputStream.h"
#include "rar/RarBufferOutputStream.h"
#include "rar/RarVMOutputStream.h"
#include "rar/lz/Rar20.h"
#include "rar/lz/Rar29.h"
#include "rar/ppm/ModelPPM.h"
#include "rar/vm/RarPrograms.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// See RarDecompressor::decompress(). Used by one thread at a time.
class RarDecompressSession {
public:
    static constexpr std::int64_t kWindowBytes = std::int64_t{4} << 20;

    explicit RarDecompressSession(DecompressProcessor* processor) : _processor(processor) {}

    void decompress(InputStream& in, std::int64_t packedSize, OutputStream& out, std::int64_t unpackedSize,
                    int unpackVersion, int solid);
    const RarOutcome& outcome() const { return _outcome; }

private:
    static constexpr int kDefaultEscape = 2;
    // What an escape character may be followed by in PPM blocks.
    static constexpr int kPpmNewTables = 0, kPpmEndOfEntry = 2, kPpmVmCode = 3, kPpmFarMatch = 4, kPpmRun = 5;

    enum class BlockMode { kLz, kPpm };
    enum class End { kData, kStopRule, kProcessor };  // What says that no more symbols are decoded.

    template <class Stream>
    Stream* setStreams(InputStream& in, std::int64_t packedSize, OutputStream& out, std::int64_t unpackedSize);
    void reset();
    End decode(End (RarDecompressSession::*method)());
    bool isStopped() const { return _asked && _asked->getAction() == DecompressProcessor::kStop; }
    void skipUntaken(InputStream& in) const;
    void settleOutcome(std::int64_t unpackedSize);

    void unpack20(InputStream& in);
    End decode20();

    void unpack29(InputStream& in);
    End decode29();
    bool run29();
    bool step29();
    void readTail29();
    bool obey29(std::uint32_t control);
    bool ReadTables();
    bool ReadEndOfBlock();
    bool ReadVMCode();
    bool runPpm();
    void chargePpm(std::int64_t symbols) const;
    bool obeyPpm();
    bool ReadVMCodePPM();
    bool obeyPpmControl(int command);
    bool copyPpmMatch(int command);

    DecompressProcessor* _processor;
    DecompressProcessor* _asked = nullptr;  // The processor, in entries that it may end.
    RarHistory _history;
    Rar20 _rar20{_history};
    Rar29 _rar29{_history};
    bool _isFresh = true;      // The entry continues none.
    bool _tablesRead = false;  // Of RAR 2.9, for the next solid entry.
    BlockMode _mode = BlockMode::kLz;
    int _escapeChar = kDefaultEscape;
    ModelPPM _model;
    RarPrograms _programs;  // Outlives the filters in the streams.
    OutputStream* _target = nullptr;
    std::unique_ptr<RarBitInputStream> _in;
    std::unique_ptr<RarBufferOutputStream> _out;
    RarVMOutputStream* _filtered = nullptr;  // The same, in entries of RAR 2.9; null in others.
    RarOutcome _outcome;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARDECOMPRESSSESSION_H
