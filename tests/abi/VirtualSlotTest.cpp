// The order of virtual operations is part of the framework's contract. A pointer to a
// virtual member function holds the offset of its slot plus one.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstddef>
#include <memory>
#include <vector>

#include "io/BufferBase.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {
namespace {

template <class Signature, class Class>
int slotOf(Signature Class::*function) {
    const auto offset = std::bit_cast<std::array<std::ptrdiff_t, 2>>(function)[0] - 1;
    return static_cast<int>(offset / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

TEST(VirtualSlots, standInTheirPublishedOrder) {
    using B = BufferBase;
    using I = InputStream;
    using O = OutputStream;
    using A = ArchiveId;
    using P = ArchiveEntryProcessor;
    using D = DecompressProcessor;
    using W = Archiver;
    using Made = std::unique_ptr<Unarchiver>;
    constexpr int kNothing = -1, kDestructors = 1, kToString = 2;
    // Each begins with the slot that the ones named follow on.
    const std::vector<int> classes[] = {
        {kToString, slotOf<int(long)>(&B::read), slotOf<int(long, char*, int)>(&B::read),
         slotOf<int(long, char)>(&B::write), slotOf<int(long, const char*, int)>(&B::write),
         slotOf<int(long, char)>(&B::insert), slotOf<int(long, const char*, int)>(&B::insert),
         slotOf<int(long)>(&B::cut), slotOf<int(long, int)>(&B::cut), slotOf<int(char)>(&B::append),
         slotOf<int(const char*, int)>(&B::append), slotOf(&B::truncate), slotOf(&B::getSize), slotOf(&B::isValid),
         slotOf(&B::discardUsedBuffer), slotOf(&B::getMemAddress), slotOf(&B::getFileDescriptor), slotOf(&B::getType),
         slotOf(&B::view)},
        {kToString, slotOf(&I::available), slotOf(&I::close), slotOf<int()>(&I::read),
         slotOf<int(char*, int)>(&I::read), slotOf(&I::skip), slotOf(&I::markSupported), slotOf(&I::mark),
         slotOf(&I::reset)},
        {kToString, slotOf(&O::close), slotOf(&O::flush), slotOf<int(char)>(&O::write),
         slotOf<int(const char*)>(&O::write), slotOf<int(const char*, int)>(&O::write)},
        {kDestructors, slotOf(&A::accept), slotOf<Made(InputStream*, P&, D*) const>(&A::unarchiver),
         slotOf<Made(BufferBase*, P&, D*) const>(&A::unarchiver), slotOf(&A::archiver), slotOf(&A::entryArchivable),
         slotOf(&A::crc), slotOf(&A::archivable)},
        {kDestructors, slotOf(&P::beginUnarchiving), slotOf(&P::processEntry), slotOf(&P::endUnarchiving),
         slotOf(&P::releaseSession), slotOf(&P::endEntry), slotOf(&P::trouble), slotOf(&P::persists)},
        {kDestructors, slotOf(&Decompressor::decompress), slotOf(&Decompressor::getAlgorithm),
         slotOf(&Decompressor::getAlgorithmName)},
        {kDestructors, slotOf(&W::addEntry), slotOf<void(ArchiveEntryInfo*, InputStream&)>(&W::addRawEntry),
         slotOf<void(ArchiveEntry*)>(&W::addRawEntry), slotOf(&W::finish)},
        {kDestructors, slotOf(&Unarchiver::start)},
        {kNothing, slotOf(&D::init), slotOf(&D::setFileName), slotOf(&D::setContentType),
         slotOf<int(InputStream*)>(&D::check), slotOf<int(BufferBase*)>(&D::check), slotOf(&D::requiredLength),
         slotOf(&D::getAction)},
    };
    for (const std::vector<int>& slots : classes) {
        for (std::size_t i = 1; i < slots.size(); ++i) EXPECT_EQ(slots[i], slots[0] + static_cast<int>(i));
    }
}

TEST(BufferBaseLayout, hasOnlyThePublishedFields) {
    struct Fields {
        void* table;
        long size;
        bool valid, discarded;
        int type;
    };
    EXPECT_EQ(sizeof(BufferBase), sizeof(Fields));
}

}  // namespace
}  // namespace ZOV_SPACE
