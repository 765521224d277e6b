#include "zip/deep/ZipReading.h"

#include <algorithm>
#include <array>
#include <climits>
#include <memory>

#include "EntryStreams.h"
#include "IOUtils.h"
#include "io/BufferBaseStreams.h"
#include "unarchiver/Pakfold.h"
#include "unarchiver/ScanBudget.h"
#include "utils/Crc.h"
#include "zip/ZipConstants.h"
#include "zip/ZipDescriptor.h"
#include "zip/ZipMethodName.h"
#include "zip/ZipTroubles.h"
#include "zip/ZipUnarchiver.h"
#include "zip/deep/ZipMethods.h"

namespace ZOV_SPACE {
namespace {

// Counts the check-sum of what it hands on, and hands on so many bytes at most.
class CountingOutput : public OutputStream {
public:
    CountingOutput(OutputStream& out, std::int64_t most) : _out(out), _left(most) {}

    using OutputStream::write;
    int write(char c) override { return write(&c, 1); }
    int write(const char* buf, int len) override {
        const int fitting = static_cast<int>(std::min<std::int64_t>(len, _left));
        _crc.add(buf, static_cast<unsigned>(fitting));
        _left -= fitting;
        _out.write(buf, fitting);
        if (fitting < len) raise<UnarchiveRatioExceed>("no more is kept");
        return len;
    }
    std::uint32_t checkSum() const { return _crc.crc(); }
    bool isFull() const { return _left == 0; }

private:
    OutputStream& _out;
    std::int64_t _left;
    Iso3309Crc _crc;
};

}  // namespace

// One offer, from the processor's answer to the end of the entry.
class ZipReader::Offer {
public:
    Offer(ZipReader& reader, const ZipClaim& claim, const std::string& name, const ZipReading& reading)
        : _bytes(reader._bytes),
          _entries(reader._entries),
          _claim(claim),
          _reading(reading),
          _method(findZipMethod(reading.method)),
          _in(&_bytes.buffer(), static_cast<long>(reading.start)) {
        _entry.name = name;
        _entry.time = claim.time;
        _entry.method = zipMethodName(reading.method);
        _entry.algorithm = _method ? _method->algorithm : kAlgorithmUnknown;
        _entry.compressedSize = static_cast<int>(reading.packedSize);
        _entry.uncompressedSize = static_cast<int>(std::min({claim.unpackedSize, reading.keptSize, mostUnpacked()}));
        _entry.checkSum = claim.checkSum;
        _outcome.dataEnd = reading.end();
    }
    Offer(const Offer&) = delete;
    Offer& operator=(const Offer&) = delete;

    ZipOutcome loud(const ZipDataExtent* measured) {
        LookAheadCost cost(measured ? measured->inflated : 0);
        ask();
        if (_action != kActionSkip) {
            TakenOutputStream taking(_out.get());
            move(taking, measured);
            _outcome.unpackedSize = taking.taken();
            cost.settle(_outcome.unpackedSize);
            if (_action == kActionDecompress) tellOfSize();
        }
        if (isCut() && _outcome.isWhole()) tell(ArchiveTrouble::truncated, zipTroubles::kCut);
        if (measured && measured->failure.empty() && _claim.sizesFollow()) tellOfDescriptor(*measured);
        if (measured) _outcome.failure = measured->failure;
        if (_outcome.isWhole()) end();
        return _outcome;
    }

    ZipOutcome quiet() {
        ask();
        if (_action != kActionSkip) {
            TakenOutputStream taking(_out.get());
            CountingOutput counting(taking, _reading.keptSize);
            move(counting, nullptr);
            _outcome.unpackedSize = taking.taken();
            // Whether it is one that some record gives is the caller's to say.
            _entry.checkSum = _outcome.checkSum = counting.checkSum();
            if (_isFull && !counting.isFull()) _outcome.isTaken = false;
        }
        if (isCut() && _outcome.isWhole()) _outcome.failure = zipTroubles::kCut;
        if (_outcome.isWhole()) end();
        return _outcome;
    }

private:
    // What the data can unpack to, whatever is announced.
    std::uint32_t mostUnpacked() const {
        constexpr std::int64_t kMostRatio = 1032;  // Of deflated data.
        const std::int64_t there = std::min<std::int64_t>(_reading.packedSize, _bytes.size() - _reading.start);
        if (_reading.method == ZipConstants::STORED) return static_cast<std::uint32_t>(there);
        if (_reading.method != ZipConstants::DEFLATED) return ZipClaim::kNotSaid;
        return ZipClaim::clamped(static_cast<std::uint64_t>(kMostRatio * (there + 1)));
    }

