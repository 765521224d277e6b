// One contract, every buffer: each storage and each forwarding buffer must behave like a std::string. Then what each of
// them adds to that.
#include "io/BufferBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <tuple>

#include "io/ContinuousMemBufferBase.h"
#include "io/FileBufferBase.h"
#include "io/FileViewBufferBase.h"
#include "io/MemBufferBase.h"
#include "io/SmartBufferBase.h"
#include "support/Content.h"
#include "support/FileSizeLimit.h"
#include "support/Thrown.h"
#include "unused/LimitedBufferBase.h"
#include "unused/PipeBufferBase.h"

namespace ZOV_SPACE {
namespace {

constexpr char kOutOfBound[] = "Index out of bound";

// A buffer under test with what it borrows.
struct Subject {
    const char* name;
    std::unique_ptr<BufferBase> inner;
    std::unique_ptr<BufferBase> buffer;
};

std::vector<Subject> allBuffers() {
    auto limitedInner = std::make_unique<MemBufferBase>(), pipedInner = std::make_unique<MemBufferBase>();
    auto limited = std::make_unique<LimitedBufferBase>(limitedInner.get(), 0);
    auto piped = std::make_unique<PipeBufferBase>(pipedInner.get());
    piped->closeWriting();
    std::vector<Subject> all;
    all.push_back({"limited", std::move(limitedInner), std::move(limited)});
    all.push_back({"piped", std::move(pipedInner), std::move(piped)});
    all.push_back({"blocks, room announced", nullptr, std::make_unique<MemBufferBase>(50000)});
    all.push_back({"contiguous", nullptr, std::make_unique<ContinuousMemBufferBase>(0)});
    all.push_back({"named file", nullptr, std::make_unique<FileBufferBase>("/tmp")});
    all.push_back({"view of an empty file", nullptr, std::make_unique<FileViewBufferBase>(TempFile().fd(), 0)});
    for (const auto policy : {kMemoryPolicy, kMemoryOrFilePolicy, kContinuousOrFilePolicy}) {
        all.push_back({"smart", nullptr, std::make_unique<SmartBufferBase>(policy)});
    }
    return all;
}

// Random operations, applied to a buffer and to a string.
void runScript(BufferBase& buffer, std::string model, unsigned seed, int steps) {
    static constexpr int kLengths[] = {1, 1, 1, 1, 2, 5, 100, 700, 4095, 4096, 4097, 16383, 16384, 16385};
    std::mt19937 random(seed);
    const auto pick = [&](std::size_t below) { return random() % below; };
    const auto pickPosition = [&] {
        const std::size_t size = model.size(), edge = pick(2) ? 4096 : 16384;
        const std::size_t positions[] = {
            0, size, size + 1, pick(size + 1), pick(size / edge + 1) * edge, size + pick(6000)};
        return positions[pick(std::size(positions))];
    };
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(testing::Message() << "step " << step);
        const std::size_t at = pickPosition();
        const long pos = static_cast<long>(at);
        const int count = kLengths[pick(std::size(kLengths))];
        std::string bytes(static_cast<std::size_t>(count), '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        const bool single = count == 1 && pick(2);
        const std::size_t cuttable = at < model.size() ? std::min(bytes.size(), model.size() - at) : 0;
        switch (model.size() > 50000 ? 4 : pick(5)) {
            case 0:
                EXPECT_EQ(single ? buffer.write(pos, bytes[0]) : buffer.write(pos, bytes.data(), count), count);
                model.resize(std::max(model.size(), at + bytes.size()));
                model.replace(at, bytes.size(), bytes);
                break;
            case 1:
                EXPECT_EQ(single ? buffer.insert(pos, bytes[0]) : buffer.insert(pos, bytes.data(), count), count);
                model.resize(std::max(model.size(), at));
                model.insert(at, bytes);
                break;
            case 2:
                EXPECT_EQ(single ? buffer.append(bytes[0]) : buffer.append(bytes.data(), count), count);
                model += bytes;
                break;
            case 3:
                EXPECT_EQ(single ? buffer.cut(pos) : buffer.cut(pos, count), static_cast<int>(cuttable));
                model.erase(std::min(at, model.size()), cuttable);
                break;
            default:
                if (model.size() < 50000 && pick(4)) break;
                EXPECT_EQ(buffer.truncate(pos), 0);
                model.resize(std::min(model.size(), at));
        }
        const std::size_t spot = pickPosition();
        const std::string expected = spot < model.size() ? model.substr(spot, 300) : "";
        ASSERT_EQ(buffer.getSize(), static_cast<long>(model.size()));
        ASSERT_EQ(buffer.read(static_cast<long>(spot), bytes.assign(300, '?').data(), 300),
                  static_cast<int>(expected.size()));
        EXPECT_TRUE(bytes.substr(0, expected.size()) == expected);
        EXPECT_EQ(buffer.read(static_cast<long>(spot)),
                  expected.empty() ? -1 : static_cast<unsigned char>(expected[0]));
        const std::span<const char> piece = buffer.view(static_cast<long>(spot));
        EXPECT_EQ(piece.empty(), expected.empty() || buffer.view(0).empty());
        EXPECT_TRUE(piece.empty() || model.compare(spot, piece.size(), piece.data(), piece.size()) == 0);
        if (step % 40 < 39) continue;
        EXPECT_TRUE(contentOf(buffer) == model);
        const int fd = buffer.getFileDescriptor();
        std::string inFile(model.size() + 1, '?');
        EXPECT_TRUE(fd < 0 || ::pread(fd, inFile.data(), inFile.size(), 0) == static_cast<ssize_t>(model.size()));
        EXPECT_TRUE(fd < 0 || inFile.compare(0, model.size(), model) == 0);
    }
}

TEST(BufferBase, behavesLikeAStringInEveryStorage) {
    const long barrier = std::exchange(SmartBufferBase::_barrier, 8192);
    for (unsigned seed = 1; seed <= 3; ++seed) {
        for (Subject& subject : allBuffers()) {
            SCOPED_TRACE(testing::Message() << subject.name << ", seed " << seed);
            runScript(*subject.buffer, "", seed, 400);
        }
    }
    SmartBufferBase::_barrier = barrier;
}

// Every operation on content, at a position where it has one.
struct Operation {
    const char* name;
    std::function<void(BufferBase&, long)> call;
    bool placed = false;  // Has a position, which must not be negative.
    bool grows = false;   // Makes the content longer at its end.
    bool checks = false;  // A SmartBufferBase looks at its barrier before.
};

const Operation kOperations[] = {
    {"read", [](BufferBase& b, long at) { b.read(at); }, true},
    {"bulk read", [](BufferBase& b, long at) { b.read(at, std::string(1, ' ').data(), 1); }, true},
    {"write", [](BufferBase& b, long at) { b.write(at, 'x'); }, true, true, true},
    {"bulk write", [](BufferBase& b, long at) { b.write(at, "x", 1); }, true, true, true},
    {"insert", [](BufferBase& b, long at) { b.insert(at, 'x'); }, true, true, true},
    {"bulk insert", [](BufferBase& b, long at) { b.insert(at, "x", 1); }, true, true, true},
    {"cut", [](BufferBase& b, long at) { b.cut(at); }, true},
    {"bulk cut", [](BufferBase& b, long at) { b.cut(at, 1); }, true, false, true},
    {"truncate", [](BufferBase& b, long at) { b.truncate(at); }, true},
    {"append", [](BufferBase& b, long) { b.append('x'); }, false, true, true},
    {"bulk append", [](BufferBase& b, long) { b.append("x", 1); }, false, true},
    {"view", [](BufferBase& b, long at) { b.view(at); }},
    {"size", [](BufferBase& b, long) { static_cast<void>(b.getSize()); }},
};

TEST(BufferBase, keepsTheCommonRulesInEveryStorage) {
    for (Subject& subject : allBuffers()) {
        SCOPED_TRACE(subject.name);
        BufferBase& buffer = *subject.buffer;
        char byte = 0;
        for (const Operation& operation : kOperations) {
            const std::string error = operation.placed ? kOutOfBound : "<nothing>";
            EXPECT_EQ(thrownBy([&] { operation.call(buffer, -1); }), error) << operation.name;
        }
        buffer.truncate(0);
        EXPECT_EQ(thrownBy([&] { buffer.write(LONG_MAX - 1, "xy", 2); }), kOutOfBound);
        EXPECT_EQ(buffer.write(10, "ab", 2), 2);
        EXPECT_EQ(buffer.write(100, nullptr, 5) + buffer.write(100, "x", 0) + buffer.insert(100, "x", -1), 0);
        EXPECT_EQ(buffer.append(nullptr, 5) + buffer.append("x", -1) + buffer.cut(0, 0), 0);
        EXPECT_EQ(buffer.read(0, nullptr, 5) + buffer.read(0, &byte, 0) + buffer.read(12, &byte, 1), 0);
        EXPECT_EQ(buffer.read(LONG_MAX), -1);
        EXPECT_EQ(buffer.cut(LONG_MAX, INT_MAX) + buffer.truncate(LONG_MAX), 0);
        EXPECT_EQ(buffer.cut(11, INT_MAX), 1);
        EXPECT_EQ(contentOf(buffer), std::string(10, '\0') + "a");
        EXPECT_TRUE(buffer.view(-1).empty() && buffer.view(11).empty());
        std::thread appending([&] {
            for (int i = 0; i < 3000; ++i) buffer.append('x');
        });
        for (long size = 11, now; size < 3011; size = now) EXPECT_GE(now = buffer.getSize(), size) << "a torn size";
        appending.join();
    }
}

TEST(BufferBase, saysBrokenWhenTheStorageCouldNotBeMade) {
    const std::unique_ptr<BufferBase> broken[] = {
        std::make_unique<FileBufferBase>("/nowhere"), std::make_unique<SmartBufferBase>(BufferBasePolicy{5}),
        std::make_unique<ContinuousMemBufferBase>(INT_MAX), SmartBufferBase::viewOf(0, -1)};
    for (const auto& buffer : broken) {
        EXPECT_TRUE(!buffer->isValid() && buffer->getSize() == 0 && buffer->view(0).empty());
        for (const Operation& operation : kOperations) {
            const std::string error = operation.placed || operation.grows ? "Broken BufferBase" : "<nothing>";
            EXPECT_EQ(thrownBy([&] { operation.call(*buffer, 0); }), error) << operation.name << &buffer - broken;
        }
    }
}

template <class Buffer>
void fillInPlace(Buffer&& buffer) {
    std::string expected;
    for (int size : {2, 100, 4096, 5000, 20000}) {
        const std::span<char> space = buffer.appendSpace(size);
        ASSERT_EQ(space.size(), static_cast<std::size_t>(size));
        std::fill(space.begin(), space.end(), 'a');
        buffer.commitAppend(size / 2);
        buffer.write(buffer.getSize() + 10, 'z');  // The gap lies where uncommitted bytes were left.
        expected += std::string(static_cast<std::size_t>(size / 2), 'a') + std::string(10, '\0') + "z";
        ASSERT_TRUE(contentOf(buffer) == expected) << size;
    }
    EXPECT_EQ(thrownBy([&] { buffer.appendSpace(LONG_MAX); }), kOutOfBound);
    const std::function<void()> forfeits[] = {[&] { buffer.commitAppend(5); }, [&] { buffer.append("x", 1); },
                                              [&] { buffer.insert(0, 'x'); }, [&] { buffer.truncate(1); }};
    for (const auto& forfeit : forfeits) {
        buffer.appendSpace(10);
        EXPECT_EQ(thrownBy([&] { buffer.commitAppend(11); }), kOutOfBound);
        forfeit();
        EXPECT_EQ(thrownBy([&] { buffer.commitAppend(1); }), kOutOfBound) << &forfeit - forfeits;
    }
}

TEST(MemoryBuffers, canBeFilledInPlace) {
    fillInPlace(MemBufferBase(4500));
    fillInPlace(ContinuousMemBufferBase(0));
    fillInPlace(SmartBufferBase());
    EXPECT_TRUE(SmartBufferBase(kFilePolicy).appendSpace(10).empty());
}

TEST(FileBufferBase, namesItsFileAndRemovesNoOther) {
    FileBufferBase buffer("/tmp");
    const std::string path = buffer.getPath();
    buffer.append("abc", 3);
    buffer.open();  // Already so.
    buffer.close();
    EXPECT_EQ(TempDir::contentOf(path), "abc") << "close() writes what waits";
    EXPECT_EQ(thrownBy([&] { buffer.read(0); }), "Broken BufferBase");
    buffer.open();
    EXPECT_EQ(buffer.getSize(), 0);
    const std::string gone = FileBufferBase("/tmp").getPath();
    FileBufferBase(path.c_str()).open();  // No directory.
    EXPECT_TRUE(std::filesystem::exists(path) && !std::filesystem::exists(gone));
    const char text[] = "The method is not supported, if the file name is empty.";
    EXPECT_EQ(thrownBy([] { FileBufferBase().open(); }), text);
    EXPECT_EQ(thrownBy([] { FileBufferBase().close(); }), text);
}

TEST(FileBufferBase, losesNoByteWhenTheFileCannotGrow) {
    const std::string added(10000, 'a');
    std::string content = numbered(60000);
    FileBufferBase buffer;
    buffer.append(content.data(), 60000);
    const auto untilFull = [&] {
        for (;; content += 'b') buffer.append('b');  // These wait for a while.
    };
    const std::function<void()> calls[] = {
        [&] { buffer.append(added.data(), 10000); },
        [&] { buffer.write(55600, added.data(), 10000); },
        [&] { buffer.insert(5, added.data(), 10000); },
        untilFull,
        untilFull,
        [&] { buffer.getFileDescriptor(); },
    };
    {
        const FileSizeLimit limit(65536);
        for (const auto& call : calls) EXPECT_EQ(thrownBy(call), "File too large") << &call - calls;
    }
    EXPECT_TRUE(contentOf(buffer) == content);
    const long end = buffer.getSize();
    EXPECT_EQ(buffer.write(end + 10000, "x", 1), 1);
    EXPECT_TRUE(contentOf(buffer) == content + std::string(10000, '\0') + "x") << "nothing of the failed writes shows";
}

TEST(FileViewBufferBase, behavesLikeAStringAndLeavesTheFileAlone) {
    const std::string content = numbered(40000);
    for (unsigned seed = 1; seed <= 4; ++seed) {
        TempFile file(content + "beyond the view");
        FileViewBufferBase view(file.fd(), 40000);
        EXPECT_TRUE(contentOf(view) == content);
        const int viewed = view.getFileDescriptor();
        EXPECT_EQ(view.cut(40000, 5) + view.write(0, nullptr, 1) + view.truncate(40000), 0);
        EXPECT_EQ(view.getFileDescriptor(), viewed) << "nothing changed, so nothing was copied";
        {
            const FileSizeLimit limit(9999);
            EXPECT_EQ(thrownBy([&] { view.write(0, 'x'); }), "File too large");
        }
        EXPECT_EQ(view.getFileDescriptor(), viewed) << "the copy failed";
        view.write(0, content[0]);  // The copy's file holds the content and no more.
        runScript(view, content, seed, 320);
        EXPECT_TRUE(file.content() == content + "beyond the view");
        EXPECT_FALSE(view.sourceFailed());
    }
    TempFile shorter("0123456789");
    FileViewBufferBase view(shorter.fd(), 20);
    EXPECT_EQ(contentOf(view), "0123456789");
    view.append('x');
    EXPECT_EQ(view.getSize(), 11) << "the copy is what could be read";
    EXPECT_TRUE(view.sourceFailed());
}

constexpr long kBarrier = 1048576;

// Which storage a buffer has, by what it can tell: a file has a descriptor, a contiguous area an address.
std::string storageOf(SmartBufferBase& buffer) {
    if (!buffer.isValid()) return "none";
    if (buffer.getFileDescriptor() >= 0) return "file";
    return buffer.getMemAddress() ? "area" : "blocks";
}

TEST(SmartBufferBase, choosesTheStorageByPolicyAndAnnouncedSize) {
    const std::pair<std::string, std::string> policies[] = {{"blocks", "blocks"}, {"blocks", "file"}, {"area", "area"},
                                                            {"area", "file"},     {"file", "file"},   {"none", "none"}};
    for (const auto& storages : policies) {
        const auto policy = static_cast<BufferBasePolicy>(&storages - policies);
        SmartBufferBase atBarrier(kBarrier, policy), beyondBarrier(kBarrier + 1, policy);
        EXPECT_EQ(std::pair(storageOf(atBarrier), storageOf(beyondBarrier)), storages) << policy;
    }
}

// The content is moved before an operation when it is beyond the barrier then; bulk appends never move it.
TEST(SmartBufferBase, movesOnlyInTheOperationsThatCheckAndBeforeTheyWrite) {
    for (const Operation& operation : kOperations) {
        for (const auto policy : {kMemoryPolicy, kMemoryOrFilePolicy, kContinuousOrFilePolicy}) {
            for (const long size : {kBarrier, 2 * kBarrier}) {
                SmartBufferBase buffer(policy);
                buffer.append(std::string(static_cast<std::size_t>(size), 'o').data(), static_cast<int>(size));
                operation.call(buffer, kBarrier + 1);
                const bool inFile = policy != kMemoryPolicy && operation.checks && size > kBarrier;
                EXPECT_EQ(storageOf(buffer) == "file", inFile) << operation.name << policy << size;
                EXPECT_EQ(buffer.read(kBarrier - 2), 'o');
            }
        }
    }
}

TEST(SmartBufferBase, keepsItsContentWhenTheMoveFails) {
    SmartBufferBase buffer;
    buffer.append(std::string(2 * kBarrier, 'o').data(), 2 * kBarrier);
    {
        const FileSizeLimit limit(2 * kBarrier - 4096);
        EXPECT_EQ(thrownBy([&] { buffer.append('x'); }), "File too large");
    }
    EXPECT_EQ(storageOf(buffer), "blocks");
    EXPECT_EQ(buffer.getSize(), 2 * kBarrier);
    buffer.append('x');
    EXPECT_EQ(storageOf(buffer), "file");
}

constexpr auto oversizeOf = [](auto call) { return thrownBy<BufferBaseOverSizeException>(call); };

// The limit is checked after what can grow the content; once the content is beyond it, every operation is refused.
TEST(LimitedBufferBase, refusesWhatPassesTheLimitAndEverythingFromThenOn) {
    const std::string exceeded = "BufferBase exceeded size limit";
    for (const Operation& operation : kOperations) {
        for (const long limit : {3L, 0L, -1L}) {
            SCOPED_TRACE(operation.name);
            MemBufferBase inner;
            inner.append("abc", 3);
            LimitedBufferBase buffer(&inner, limit);
            const auto answer = [&] { return oversizeOf([&] { operation.call(buffer, 3); }); };
            EXPECT_EQ(oversizeOf([&] { buffer.write(2, "x", 1); }), "<nothing>");
            EXPECT_EQ(answer(), operation.grows && limit > 0 ? exceeded : "<nothing>");
            EXPECT_EQ(inner.getSize() > 3, operation.grows) << "it was carried out";
            if (limit < 3) continue;
            oversizeOf([&] { buffer.append("xyz", 3); });
            const long size = inner.getSize();
            EXPECT_EQ(answer(), exceeded);
            EXPECT_EQ(inner.getSize(), size);
        }
    }
}

// A lost wake-up shows as a test that never ends.
TEST(PipeBufferBase, wakesAReaderThatSleeps) {
    constexpr int kEnd = -1, kThrown = -2;
    const std::tuple<const char*, std::function<void(PipeBufferBase&, PipeProducerOutputStream&)>, int> cases[] = {
        {"write", [](auto& p, auto&) { p.write(0, 'x'); }, 'x'},
        {"bulk write", [](auto& p, auto&) { p.write(0, "x", 1); }, 'x'},
        {"bulk append", [](auto& p, auto&) { p.append("x", 1); }, 'x'},
        {"the producer", [](auto&, auto& producer) { producer.write('x'); }, 'x'},
        {"the end of writing", [](auto& p, auto&) { p.closeWriting(); }, kEnd},
        {"the producer's end", [](auto&, auto& producer) { producer.close(); }, kEnd},
        {"the end of writing after what an ignored producer wrote",
         [](auto& p, auto& producer) {
             producer.ignoreProducer();
             EXPECT_EQ(producer.write("dropped"), 7);
             p.closeWriting();
         },
         kEnd},
        {"an append that throws", [](auto& p, auto&) { oversizeOf([&] { p.append("xy", 2); }); }, kThrown},
    };
    for (const auto& [why, call, expected] : cases) {
        for (const bool bulk : {false, true}) {
            MemBufferBase content;
            LimitedBufferBase inner(&content, 1);
            PipeBufferBase pipe(&inner);
            int answer = kThrown;
            char byte = 0;
            std::thread reading([&] {
                oversizeOf([&] { answer = !bulk ? pipe.read(0) : pipe.read(0, &byte, 1) == 1 ? byte : kEnd; });
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            call(pipe, *pipe.getProducerOutputStream());
            reading.join();
            EXPECT_EQ(answer, expected) << why << bulk;
        }
    }
}

}  // namespace
}  // namespace ZOV_SPACE
