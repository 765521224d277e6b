#include "ContentType.h"

#include <algorithm>
#include <iterator>

#include "FileTypeIdent.h"
#include "VoleUtil.h"
#include "io/BufferBaseStreams.h"
#include "io/IOBuffer.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/VoleEngineFactory.h"

namespace {

using ZOV_SPACE::BufferBase;
using ZOV_SPACE::FileTypeIdent;
using ZOV_SPACE::VoleEngineFactory;

struct TypeRow {
    int code;
    const char* words;
};

constexpr TypeRow kTypes[] = {
    {FileTypeIdent::kPlainText, "plain text"},
    {FileTypeIdent::kHtml, "HTML"},
    {FileTypeIdent::kVbScript, "VBScript"},
    {FileTypeIdent::kJavaScript, "JavaScript"},
    {FileTypeIdent::kBatch, "batch file"},
    {FileTypeIdent::kJpeg, "JPEG image"},
    {FileTypeIdent::kGif, "GIF image"},
    {FileTypeIdent::kPic, "PIC image"},
    {FileTypeIdent::kTiff, "TIFF image"},
    {FileTypeIdent::kPng, "PNG image"},
    {FileTypeIdent::kBmp, "BMP image"},
    {FileTypeIdent::kIco, "icon"},
    {FileTypeIdent::kMpegVideo, "MPEG video"},
    {FileTypeIdent::kAvi, "AVI video"},
    {FileTypeIdent::kFlc, "FLC animation"},
    {FileTypeIdent::kFli, "FLI animation"},
    {FileTypeIdent::kQuickTime, "QuickTime video"},
    {FileTypeIdent::kPatternFile, "signatures"},
    {FileTypeIdent::kMp3, "MP3 audio"},
    {FileTypeIdent::kWav, "WAV audio"},
    {FileTypeIdent::kMidi, "MIDI audio"},
    {FileTypeIdent::kExe, "DOS or NE executable"},
    {FileTypeIdent::kCom, "COM executable"},
    {FileTypeIdent::kPdf, "PDF document"},
    {FileTypeIdent::kWordDocument, "word processor document"},
    {FileTypeIdent::kWordTemplate, "word processor template"},
    {FileTypeIdent::kPowerPoint, "presentation"},
    {FileTypeIdent::kChm, "CHM help"},
    {FileTypeIdent::kZip, "ZIP archive"},
    {FileTypeIdent::kRar, "RAR archive"},
    {FileTypeIdent::kArc, "ARC archive"},
    {FileTypeIdent::kArj, "ARJ archive"},
    {FileTypeIdent::kTar, "tar archive"},
    {FileTypeIdent::kGzip, "gzip"},
    {FileTypeIdent::kCompress, "compress"},
    {FileTypeIdent::kMsCompress, "SZDD or KWAJ"},
    {FileTypeIdent::kCab, "CAB archive"},
    {FileTypeIdent::kZoo, "ZOO archive"},
};

const char* plainTypeOf(BufferBase& content) {
    const int code = FileTypeIdent::checkFileType(&content, "", "");
    const auto row =
        std::find_if(std::begin(kTypes), std::end(kTypes), [code](const TypeRow& known) { return known.code == code; });
    return row == std::end(kTypes) ? "data" : row->words;
}

// The archive that the content is by its beginning, or what else is known to hold members; null when it is neither.
const char* containerOf(BufferBase& content) {
    constexpr const char* kNames[] = {"ZIP archive", "RAR archive"};  // In the registry's order.
    ZOV_SPACE::BufferBaseInputStream stream(&content);
    const ZOV_SPACE::ArchiveId* const format = &VoleEngineFactory::identify(stream);
    for (std::size_t i = 0; VoleEngineFactory::factory && i < std::size(kNames); ++i) {
        if ((*VoleEngineFactory::factory)[i].get() == format) return kNames[i];
    }
    return ZOV_SPACE::foreignFormat(content);
}

}  // namespace

std::string typeOf(BufferBase& content) {
    if (content.getSize() == 0) return "empty";
    ZOV_SPACE::IOBuffer cursor(&content);
    const bool isPe = VoleUtil::checkPeFile(&cursor);
    const char* const container = containerOf(content);
    if (isPe) return std::string("PE executable") + (container ? std::string(", ") + container : "");
    return container ? container : plainTypeOf(content);
}
