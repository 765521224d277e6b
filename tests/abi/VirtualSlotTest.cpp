// Hosts call the framework's classes through their tables of virtual operations, so the order is fixed. A pointer to a
// virtual member function holds the offset of its slot plus one.
#include <gtest/gtest.h>

#include <bit>
#include <cstddef>

#include "io/BufferBase.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {
namespace {

template <class MemberFunction>
int slotOf(MemberFunction function) {
    struct Representation {
        std::ptrdiff_t slotOffsetPlusOne;
        std::ptrdiff_t adjustment;
    };
    const auto offset = std::bit_cast<Representation>(function).slotOffsetPlusOne - 1;
    return static_cast<int>(offset / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

// Slots 0 and 1 are the destructors, 2 is toString().

TEST(VirtualSlots, ofBufferBaseStandInTheirPublishedOrder) {
    const int slots[] = {
        slotOf(static_cast<int (BufferBase::*)(long)>(&BufferBase::read)),
        slotOf(static_cast<int (BufferBase::*)(long, char*, int)>(&BufferBase::read)),
        slotOf(static_cast<int (BufferBase::*)(long, char)>(&BufferBase::write)),
        slotOf(static_cast<int (BufferBase::*)(long, const char*, int)>(&BufferBase::write)),
        slotOf(static_cast<int (BufferBase::*)(long, char)>(&BufferBase::insert)),
        slotOf(static_cast<int (BufferBase::*)(long, const char*, int)>(&BufferBase::insert)),
        slotOf(static_cast<int (BufferBase::*)(long)>(&BufferBase::cut)),
        slotOf(static_cast<int (BufferBase::*)(long, int)>(&BufferBase::cut)),
        slotOf(static_cast<int (BufferBase::*)(char)>(&BufferBase::append)),
        slotOf(static_cast<int (BufferBase::*)(const char*, int)>(&BufferBase::append)),
        slotOf(&BufferBase::truncate),
        slotOf(&BufferBase::getSize),
        slotOf(&BufferBase::isValid),
        slotOf(&BufferBase::discardUsedBuffer),
        slotOf(&BufferBase::getMemAddress),
        slotOf(&BufferBase::getFileDescriptor),
        slotOf(&BufferBase::getType),
        slotOf(&BufferBase::view),
    };
    int expected = 3;
    for (int slot : slots) EXPECT_EQ(slot, expected++);
}

TEST(VirtualSlots, ofTheStreamsStandInTheirPublishedOrder) {
    const int inputSlots[] = {
        slotOf(&InputStream::available),
        slotOf(&InputStream::close),
        slotOf(static_cast<int (InputStream::*)()>(&InputStream::read)),
        slotOf(static_cast<int (InputStream::*)(char*, int)>(&InputStream::read)),
        slotOf(&InputStream::skip),
        slotOf(&InputStream::markSupported),
        slotOf(&InputStream::mark),
        slotOf(&InputStream::reset),
    };
    const int outputSlots[] = {
        slotOf(&OutputStream::close),
        slotOf(&OutputStream::flush),
        slotOf(static_cast<int (OutputStream::*)(char)>(&OutputStream::write)),
        slotOf(static_cast<int (OutputStream::*)(const char*)>(&OutputStream::write)),
        slotOf(static_cast<int (OutputStream::*)(const char*, int)>(&OutputStream::write)),
    };
    int expected = 3;
    for (int slot : inputSlots) EXPECT_EQ(slot, expected++);
    expected = 3;
    for (int slot : outputSlots) EXPECT_EQ(slot, expected++);
}

TEST(BufferBaseLayout, hasOnlyThePublishedFields) {
    struct Fields {
        void* table;
        long size;
        bool valid;
        bool discarded;
        int type;
    };
    EXPECT_EQ(sizeof(BufferBase), sizeof(Fields));
}

}  // namespace
}  // namespace ZOV_SPACE
