#include <gtest/gtest.h>

#include <functional>

#include "io/SmartBufferBase.h"
#include "support/FileSizeLimit.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

constexpr long kBarrier = 1048576;

// Which storage a buffer has, by what it can tell: a file has a descriptor, a contiguous area an address.
std::string storageOf(SmartBufferBase& buffer) {
    if (!buffer.isValid()) return "none";
    if (buffer.getFileDescriptor() >= 0) return "file";
    return buffer.getMemAddress() ? "area" : "blocks";
}

TEST(SmartBufferBase, choosesTheStorageByPolicyAndAnnouncedSize) {
    struct PolicyCase {
        int policy;
        const char *atBarrier, *beyondBarrier;
    };
    for (const PolicyCase& c : {PolicyCase{0, "blocks", "blocks"},
                                {1, "blocks", "file"},
                                {2, "area", "area"},
                                {3, "area", "file"},
                                {4, "file", "file"},
                                {5, "none", "none"}}) {
        SmartBufferBase atBarrier(kBarrier, static_cast<BufferBasePolicy>(c.policy));
        SmartBufferBase beyondBarrier(kBarrier + 1, static_cast<BufferBasePolicy>(c.policy));
        EXPECT_EQ(storageOf(atBarrier), c.atBarrier) << c.policy;
        EXPECT_EQ(storageOf(beyondBarrier), c.beyondBarrier) << c.policy;
    }
    SmartBufferBase standard(kBarrier + 1);
    EXPECT_EQ(storageOf(standard), "file");
}

TEST(SmartBufferBase, movesOnlyInTheOperationsThatCheck) {
    struct MoveCase {
        const char* name;
        std::function<void(SmartBufferBase&)> call;
        bool moves;
    };
    const MoveCase cases[] = {
        {"write(buf)", [](SmartBufferBase& b) { b.write(0, "n", 1); }, true},
        {"insert(buf)", [](SmartBufferBase& b) { b.insert(0, "n", 1); }, true},
        {"cut(pos, n)", [](SmartBufferBase& b) { b.cut(0, 1); }, true},
        {"append(c)", [](SmartBufferBase& b) { b.append('n'); }, true},
        {"append(buf)", [](SmartBufferBase& b) { b.append("n", 1); }, false},
        {"cut(pos)", [](SmartBufferBase& b) { b.cut(0); }, false},
        {"truncate", [](SmartBufferBase& b) { b.truncate(kBarrier + 1); }, false},
    };
    const std::string content(2 * kBarrier, 'o');
    for (const MoveCase& c : cases) {
        for (const auto policy : {kMemoryPolicy, kMemoryOrFilePolicy, kContinuousOrFilePolicy}) {
            SmartBufferBase buffer(policy);
            buffer.append(content.data(), static_cast<int>(content.size()));
            EXPECT_NE(storageOf(buffer), "file") << "a bulk append never moves the content";
            c.call(buffer);
            EXPECT_EQ(storageOf(buffer) == "file", policy != kMemoryPolicy && c.moves) << c.name << policy;
            EXPECT_EQ(buffer.read(kBarrier), 'o');
        }
    }
}

TEST(SmartBufferBase, checksBeforeItWrites) {
    SmartBufferBase buffer;
    const std::string content(kBarrier, 'o');
    buffer.append(content.data(), static_cast<int>(kBarrier));
    buffer.append('x');
    EXPECT_EQ(storageOf(buffer), "blocks") << "at the barrier, not beyond it, when the check was made";
    buffer.append('y');
    EXPECT_EQ(storageOf(buffer), "file");
    EXPECT_EQ(buffer.getSize(), kBarrier + 2);
    EXPECT_EQ(buffer.read(kBarrier + 1), 'y');
}

TEST(SmartBufferBase, keepsItsContentWhenTheMoveFails) {
    const std::string content(2 * kBarrier, 'o');
    SmartBufferBase buffer;
    buffer.append(content.data(), static_cast<int>(content.size()));
    {
        const FileSizeLimit limit(2 * kBarrier - 4096);
        EXPECT_EQ(thrownBy([&] { buffer.append('x'); }), "File too large");
    }
    EXPECT_EQ(storageOf(buffer), "blocks");
    EXPECT_EQ(buffer.getSize(), 2 * kBarrier);
    buffer.append('x');
    EXPECT_EQ(storageOf(buffer), "file");
}

}  // namespace
}  // namespace ZOV_SPACE
