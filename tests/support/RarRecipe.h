// RarRecipe.h: RAR archives that rows of text describe.
#ifndef TESTS_SUPPORT_RARRECIPE_H
#define TESTS_SUPPORT_RARRECIPE_H

#include <sstream>
#include <string>

#include "GoldenRows.h"
#include "RarBuilder.h"
#include "RarEncoder.h"
#include "ZipBuilder.h"
#include "rar/RarBlock.h"

namespace ZOV_SPACE {

// `depth` blocks, each within the one before it. The block around them needs the flag that announces them.
inline std::string nestedArchives(unsigned depth) {
    std::string inner = RarBuilder::block(0x75, 0, "text");
    for (unsigned i = 1; i < depth; ++i) inner = RarBuilder::archive(RarBlock::kHasNested, inner);
    return inner;
}

// A block that words like "key=value" tell of: one with a type as it is, otherwise that of a file that holds "hello".
inline std::string blockOf(const std::string& text) {
    GoldenValues values = valuesIn(text);
    const auto number = [&](const char* key) { return numberIn(values, key); };
    const unsigned flags = number("flags").value_or(0);
    const std::string extra = values["extra"] + (values.contains("nested") ? nestedArchives(*number("nested")) : "");
    if (const auto type = number("type")) {
        return RarBuilder::block(*type, flags, extra, values["data"], number("size"), number("crc").value_or(0));
    }
    RarFile file;
    file.name = values.contains("name") ? values["name"] : "a", file.data = "hello", file.flags = flags;
    file.method = number("method").value_or(file.method), file.unpVer = 15;
    file.salt = values["salt"], file.extendedTime = values["times"], file.extra = extra;
    file.packedHigh = number("packedHigh").value_or(0), file.unpackedHigh = number("unpackedHigh").value_or(0);
    file.packedSize = number("packed"), file.unpackedSize = number("unpacked");
    file.nameSize = number("nameSize"), file.headerSize = number("size");
    file.hasDataFlag = !values.contains("noDataFlag"), file.extraInCrc = !values.contains("crcWithoutExtra");
    file.broken = values.contains("broken");
    if (values.contains("text")) {  // Packed, by a method of 20, unless the row says otherwise.
        const std::string content = values["text"];
        file.data = RarEncoder::literals(20, content), file.method = 0x33, file.unpVer = number("version").value_or(20);
        file.unpackedSize = number("unpacked").value_or(static_cast<std::uint32_t>(content.size()));
    }
    if (values.contains("data")) file.data = values["data"];
    return RarBuilder::file(file);
}

// What pieces, each with ';' behind it, say one after the other: "mark", "archive=FLAGS" for that header, "end", bytes
// as they are behind "raw="; "zipped" and "stored" for all before as the only member, stored, of an archive; and
// blocks.
inline std::string rarOfRecipe(const std::string& recipe) {
    std::istringstream pieces(recipe);
    std::string bytes;
    for (std::string piece; std::getline(pieces, piece, ';');) {
        if (piece == "zipped") {
            bytes = ZipBuilder({{"z", bytes, 0}}).archive();
        } else if (piece == "stored") {
            bytes = RarBuilder::marker() + RarBuilder::archive() + RarBuilder::stored("r", bytes) + RarBuilder::end();
        } else if (piece.starts_with("raw=")) {
            bytes += piece.substr(4);
        } else if (piece.starts_with("archive=")) {
            bytes += RarBuilder::archive(numbersIn(piece.substr(8))[0]);
        } else {
            bytes += piece == "mark" ? RarBuilder::marker() : piece == "end" ? RarBuilder::end() : blockOf(piece);
        }
    }
    return bytes;
}

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_RARRECIPE_H
