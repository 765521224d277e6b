// One contract, every buffer: each storage and each forwarding buffer must behave like a std::string.
#include "io/BufferBase.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "io/ContinuousMemBufferBase.h"
#include "io/FileBufferBase.h"
#include "io/FileViewBufferBase.h"
#include "io/MemBufferBase.h"
#include "io/PipeBufferBase.h"
#include "io/SmartBufferBase.h"
#include "support/FileSizeLimit.h"
#include "support/TempFile.h"
#include "support/Thrown.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

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
    std::vector<Subject> all;
    const auto add = [&](const char* name, std::unique_ptr<BufferBase> buffer) {
        all.push_back({name, nullptr, std::move(buffer)});
    };
    add("blocks", std::make_unique<MemBufferBase>());
    add("blocks, room announced", std::make_unique<MemBufferBase>(50000));
    add("contiguous", std::make_unique<ContinuousMemBufferBase>(0));
    add("anonymous file", std::make_unique<FileBufferBase>());
    add("named file", std::make_unique<FileBufferBase>("/tmp"));
    add("view of an empty file", std::make_unique<FileViewBufferBase>(TempFile().fd(), 0));
    for (int policy = 0; policy <= 4; ++policy) {
        add("smart", std::make_unique<SmartBufferBase>(static_cast<BufferBasePolicy>(policy)));
    }
    for (int i = 0; i < 3; ++i) {
        auto inner = std::make_unique<MemBufferBase>();
        std::unique_ptr<BufferBase> filter;
        if (i == 0) filter = std::make_unique<FilteredBufferBase>(inner.get());
        if (i == 1) filter = std::make_unique<LimitedBufferBase>(inner.get(), 0);
        if (i == 2) {
            filter = std::make_unique<PipeBufferBase>(inner.get());
            static_cast<PipeBufferBase&>(*filter).closeWriting();
        }
        all.push_back({"forwarding", std::move(inner), std::move(filter)});
    }
    return all;
}

std::string numbered(int size) {
    std::string text;
    for (int i = 0; i < size; ++i) text += static_cast<char>(i * 31 + i / 256);
    return text;
}

std::string contentOf(BufferBase& buffer) {
    std::string all(static_cast<std::size_t>(buffer.getSize()), '?');
    for (std::size_t done = 0; done < all.size();) {
        const int count = buffer.read(static_cast<long>(done), all.data() + done, static_cast<int>(all.size() - done));
        if (count < 1) return all.substr(0, done);
        done += static_cast<std::size_t>(count);
    }
    return all;
}

std::string viewedContentOf(BufferBase& buffer) {
    std::string all;
    for (std::span<const char> piece; !(piece = buffer.view(static_cast<long>(all.size()))).empty();) {
        all.append(piece.data(), piece.size());
    }
    return all;
}

// Random operations, applied to a buffer and to a string.
class Script {
public:
    Script(BufferBase& buffer, std::string content, unsigned seed)
        : _buffer(buffer), _model(std::move(content)), _random(seed) {}

    void run(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "step " << step);
            if (_model.size() > 50000) truncate(pick(20000));
            takeStep();
            checkSpot();
            if (step % 40 == 0) checkAll();
        }
        checkAll();
    }

