// StreamUnarchiver: a file that is nothing but compressed data, as an archive with one member.
#ifndef PAKFOLD_STREAMS_STREAMUNARCHIVER_H
#define PAKFOLD_STREAMS_STREAMUNARCHIVER_H

#include <cstdint>
#include <memory>
#include <string>

#include "ContentBytes.h"
#include "CoveredRanges.h"
#include "streams/StreamDecoder.h"
#include "unarchiver/DeepFormats.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// Streams that follow each other are one content, with or without zero bytes between them. What could be decoded of
// damaged ones is the member; whatever else stands behind them is told. Streams cost the scan's budget what they do not
// bring in bytes. All but the decoder are borrowed. Throws what OfferedEntry does.
class StreamUnarchiver : public Unarchiver {
public:
    StreamUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered,
                     std::unique_ptr<StreamDecoder> decoder);

    void start() override;

private:
    std::string contentName();
    void decode(OutputStream& out);
    std::int64_t decodeOne(std::int64_t position, DecodedOutput& decoded);
    std::int64_t behindZeros(std::int64_t position);
    void tellOfRest();

    ArchiveEntryProcessor& _entries;
    CoveredRanges& _covered;
    ContentBytes _bytes;
    std::unique_ptr<StreamDecoder> _decoder;
    std::int64_t _end = 0;  // Behind what was decoded whole.
    bool _isSound = true;
};

// Whether a content begins as ForeignFormat says by this name. Few others come before those formats, and none that the
// same content has, too; what is an archive of another kind need not be looked through for all that ForeignFormat
// knows.
bool beginsAsStream(ProbedContent& content, bool isHeld, std::string_view name);

// Has such files walked, by the decoder's name. While the library is loaded; true.
template <class Decoder>
bool registerStream() {
    return registerDeepFormat(
        {Decoder::kName,
         [](ProbedContent& content, bool isHeld) { return beginsAsStream(content, isHeld, Decoder::kName); },
         [](BufferBase* content, ArchiveEntryProcessor& entries,
            CoveredRanges& covered) -> std::unique_ptr<Unarchiver> {
             return std::make_unique<StreamUnarchiver>(content, entries, covered, std::make_unique<Decoder>());
         }});
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_STREAMS_STREAMUNARCHIVER_H
