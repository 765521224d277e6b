#include "unarchiver/Pakfold.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "support/ZipBuilder.h"
#include "unarchiver/Rar.h"
#include "unarchiver/VoleEngineFactory.h"
#include "unarchiver/Zip.h"

namespace ZOV_SPACE {
namespace {

TEST(Pakfold, whatBaseClassesLeaveOpenThrowsAtItsPublishedLine) {
    StringBuffer buffer("");
    BufferBaseInputStream in(&buffer);
    BufferBaseOutputStream out(&buffer);
    Archiver archiver;
    const std::vector<std::pair<int, std::function<void()>>> cases = {
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
    for (const std::string& name :
         {Encoder().getAlgorithmName(), Decoder().getAlgorithmName(), Decompressor().getAlgorithmName()}) {
        EXPECT_EQ(name, "none");
    }
}

// Throws an E from its check when the stream begins with its letter.
template <class E>
struct Picky : Unarchiver {
    Picky(InputStream*, ArchiveEntryProcessor&, DecompressProcessor*, unsigned) {}
    Picky(BufferBase*, ArchiveEntryProcessor&, DecompressProcessor*, unsigned) {}
    static bool checkFormat(InputStream& in) { return in.available() > 0 ? throw E("no") : true; }
};

TEST(Pakfold, idsTakeFailedChecksForNo) {
    StringBuffer empty(""), one("x");
    BufferBaseInputStream nothing(&empty), something(&one);
    EXPECT_TRUE(SimpleArchiveId<Picky<IOException>>().accept(nothing));
    EXPECT_FALSE(SimpleArchiveId<Picky<IOException>>().accept(something));
    EXPECT_FALSE(SimpleArchiveId<Picky<ArchivingException>>().accept(something));
    EXPECT_EQ(thrownBy<CompressionException>([&] { SimpleArchiveId<Picky<CompressionException>>().accept(something); }),
              "no");
    ArchiveEntryProcessor entries;
    for (ArchiveId* const no : {&ARCHIVEID_UNKNOWN, &ARCHIVEID_NONE}) {
        BufferBaseOutputStream out(&empty);
        EXPECT_FALSE(no->accept(something) || no->unarchiver(&something, entries, nullptr) ||
                     no->unarchiver(&one, entries, nullptr) || no->archiver(out) || no->entryArchivable(nullptr) ||
                     no->crc() || no->archivable());
    }
}

TEST(Pakfold, entriesAreOrderedByTheSignedProcessorWord) {
    ArchiveEntryInfo minus, zero;
    minus.processorWord = -1;
    EXPECT_TRUE(minus < zero);
    EXPECT_FALSE(zero < minus);
    EXPECT_FALSE(zero < zero);
}

struct Calls : ArchiveEntryProcessor {
    void beginUnarchiving() override { calls += "begin "; }
    std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& action) override {
        calls += "<" + entry->name + "> ";
        return ArchiveEntryProcessor::processEntry(entry, action);
    }
    void endUnarchiving() override { calls += "end "; }
    void releaseSession() override { calls += "release"; }
    std::string calls;
};

TEST(VoleEngineFactory, triesZipFirstAndMakesItsUnarchiver) {
    const auto& ids = *VoleEngineFactory::factory;
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_TRUE((dynamic_cast<CrcArchiveId<ZipUnarchiver, Iso3309Crc>*>(ids[0].get())));
    EXPECT_EQ(ids[0]->crc()->crc(), 0U);
    EXPECT_TRUE((dynamic_cast<CrcArchiveId<RarUnarchiver, RarCrc>*>(ids[1].get())));
    EXPECT_FALSE(ArchiveFactory::factory || PackFactory::factory);

    const std::string archive = ZipBuilder({{"a", "A"}, {"b", "B"}}).archive();
    StringBuffer buffer(archive), text("PK");
    BufferBaseInputStream in(&buffer), other(&text);
    EXPECT_EQ(&VoleEngineFactory::identify(other), &ARCHIVEID_NONE);
    const ArchiveId& zip = VoleEngineFactory::identify(in);
    ASSERT_EQ(&zip, ids[0].get());
    Calls overBuffer, overStream;
    zip.unarchiver(&buffer, overBuffer, nullptr)->start();
    zip.unarchiver(&in, overStream, nullptr)->start();
    EXPECT_EQ(overBuffer.calls, "begin <a> <b> <> end release");
    EXPECT_EQ(overStream.calls, overBuffer.calls);
}

}  // namespace
}  // namespace ZOV_SPACE