private:
    long pick(long below) { return static_cast<long>(_random() % static_cast<unsigned>(below)); }

    long pickPosition() {
        const long size = static_cast<long>(_model.size());
        const long positions[] = {0,
                                  size,
                                  size + 1,
                                  std::max(size - 1, 0L),
                                  pick(size + 1),
                                  pick(size + 1),
                                  pick(size / 4096 + 1) * 4096,
                                  pick(size / 16384 + 1) * 16384,
                                  size + pick(6000)};
        return positions[pick(std::size(positions))];
    }

    std::string pickBytes() {
        static constexpr int kLengths[] = {1, 1, 2, 5, 100, 700, 4095, 4096, 4097, 16383, 16384, 16385};
        std::string bytes(static_cast<std::size_t>(kLengths[pick(std::size(kLengths))]), '\0');
        for (char& byte : bytes) byte = static_cast<char>(_random());
        return bytes;
    }

    void takeStep() {
        const long pos = pickPosition();
        const std::string bytes = pickBytes();
        const int count = static_cast<int>(bytes.size());
        const std::size_t at = static_cast<std::size_t>(pos);
        const int cuttable = static_cast<int>(std::clamp<long>(static_cast<long>(_model.size()) - pos, 0, count));
        switch (_random() % 10) {
            case 0:
                EXPECT_EQ(_buffer.write(pos, bytes.data(), count), count);
                overwrite(at, bytes);
                break;
            case 1:
                EXPECT_EQ(_buffer.write(pos, bytes[0]), 1);
                overwrite(at, bytes.substr(0, 1));
                break;
            case 2:
                EXPECT_EQ(_buffer.insert(pos, bytes.data(), count), count);
                insert(at, bytes);
                break;
            case 3:
                EXPECT_EQ(_buffer.insert(pos, bytes[0]), 1);
                insert(at, bytes.substr(0, 1));
                break;
            case 4:
                EXPECT_EQ(_buffer.append(bytes.data(), count), count);
                _model += bytes;
                break;
            case 5:
                EXPECT_EQ(_buffer.append(bytes[0]), 1);
                _model += bytes[0];
                break;
            case 6:
            case 7:
                EXPECT_EQ(_buffer.cut(pos, count), cuttable);
                cut(at, cuttable);
                break;
            case 8:
                EXPECT_EQ(_buffer.cut(pos), std::min(cuttable, 1));
                cut(at, std::min(cuttable, 1));
                break;
            default:
                if (_random() % 8 == 0) truncate(pos);
        }
    }

    void overwrite(std::size_t pos, const std::string& bytes) {
        _model.resize(std::max(_model.size(), pos + bytes.size()));
        _model.replace(pos, bytes.size(), bytes);
    }
    void insert(std::size_t pos, const std::string& bytes) {
        _model.resize(std::max(_model.size(), pos));
        _model.insert(pos, bytes);
    }
    void cut(std::size_t pos, int count) {
        if (count > 0) _model.erase(pos, static_cast<std::size_t>(count));
    }
    void truncate(long pos) {
        EXPECT_EQ(_buffer.truncate(pos), 0);
        _model.resize(std::min(_model.size(), static_cast<std::size_t>(pos)));
    }

    void checkSpot() {
        const long size = static_cast<long>(_model.size());
        ASSERT_EQ(_buffer.getSize(), size);
        const long pos = pickPosition();
        char bytes[300];
        const int count = static_cast<int>(std::clamp<long>(size - pos, 0, 300));
        ASSERT_EQ(_buffer.read(pos, bytes, 300), count);
        if (count > 0) {
            const std::string expected = _model.substr(static_cast<std::size_t>(pos), static_cast<std::size_t>(count));
            EXPECT_TRUE(expected == std::string(bytes, static_cast<std::size_t>(count)));
        }
        EXPECT_EQ(_buffer.read(pos),
                  pos < size ? static_cast<unsigned char>(_model[static_cast<std::size_t>(pos)]) : -1);
    }

    void checkAll() {
        EXPECT_TRUE(contentOf(_buffer) == _model);
        EXPECT_TRUE(_buffer.view(0).empty() || viewedContentOf(_buffer) == _model);
        if (const int fd = _buffer.getFileDescriptor(); fd >= 0 && _model.size() > 0) {
            std::string inFile(_model.size() + 1, '?');
            EXPECT_EQ(::pread(fd, inFile.data(), inFile.size(), 0), static_cast<ssize_t>(_model.size()));
            EXPECT_TRUE(inFile.compare(0, _model.size(), _model) == 0);
        }
    }

    BufferBase& _buffer;
    std::string _model;
    std::mt19937 _random;
};

class LoweredBarrier {
public:
    explicit LoweredBarrier(long bytes) { SmartBufferBase::_barrier = bytes; }
    ~LoweredBarrier() { SmartBufferBase::_barrier = _old; }

private:
    long _old = SmartBufferBase::_barrier;
};

TEST(BufferBase, behavesLikeAStringInEveryStorage) {
    const LoweredBarrier barrier(8192);
    for (unsigned seed = 1; seed <= 3; ++seed) {
        for (Subject& subject : allBuffers()) {
            SCOPED_TRACE(testing::Message() << subject.name << ", seed " << seed);
            Script(*subject.buffer, "", seed).run(400);
        }
    }
}

