#include "unarchiver/Pakfold.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "support/StringBuffer.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

TEST(Pakfold, whatBaseClassesLeaveOpenThrowsAtItsPublishedLine) {
    StringSource source("");
    BufferBaseInputStream& in = source.stream;
    BufferBaseOutputStream out(&source.buffer);
    Archiver archiver;
    const std::pair<int, std::function<void()>> cases[] = {
        {130, [&] { Encoder().encode(in, out); }},
        {160, [&] { Decoder().decode(in, out); }},
        {296, [&] { Decompressor().decompress(in, out); }},
        {497, [&] { archiver.addEntry(nullptr, in); }},
        {502, [&] { archiver.addRawEntry(nullptr, in); }},
        {508, [&] { archiver.addRawEntry(nullptr); }},
        {514, [&] { archiver.finish(); }},
        {664, [] { Unarchiver().start(); }},
    };
    for (const auto& [line, call] : cases) {
        try {
            call();
            ADD_FAILURE() << line;
        } catch (ArchivingException& e) {
            EXPECT_EQ(e.getErrorLocation() + " " + e.getMessage(),
                      "Pakfold, line" + std::to_string(line) + " Unimplemented");
        }
    }
}

// Throws an E from its check.
template <class E>
struct Picky : Unarchiver {
    Picky(InputStream*, ArchiveEntryProcessor&, DecompressProcessor*, unsigned) {}
    Picky(BufferBase*, ArchiveEntryProcessor&, DecompressProcessor*, unsigned) {}
    static bool checkFormat(InputStream&) { throw E("no"); }
};

TEST(Pakfold, idsTakeFailedChecksForNo) {
    StringSource one("x");
    EXPECT_FALSE(SimpleArchiveId<Picky<IOException>>().accept(one.stream));
    EXPECT_FALSE(SimpleArchiveId<Picky<ArchivingException>>().accept(one.stream));
    const SimpleArchiveId<Picky<CompressionException>> strict;
    EXPECT_EQ(thrownBy<CompressionException>([&] { strict.accept(one.stream); }), "no");
    ArchiveEntryProcessor entries;
    BufferBaseOutputStream out(&one.buffer);
    for (ArchiveId* const no : {&ARCHIVEID_UNKNOWN, &ARCHIVEID_NONE}) {
        EXPECT_FALSE(no->accept(one.stream) || no->unarchiver(&one.stream, entries, nullptr) ||
                     no->unarchiver(&one.buffer, entries, nullptr) || no->archiver(out) ||
                     no->entryArchivable(nullptr) || no->crc() || no->archivable());
    }
    ArchiveEntryInfo minus, zero;
    minus.processorWord = -1;
    EXPECT_TRUE(minus < zero && !(zero < minus) && !(zero < zero)) << "entries go by the signed word";
}

}  // namespace
}  // namespace ZOV_SPACE
