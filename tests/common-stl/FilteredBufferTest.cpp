#include "io/FilteredBufferBase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "io/ContinuousMemBufferBase.h"
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

TEST(FilteredBufferBase, answersQueriesForItsInnerBuffer) {
    ContinuousMemBufferBase inner(10);
    inner.append("abc", 3);
    FilteredBufferBase filter(&inner);
    EXPECT_EQ(filter.getMemAddress(), inner.getMemAddress());
    EXPECT_EQ(filter.view(1).data(), inner.getMemAddress() + 1);
    EXPECT_EQ(filter.getType(), BufferBase::kTypeMemory) << "the type is not forwarded";
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
        [&] { buffer.read(0); },        [&] { buffer.read(0, &byte, 1); },
        [&] { buffer.write(0, 'x'); },  [&] { buffer.write(0, "x", 1); },
        [&] { buffer.insert(0, 'x'); }, [&] { buffer.insert(0, "x", 1); },
        [&] { buffer.cut(0); },         [&] { buffer.cut(0, 1); },
        [&] { buffer.append('x'); },    [&] { buffer.append("x", 1); },
        [&] { buffer.truncate(0); },    [&] { static_cast<void>(buffer.getSize()); },
        [&] { buffer.view(0); },
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
        {"bulk write", [](BufferBase& b) { b.write(1, "xyz", 3); }, true},
        {"write inside", [](BufferBase& b) { b.write(2, 'x'); }, false},
        {"insert", [](BufferBase& b) { b.insert(0, 'x'); }, true},
        {"bulk insert", [](BufferBase& b) { b.insert(0, "x", 1); }, true},
        {"bulk append", [](BufferBase& b) { b.append("x", 1); }, true},
        {"cut", [](BufferBase& b) { b.cut(0, 1); }, false},
        {"truncate", [](BufferBase& b) { b.truncate(1); }, false},
    };
    for (const GrowCase& c : cases) {
        SCOPED_TRACE(c.why);
        for (const long limit : {3L, 0L, -1L}) {
            MemBufferBase inner;
            inner.append("abc", 3);
            LimitedBufferBase buffer(&inner, limit);
            const bool throws = c.throws && limit > 0;
            EXPECT_EQ(oversizeOf([&] { c.call(buffer); }), throws ? kExceeded : "<nothing>");
        }
    }
}

TEST(PipeBufferBase, handsBytesFromTheProducerToAWaitingReader) {
    constexpr int kBytes = 20000;
    MemBufferBase inner;
    PipeBufferBase pipe(&inner);
    PipeProducerOutputStream* producer = pipe.getProducerOutputStream();
    EXPECT_EQ(pipe.getProducerOutputStream(), producer);
    std::thread producing([&] {
        for (int i = 0; i < kBytes; i += 2) {
            const char two[] = {static_cast<char>(i), static_cast<char>(i + 1)};
            if (i % 4 == 0) {
                producer->write(two, 2);
            } else {
                producer->write(two[0]);
                producer->write(two[1]);
            }
        }
        producer->close();
    });
    long received = 0;
    char bytes[64];
    for (int count; (count = pipe.read(received, bytes, 64)) > 0; received += count) {
        for (int i = 0; i < count; ++i) ASSERT_EQ(bytes[i], static_cast<char>(received + i));
    }
    producing.join();
    EXPECT_EQ(received, kBytes);
    EXPECT_EQ(pipe.read(received), -1);
    EXPECT_TRUE(pipe.view(0).empty());
    EXPECT_EQ(thrownBy([&] { producer->write('x'); }), "Stream is already closed");
}

// Tells when a read met the end of the content.
class WatchedBuffer : public MemBufferBase {
public:
    int read(long pos) override { return watched(MemBufferBase::read(pos), -1); }
    int read(long pos, char* buf, int n) override { return watched(MemBufferBase::read(pos, buf, n), 0); }
    void awaitReadAtEnd() const {
        while (!_readAtEnd) std::this_thread::yield();
    }

private:
    int watched(int answer, int end) {
        if (answer == end) _readAtEnd = true;
        return answer;
    }

    std::atomic<bool> _readAtEnd = false;
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
        {"insert", [](PipeBufferBase& p) { p.insert(0, 'x'); }, 'x'},
        {"bulk insert", [](PipeBufferBase& p) { p.insert(0, "x", 1); }, 'x'},
        {"append", [](PipeBufferBase& p) { p.append('x'); }, 'x'},
        {"bulk append", [](PipeBufferBase& p) { p.append("x", 1); }, 'x'},
        {"the end of writing", [](PipeBufferBase& p) { p.closeWriting(); }, kEnd},
        {"an append that throws", [](PipeBufferBase& p) { oversizeOf([&] { p.append("xy", 2); }); }, kThrown},
    };
    for (const WakeCase& c : cases) {
        for (const bool bulk : {false, true}) {
            SCOPED_TRACE(testing::Message() << c.why << ", bulk read " << bulk);
            WatchedBuffer content;
            LimitedBufferBase inner(&content, 1);
            PipeBufferBase pipe(&inner);
            int answer = kThrown;
            std::thread reading([&] {
                char byte = 0;
                oversizeOf([&] { answer = !bulk ? pipe.read(0) : pipe.read(0, &byte, 1) == 1 ? byte : kEnd; });
            });
            content.awaitReadAtEnd();
            pipe.cut(0, 0);  // The reader gives the lock up only to sleep.
            c.call(pipe);
            reading.join();
            EXPECT_EQ(answer, c.answer);
        }
    }
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