TEST(BufferBase, keepsTheCommonRulesInEveryStorage) {
    for (Subject& subject : allBuffers()) {
        SCOPED_TRACE(subject.name);
        BufferBase& buffer = *subject.buffer;
        char byte = 0;
        const std::function<void()> negative[] = {
            [&] { buffer.read(-1); },
            [&] { buffer.read(-1, &byte, 1); },
            [&] { buffer.write(-1, 'x'); },
            [&] { buffer.write(-1, "x", 1); },
            [&] { buffer.insert(-1, 'x'); },
            [&] { buffer.insert(-1, "x", 1); },
            [&] { buffer.cut(-1); },
            [&] { buffer.cut(-1, 1); },
            [&] { buffer.truncate(-1); },
            [&] { buffer.write(LONG_MAX, 'x'); },
            [&] { buffer.write(LONG_MAX - 1, "xy", 2); },
            [&] { buffer.insert(LONG_MAX, "x", 1); },
        };
        for (const auto& call : negative) EXPECT_EQ(thrownBy(call), kOutOfBound);
        EXPECT_EQ(buffer.write(10, "ab", 2), 2);
        EXPECT_EQ(contentOf(buffer), std::string(10, '\0') + "ab");
        EXPECT_EQ(buffer.write(100, nullptr, 5) + buffer.write(100, "x", 0) + buffer.insert(100, "x", -1), 0);
        EXPECT_EQ(buffer.append(nullptr, 5) + buffer.append("x", -1) + buffer.cut(0, 0), 0);
        EXPECT_EQ(buffer.read(0, nullptr, 5) + buffer.read(0, &byte, 0) + buffer.read(12, &byte, 1), 0);
        EXPECT_EQ(buffer.read(LONG_MAX), -1);
        EXPECT_EQ(buffer.cut(LONG_MAX, INT_MAX), 0);
        EXPECT_EQ(buffer.cut(11, INT_MAX), 1);
        EXPECT_EQ(buffer.truncate(LONG_MAX), 0);
        EXPECT_EQ(buffer.getSize(), 11);
        EXPECT_TRUE(buffer.view(-1).empty());
        EXPECT_TRUE(buffer.view(11).empty());
    }
}

TEST(BufferBase, tellsItsSizeWhileAnotherThreadAppends) {
    constexpr long kBytes = 3000;
    for (Subject& subject : allBuffers()) {
        SCOPED_TRACE(subject.name);
        std::thread appending([&] {
            for (long i = 0; i < kBytes; ++i) subject.buffer->append('x');
        });
        for (long size = 0; size < kBytes;) {
            const long now = subject.buffer->getSize();
            EXPECT_GE(now, size);
            size = now;
        }
        appending.join();
    }
}

TEST(BufferBase, saysBrokenWhenTheStorageCouldNotBeMade) {
    const std::unique_ptr<BufferBase> broken[] = {
        std::make_unique<FileBufferBase>("/nowhere"),
        std::make_unique<FileViewBufferBase>(-1, 5),
        std::make_unique<SmartBufferBase>(static_cast<BufferBasePolicy>(5)),
        std::make_unique<ContinuousMemBufferBase>(INT_MAX),
        SmartBufferBase::viewOf(0, -1),
    };
    for (const auto& buffer : broken) {
        char byte;
        EXPECT_FALSE(buffer->isValid());
        EXPECT_EQ(buffer->getSize(), 0);
        EXPECT_EQ(buffer->getFileDescriptor(), -1);
        EXPECT_TRUE(buffer->view(0).empty());
        const std::function<void()> calls[] = {
            [&] { buffer->read(-1); },         [&] { buffer->read(0, &byte, 1); }, [&] { buffer->write(0, 'x'); },
            [&] { buffer->write(0, "x", 1); }, [&] { buffer->insert(0, 'x'); },    [&] { buffer->insert(0, "x", 1); },
            [&] { buffer->cut(0); },           [&] { buffer->cut(0, 1); },         [&] { buffer->append('x'); },
            [&] { buffer->append("x", 1); },   [&] { buffer->truncate(0); },
        };
        for (const auto& call : calls) EXPECT_EQ(thrownBy(call), "Broken BufferBase");
        EXPECT_EQ(unitThrownBy(calls[0]), "io/BufferBase");
    }
}

