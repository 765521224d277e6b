#include "io/FilteredBufferBase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "io/MemBufferBase.h"
#include "io/PipeBufferBase.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

constexpr char kExceeded[] = "BufferBase exceeded size limit";

template <class Call>
std::string oversizeOf(Call call) {
    return thrownBy<BufferBaseOverSizeException>(call);
}

TEST(LimitedBufferBase, refusesEverythingOnceTheContentPassesTheLimit) {
    MemBufferBase inner;
    LimitedBufferBase buffer(&inner, 100);
    const std::string content(100, 'x');
    buffer.append(content.data(), 100);
    EXPECT_EQ(buffer.getSize(), 100);
    EXPECT_EQ(oversizeOf([&] { buffer.append('y'); }), kExceeded);
    EXPECT_EQ(inner.getSize(), 101) << "the operation was carried out";
    inner.truncate(0);
    char byte;
    const std::function<void()> calls[] = {
        [&] { buffer.read(0); }, [&] { buffer.read(0, &byte, 1); }, [&] { buffer.write(0, "x", 1); },
        [&] { buffer.cut(0); },  [&] { buffer.append('x'); },       [&] { static_cast<void>(buffer.getSize()); },
        [&] { buffer.view(0); }, [&] { buffer.truncate(0); },       [&] { buffer.insert(0, 'x'); },
    };
    for (const auto& call : calls) EXPECT_EQ(oversizeOf(call), kExceeded);
    EXPECT_EQ(inner.getSize(), 0);
}

TEST(LimitedBufferBase, checksAfterWhatCanGrowTheContent) {
    struct GrowCase {
        const char* why;
        std::function<void(BufferBase&)> call;
        bool throws;
    };
    const GrowCase cases[] = {
        {"write beyond the end", [](BufferBase& b) { b.write(3, 'x'); }, true},
        {"write across the end", [](BufferBase& b) { b.write(1, "xyz", 3); }, true},
        {"write inside", [](BufferBase& b) { b.write(2, 'x'); }, false},
        {"bulk insert", [](BufferBase& b) { b.insert(0, "x", 1); }, true},
        {"bulk append", [](BufferBase& b) { b.append("x", 1); }, true},
        {"cut", [](BufferBase& b) { b.cut(0, 1); }, false},
    };
    for (const GrowCase& c : cases) {
        SCOPED_TRACE(c.why);
        for (const long limit : {3L, 0L, -1L}) {
            MemBufferBase inner;
            inner.append("abc", 3);
            LimitedBufferBase buffer(&inner, limit);
            EXPECT_EQ(oversizeOf([&] { c.call(buffer); }), c.throws && limit > 0 ? kExceeded : "<nothing>");
        }
    }
}

// Tells when a read met the end of the content.
class WatchedBuffer : public MemBufferBase {
public:
    int read(long pos) override {
        const int byte = MemBufferBase::read(pos);
        if (byte < 0) readAtEnd = true;
        return byte;
    }
    std::atomic<bool> readAtEnd = false;
};

// A lost wake-up shows as a test that never ends.
TEST(PipeBufferBase, wakesAReaderThatSleeps) {
    constexpr int kEnd = -1, kThrown = -2;
    struct WakeCase {
        const char* why;
        std::function<void(PipeBufferBase&)> call;
        int answer;
    };
    const WakeCase cases[] = {
        {"write", [](PipeBufferBase& p) { p.write(0, 'x'); }, 'x'},
        {"bulk write", [](PipeBufferBase& p) { p.write(0, "x", 1); }, 'x'},
        {"bulk append", [](PipeBufferBase& p) { p.append("x", 1); }, 'x'},
        {"the end of writing", [](PipeBufferBase& p) { p.closeWriting(); }, kEnd},
        {"an append that throws", [](PipeBufferBase& p) { oversizeOf([&] { p.append("xy", 2); }); }, kThrown},
    };
    for (const WakeCase& c : cases) {
        SCOPED_TRACE(c.why);
        WatchedBuffer content;
        LimitedBufferBase inner(&content, 1);
        PipeBufferBase pipe(&inner);
        int answer = kThrown;
        std::thread reading([&] { oversizeOf([&] { answer = pipe.read(0); }); });
        while (!content.readAtEnd) std::this_thread::yield();
        pipe.cut(0, 0);  // The reader gives the lock up only to sleep.
        c.call(pipe);
        reading.join();
        EXPECT_EQ(answer, c.answer);
    }
}

TEST(PipeBufferBase, handsBytesFromTheProducerToAWaitingReader) {
    MemBufferBase inner;
    PipeBufferBase pipe(&inner);
    PipeProducerOutputStream* producer = pipe.getProducerOutputStream();
    std::thread producing([&] {
        for (int i = 0; i < 20000; ++i) producer->write(static_cast<char>(i));
        producer->close();
    });
    long received = 0;
    char bytes[64];
    for (int count; (count = pipe.read(received, bytes, 64)) > 0; received += count) {
        ASSERT_EQ(bytes[count - 1], static_cast<char>(received + count - 1));
    }
    producing.join();
    EXPECT_EQ(received, 20000);
    EXPECT_EQ(pipe.read(received), -1);
    EXPECT_EQ(thrownBy([&] { producer->write('x'); }), "Stream is already closed");
}

TEST(PipeBufferBase, dropsWhatAnIgnoredProducerWrites) {
    MemBufferBase inner;
    PipeBufferBase pipe(&inner);
    PipeProducerOutputStream* producer = pipe.getProducerOutputStream();
    producer->write("kept");
    producer->ignoreProducer();
    EXPECT_EQ(producer->write("dropped"), 7);
    producer->close();
    EXPECT_EQ(inner.getSize(), 4);
}

}  // namespace
}  // namespace ZOV_SPACE
