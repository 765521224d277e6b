#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <tuple>

#include "io/MemBufferBase.h"
#include "support/Thrown.h"
#include "unused/LimitedBufferBase.h"
#include "unused/PipeBufferBase.h"

namespace ZOV_SPACE {
namespace {

template <class Call>
std::string oversizeOf(Call call) {
    return thrownBy<BufferBaseOverSizeException>(call);
}

// The limit is checked after what can grow the content; once the content is beyond it, every operation is refused.
TEST(LimitedBufferBase, refusesWhatPassesTheLimitAndEverythingFromThenOn) {
    const std::tuple<const char*, std::function<void(BufferBase&)>, bool> cases[] = {
        {"write beyond the end", [](BufferBase& b) { b.write(3, 'x'); }, true},
        {"write across the end", [](BufferBase& b) { b.write(1, "xyz", 3); }, true},
        {"write inside", [](BufferBase& b) { b.write(2, 'x'), b.write(0, "x", 1); }, false},
        {"insert", [](BufferBase& b) { b.insert(0, 'x'); }, true},
        {"bulk insert", [](BufferBase& b) { b.insert(0, "x", 1); }, true},
        {"append", [](BufferBase& b) { b.append('x'); }, true},
        {"bulk append", [](BufferBase& b) { b.append("x", 1); }, true},
        {"cut", [](BufferBase& b) { b.cut(2); }, false},
        {"bulk cut", [](BufferBase& b) { b.cut(2, 1); }, false},
        {"truncate", [](BufferBase& b) { b.truncate(3); }, false},
        {"read", [](BufferBase& b) { b.read(0); }, false},
        {"bulk read", [](BufferBase& b) { b.read(0, std::string(1, ' ').data(), 1); }, false},
        {"view", [](BufferBase& b) { b.view(0); }, false},
        {"size", [](BufferBase& b) { static_cast<void>(b.getSize()); }, false},
    };
    const std::string exceeded = "BufferBase exceeded size limit";
    for (const auto& [what, call, grows] : cases) {
        for (const long limit : {3L, 0L, -1L}) {
            MemBufferBase inner;
            inner.append("abc", 3);
            LimitedBufferBase buffer(&inner, limit);
            EXPECT_EQ(oversizeOf([&, &c = call] { c(buffer); }), grows && limit > 0 ? exceeded : "<nothing>") << what;
            EXPECT_EQ(inner.getSize() > 3, grows) << what << ": the operation was carried out";
            if (limit < 3) continue;
            oversizeOf([&] { buffer.append("xyz", 3); });
            const long size = inner.getSize();
            EXPECT_EQ(oversizeOf([&, &c = call] { c(buffer); }), exceeded) << what;
            EXPECT_EQ(inner.getSize(), size) << what;
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
    const std::tuple<const char*, std::function<void(PipeBufferBase&)>, int> cases[] = {
        {"write", [](PipeBufferBase& p) { p.write(0, 'x'); }, 'x'},
        {"bulk write", [](PipeBufferBase& p) { p.write(0, "x", 1); }, 'x'},
        {"bulk append", [](PipeBufferBase& p) { p.append("x", 1); }, 'x'},
        {"the producer", [](PipeBufferBase& p) { p.getProducerOutputStream()->write('x'); }, 'x'},
        {"the end of writing", [](PipeBufferBase& p) { p.closeWriting(); }, kEnd},
        {"the producer's end", [](PipeBufferBase& p) { p.getProducerOutputStream()->close(); }, kEnd},
        {"an append that throws", [](PipeBufferBase& p) { oversizeOf([&] { p.append("xy", 2); }); }, kThrown},
    };
    for (const auto& [why, call, expected] : cases) {
        WatchedBuffer content;
        LimitedBufferBase inner(&content, 1);
        PipeBufferBase pipe(&inner);
        int answer = kThrown;
        std::thread reading([&] { oversizeOf([&] { answer = pipe.read(0); }); });
        while (!content.readAtEnd) std::this_thread::yield();
        pipe.cut(0, 0);  // The reader gives the lock up only to sleep.
        call(pipe);
        reading.join();
        EXPECT_EQ(answer, expected) << why;
    }
}

TEST(PipeBufferBase, waitsInBulkReadsAndDropsWhatAnIgnoredProducerWrites) {
    MemBufferBase inner;
    PipeBufferBase pipe(&inner);
    PipeProducerOutputStream* const producer = pipe.getProducerOutputStream();
    std::thread producing([&] {
        for (int i = 0; i < 20000; ++i) producer->write(static_cast<char>(i));
        producer->ignoreProducer();
        EXPECT_EQ(producer->write("dropped"), 7);
        producer->close();
        pipe.closeWriting();
    });
    long received = 0;
    char bytes[64];
    for (int count; (count = pipe.read(received, bytes, 64)) > 0; received += count) {
        ASSERT_EQ(bytes[count - 1], static_cast<char>(received + count - 1));
    }
    producing.join();
    EXPECT_EQ(received, 20000);
    EXPECT_EQ(thrownBy([&] { producer->write('x'); }), "Stream is already closed");
}

}  // namespace
}  // namespace ZOV_SPACE