TEST(MemoryBuffers, keepTheirContentWhenMemoryRunsOut) {
    const long beyondOneBlock = sizeof(long) > 4 ? long{INT_MAX} + 5000 : INT_MAX - 10;
    std::vector<std::unique_ptr<BufferBase>> buffers;
    buffers.push_back(std::make_unique<ContinuousMemBufferBase>(0));
    if (sizeof(long) > 4) buffers.push_back(std::make_unique<MemBufferBase>());
    for (const auto& buffer : buffers) {
        buffer->append("abc", 3);
        EXPECT_EQ(thrownBy([&] { buffer->write(beyondOneBlock, "x", 1); }), "Cannot allocate memory");
        EXPECT_EQ(contentOf(*buffer), "abc");
    }
}

long residentBytes() {
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

TEST(MemBufferBase, costsWhatWasWrittenNotWhatWasAnnounced) {
    if (kSanitized) GTEST_SKIP() << "sanitizers account for every allocated byte";
    const long before = residentBytes();
    MemBufferBase buffer(64L << 20);
    buffer.write((256L << 20) - 1, 'x');
    EXPECT_EQ(buffer.read(100L << 20), 0);
    EXPECT_EQ(buffer.getSize(), 256L << 20);
    EXPECT_LT(residentBytes() - before, 8L << 20);
}

TEST(MemBufferBase, rebuildsOnlyTheBlockThatBytesAreInsertedInto) {
    MemBufferBase buffer;
    const std::string content(3 * 4096, 'x');
    buffer.append(content.data(), 4096);
    buffer.append(content.data(), 4096);
    const char* second = buffer.view(4096).data();
    buffer.insert(0, "ab", 2);
    EXPECT_EQ(buffer.view(0).size(), 2u) << "bytes inserted at a block's start get a block of their own";
    buffer.insert(100, "c", 1);
    EXPECT_EQ(buffer.view(2).size(), 4097u);
    EXPECT_EQ(buffer.view(4096 + 3).data(), second);
}

template <class Buffer>
void fillInPlace(Buffer& buffer) {
    std::string expected;
    for (int size : {1, 100, 4096, 5000, 1, 20000}) {
        const std::span<char> space = buffer.appendSpace(size);
        ASSERT_EQ(space.size(), static_cast<std::size_t>(size));
        std::fill(space.begin(), space.end(), static_cast<char>('a' + size % 26));
        buffer.commitAppend(size / 2);
        expected.append(static_cast<std::size_t>(size / 2), static_cast<char>('a' + size % 26));
        buffer.write(buffer.getSize() + 10, 'z');  // The gap lies where uncommitted bytes were left.
        expected += std::string(10, '\0') + "z";
        ASSERT_TRUE(contentOf(buffer) == expected) << size;
    }
    const std::function<void()> forfeits[] = {
        [&] { buffer.commitAppend(5); }, [&] { EXPECT_TRUE(buffer.appendSpace(0).empty()); },
        [&] { buffer.append("x", 1); },  [&] { buffer.write(0, 'x'); },
        [&] { buffer.insert(0, 'x'); },  [&] { buffer.insert(5, 'x'); },
        [&] { buffer.cut(0); },          [&] { buffer.truncate(1); },
    };
    for (const auto& forfeit : forfeits) {
        buffer.appendSpace(10);
        EXPECT_EQ(thrownBy([&] { buffer.commitAppend(11); }), kOutOfBound);
        forfeit();
        EXPECT_EQ(thrownBy([&] { buffer.commitAppend(1); }), kOutOfBound) << &forfeit - forfeits;
    }
}

TEST(MemoryBuffers, canBeFilledInPlace) {
    MemBufferBase blocks(4500);
    ContinuousMemBufferBase area(0);
    SmartBufferBase smart;
    fillInPlace(blocks);
    fillInPlace(area);
    fillInPlace(smart);
    EXPECT_EQ(thrownBy([&] { blocks.appendSpace(LONG_MAX); }), kOutOfBound);
    SmartBufferBase inFile(kFilePolicy);
    EXPECT_TRUE(inFile.appendSpace(10).empty());
    EXPECT_EQ(thrownBy([&] { inFile.commitAppend(1); }), kOutOfBound);
}

TEST(FileBufferBase, namesItsFileAndRemovesIt) {
    std::string path;
    for (const bool destroyedClosed : {false, true}) {
        FileBufferBase buffer("/tmp");
        EXPECT_TRUE(path.empty() || ::access(path.c_str(), F_OK) != 0);
        path = buffer.getPath();
        struct stat status;
        buffer.append("abc", 3);
        buffer.open();  // Already so.
        EXPECT_EQ(contentOf(buffer), "abc");
        buffer.close();
        buffer.close();
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_size, 3) << "close() writes what waits";
        EXPECT_EQ(thrownBy([&] { buffer.read(0); }), "Broken BufferBase");
        buffer.open();
        EXPECT_EQ(buffer.getSize(), 0);
        buffer.append("d", 1);
        EXPECT_EQ(contentOf(buffer), "d");
        if (destroyedClosed) buffer.close();
    }
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
    FileBufferBase anonymous;
    const char text[] = "The method is not supported, if the file name is empty.";
    EXPECT_EQ(thrownBy([&] { anonymous.open(); }), text);
    EXPECT_EQ(thrownBy([&] { anonymous.close(); }), text);
}