    void ask() {
        _out = _entries.processEntry(&_entry, _action);
        if (_action == kActionAbort) kZipUnit.raise<ArchivingException>("Archiving aborted");
        const bool moves = _out && (_action == kActionCopy || _action == kActionDecompress);
        if (!moves) _action = kActionSkip;
        _outcome.isTaken = _action == kActionDecompress;
    }

    void move(OutputStream& out, const ZipDataExtent* measured) {
        try {
            if (_action == kActionCopy) {
                findZipMethod(ZipConstants::STORED)->decode(_in, {_reading.packedSize, 0, 0, 0}, out);
            } else if (measured && measured->hasContent) {
                measured->writeContent(out);
            } else if (_reading.packedSize > 0) {
                decode(out);
            }
        } catch (const UnarchiveRatioExceed&) {
            _isFull = true;
        } catch (IOException& failure) {
            _outcome.failure = failure.getMessage();
        } catch (CompressionException& failure) {
            _outcome.failure = failure.getMessage();
        }
    }

    void decode(OutputStream& out) {
        if (!_method) {
            kZipUnit.raise<CompressionException>("Unknown algorithm: " + std::to_string(_reading.method) + " in zip");
        }
        _left = _method->decode(_in, {_reading.packedSize, _claim.unpackedSize, _claim.flags, _claim.checkSum}, out);
        _outcome.dataEnd -= _left;
    }

    void tellOfSize() const {
        if (_left > 0) tell(ArchiveTrouble::damaged, zipTroubles::left(_left));
        const bool isPart = _isFull || !_outcome.isWhole() || isCut();
        if (isPart || _outcome.unpackedSize == _claim.unpackedSize) return;
        tell(ArchiveTrouble::damaged, zipTroubles::otherSize(_claim.unpackedSize, _outcome.unpackedSize));
    }

    void tellOfDescriptor(const ZipDataExtent& measured) const {
        std::array<char, ZipDescriptor::kLookAhead> bytes{};
        const auto there = _bytes.at(_outcome.dataEnd, bytes.size());
        std::copy(there.begin(), there.end(), bytes.begin());
        const auto descriptor = ZipDescriptor::read(bytes.data());
        if (!descriptor) {
            tell(ArchiveTrouble::damaged, "missing data descriptor");
        } else if (descriptor->packedSize != measured.packedSize || descriptor->unpackedSize != measured.unpackedSize) {
            tell(ArchiveTrouble::damaged, "the data descriptor contradicts the data");
        }
    }

    void end() {
        if (!_out) return;
        _out->flush();
        _out->close();
        _entries.endEntry(_entry, *_out);
    }

    bool isCut() const { return _reading.end() > _bytes.size(); }
    void tell(ArchiveTrouble what, const std::string& text) const { _entries.trouble(what, &_entry.name, text); }

    ContentBytes& _bytes;
    ArchiveEntryProcessor& _entries;
    const ZipClaim& _claim;
    const ZipReading& _reading;
    const ZipMethod* _method;
    BufferBaseInputStream _in;
    ZipEntryInfo _entry;
    int _action = kActionSkip;
    std::unique_ptr<OutputStream> _out;
    std::int64_t _left = 0;  // Packed bytes behind the data.
    bool _isFull = false;    // Somebody wanted no more.
    ZipOutcome _outcome;
};

ZipOutcome ZipReader::read(const ZipClaim& claim, const std::string& name, const ZipReading& reading,
                           const ZipDataExtent* measured) {
    return Offer(*this, claim, name, reading).loud(measured);
}

ZipOutcome ZipReader::readQuietly(const ZipClaim& claim, const std::string& name, const ZipReading& reading) {
    return Offer(*this, claim, name, reading).quiet();
}

}  // namespace ZOV_SPACE