TEST(FileBufferBase, mayBeClosedAndOpenedWhileOthersUseIt) {
    FileBufferBase buffer("/tmp");
    const std::function<void()> calls[] = {
        [&] { buffer.append("xy", 2); },
        [&] { buffer.write(0, 'x'); },
        [&] { buffer.insert(0, 'x'); },
        [&] { buffer.read(0); },
        [&] { buffer.cut(0); },
        [&] { buffer.truncate(0); },
        [&] { buffer.getFileDescriptor(); },
        [&] { buffer.flush(); },
        [&] { static_cast<void>(buffer.isValid()); },
    };
    for (const auto& call : calls) {
        std::atomic<bool> done = false;
        std::thread reopening([&] {
            for (int i = 0; i < 300; ++i) {
                buffer.close();
                buffer.open();
            }
            done = true;
        });
        std::string error;
        do error = thrownBy(call);
        while (!done && (error == "<nothing>" || error == "Broken BufferBase"));
        reopening.join();
        EXPECT_TRUE(error == "<nothing>" || error == "Broken BufferBase") << &call - calls << error;
    }
}

TEST(FileBufferBase, neverTouchesAFileItDidNotMake) {
    TempFile file("precious");
    {
        FileBufferBase buffer(file.path());  // Not a directory.
        buffer.open();
        EXPECT_FALSE(buffer.isValid());
    }
    EXPECT_EQ(::access(file.path(), F_OK), 0);
    EXPECT_EQ(file.content(), "precious");
}

TEST(FileBufferBase, keepsItsContentWhenTheFileCannotGrow) {
    const std::string old = numbered(60000);
    const std::string added(10000, 'a');
    FileBufferBase buffer;
    buffer.append(old.data(), 60000);
    {
        const FileSizeLimit limit(65536);
        const std::function<void()> calls[] = {
            [&] { buffer.append(added.data(), 10000); },
            [&] { buffer.write(55600, added.data(), 10000); },
            [&] { buffer.insert(5, added.data(), 10000); },
            [&] { buffer.write(70000, "x", 1); },
        };
        for (const auto& call : calls) EXPECT_EQ(thrownBy(call), "File too large");
        EXPECT_TRUE(contentOf(buffer) == old);
    }
    EXPECT_EQ(buffer.write(70000, "x", 1), 1);
    EXPECT_TRUE(contentOf(buffer) == old + std::string(10000, '\0') + "x") << "no byte of the failed writes shows";
}

TEST(FileBufferBase, losesNoByteThatWaitsWhileTheFileCannotGrow) {
    FileBufferBase buffer;
    std::string appended;
    {
        const FileSizeLimit limit(40000);
        const auto appendUntilItFails = [&] {
            for (;;) {
                const char byte = static_cast<char>(appended.size() * 7);
                buffer.append(byte);
                appended += byte;
            }
        };
        EXPECT_EQ(thrownBy(appendUntilItFails), "File too large");
        EXPECT_EQ(thrownBy(appendUntilItFails), "File too large");
        EXPECT_EQ(thrownBy([&] { buffer.getFileDescriptor(); }), "File too large");
        EXPECT_EQ(buffer.getSize(), static_cast<long>(appended.size()));
    }
    buffer.append('!');
    EXPECT_TRUE(contentOf(buffer) == appended + "!");
}

// Read and write system calls of this process so far.
long systemCalls() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    long sum = -1;
    for (long value; counters >> name >> value;) {
        if (name == "syscr:" || name == "syscw:") sum += value;
    }
    return sum;
}

TEST(FileBufferBase, spreadsSystemCallsOverManySmallOperations) {
    if (systemCalls() < 0) GTEST_SKIP() << "no counters on this system";
    FileBufferBase buffer;
    const long before = systemCalls();
    for (int i = 0; i < 100000; ++i) buffer.append(static_cast<char>(i));
    for (int i = 0; i < 100000; ++i) ASSERT_EQ(buffer.read(i), i % 256);
    for (int i = 100000; i-- > 0;) ASSERT_EQ(buffer.read(i), i % 256);
    for (int i = 0; i < 100000; i += 3) buffer.write(i, 'x');
    EXPECT_LT(systemCalls() - before, 100);
}

TEST(FileViewBufferBase, behavesLikeAStringAndLeavesTheFileAlone) {
    const std::string content = numbered(40000);
    for (unsigned seed = 1; seed <= 4; ++seed) {
        TempFile file(content + "beyond the view");
        FileViewBufferBase view(file.fd(), 40000);
        EXPECT_TRUE(contentOf(view) == content);
        for (long pos : {0L, 16383L, 39999L})
            EXPECT_EQ(view.read(pos), static_cast<unsigned char>(content[static_cast<std::size_t>(pos)]));
        EXPECT_EQ(view.read(40000), -1);
        const int viewed = view.getFileDescriptor();
        EXPECT_EQ(view.cut(40000, 5) + view.write(0, nullptr, 1) + view.truncate(40000), 0);
        EXPECT_EQ(view.getFileDescriptor(), viewed) << "nothing changed, so nothing was copied";
        view.write(0, content[0]);  // The copy's file holds the content and no more.
        Script(view, content, seed).run(300);
        EXPECT_TRUE(file.content() == content + "beyond the view");
        EXPECT_FALSE(view.sourceFailed());
    }
}

TEST(FileViewBufferBase, remembersThatTheFileBecameShorter) {
    TempFile file(numbered(30000));
    const auto view = SmartBufferBase::viewOf(file.fd(), 30000);
    char bytes[20000];
    EXPECT_EQ(view->read(0, bytes, 100), 100);
    EXPECT_FALSE(view->sourceFailed());
    ASSERT_EQ(::ftruncate(file.fd(), 20000), 0);
    EXPECT_EQ(view->read(15000, bytes, 20000), 5000);
    EXPECT_TRUE(view->sourceFailed());
    EXPECT_EQ(view->read(25000), -1);
    view->append('x');
    EXPECT_EQ(view->getSize(), 20001) << "the copy is what could be read";
    EXPECT_TRUE(view->sourceFailed());
}

TEST(FileViewBufferBase, staysAViewWhenTheCopyCannotBeWritten) {
    const std::string content = numbered(10000);
    TempFile file(content);
    FileViewBufferBase view(file.fd(), 10000);
    const int viewed = view.getFileDescriptor();
    {
        const FileSizeLimit limit(9999);
        EXPECT_EQ(thrownBy([&] { view.write(0, 'x'); }), "File too large");
    }
    EXPECT_EQ(view.getFileDescriptor(), viewed);
    EXPECT_TRUE(contentOf(view) == content);
    EXPECT_FALSE(view.sourceFailed());
}

TEST(FileViewBufferBase, copiesNothingForBytesThatHaveNoPosition) {
    if (sizeof(long) > 4) GTEST_SKIP() << "positions reach beyond every view";
    TempFile file;
    ASSERT_EQ(::ftruncate(file.fd(), FileViewBufferBase::kMaxSize), 0);
    FileViewBufferBase view(file.fd(), FileViewBufferBase::kMaxSize);
    const FileSizeLimit limit(1 << 20);
    EXPECT_EQ(thrownBy([&] { view.append('x'); }), kOutOfBound);
    EXPECT_EQ(thrownBy([&] { view.insert(0, 'x'); }), kOutOfBound);
}

TEST(FileViewBufferBase, remembersAReadError) {
    const OwnFd directory(::open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto view = SmartBufferBase::viewOf(directory.get(), 10);
    ASSERT_TRUE(view->isValid());
    EXPECT_EQ(thrownBy([&] { view->read(0); }), "Is a directory");
    EXPECT_TRUE(view->sourceFailed());
    EXPECT_EQ(thrownBy([&] { view->append('x'); }), "Is a directory");
    EXPECT_FALSE(SmartBufferBase().sourceFailed());
}

}  // namespace
}  // namespace ZOV_SPACE
