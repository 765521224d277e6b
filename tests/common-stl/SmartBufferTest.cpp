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
        const char* atBarrier;
        const char* beyondBarrier;
    };
    const PolicyCase cases[] = {
        {0, "blocks", "blocks"}, {1, "blocks", "file"}, {2, "area", "area"},
        {3, "area", "file"},     {4, "file", "file"},   {5, "none", "none"},
    };
    for (const PolicyCase& c : cases) {
        SCOPED_TRACE(c.policy);
        const auto policy = static_cast<BufferBasePolicy>(c.policy);
        SmartBufferBase atBarrier(kBarrier, policy);
        SmartBufferBase beyondBarrier(kBarrier + 1, policy);
        SmartBufferBase negative(-5, policy);
        EXPECT_EQ(storageOf(atBarrier), c.atBarrier);
        EXPECT_EQ(storageOf(beyondBarrier), c.beyondBarrier);
        EXPECT_EQ(negative.isValid(), c.policy < 5);
        EXPECT_EQ(negative.getType(), BufferBase::kTypeSmart);
    }
    SmartBufferBase standard(kBarrier + 1);
    EXPECT_EQ(storageOf(standard), "file");
}

TEST(SmartBufferBase, takesItsSettingsFromTheClass) {
    SmartBufferBase::_policy = kFilePolicy;
    SmartBufferBase::_basePath = "/nowhere";
    SmartBufferBase misplaced;
    SmartBufferBase::_basePath = "/tmp";
    SmartBufferBase named;
    SmartBufferBase::_basePath = "";
    SmartBufferBase anonymous;
    SmartBufferBase::_policy = kMemoryOrFilePolicy;
    EXPECT_EQ(storageOf(misplaced), "none");
    EXPECT_EQ(storageOf(named), "file");
    EXPECT_EQ(storageOf(anonymous), "file");
}

TEST(SmartBufferBase, movesOnlyInTheOperationsThatCheck) {
    struct MoveCase {
        const char* operation;
        std::function<void(SmartBufferBase&)> call;
        bool moves;
    };
    const MoveCase cases[] = {
        {"write(c)", [](SmartBufferBase& b) { b.write(0, 'n'); }, true},
        {"write(buf)", [](SmartBufferBase& b) { b.write(0, "n", 1); }, true},
        {"write(null)", [](SmartBufferBase& b) { b.write(0, nullptr, 1); }, true},
        {"insert(c)", [](SmartBufferBase& b) { b.insert(0, 'n'); }, true},
        {"insert(buf)", [](SmartBufferBase& b) { b.insert(0, "n", 1); }, true},
        {"cut(pos, n)", [](SmartBufferBase& b) { b.cut(0, 1); }, true},
        {"append(c)", [](SmartBufferBase& b) { b.append('n'); }, true},
        {"append(buf)", [](SmartBufferBase& b) { b.append("n", 1); }, false},
        {"cut(pos)", [](SmartBufferBase& b) { b.cut(0); }, false},
        {"truncate", [](SmartBufferBase& b) { b.truncate(kBarrier + 1); }, false},
        {"read", [](SmartBufferBase& b) { b.read(0); }, false},
    };
    const std::string content(2 * kBarrier, 'o');
    for (const MoveCase& c : cases) {
        for (const auto policy : {kMemoryPolicy, kMemoryOrFilePolicy, kContinuousPolicy, kContinuousOrFilePolicy}) {
            SCOPED_TRACE(testing::Message() << c.operation << ", policy " << policy);
            SmartBufferBase buffer(policy);
            buffer.append(content.data(), static_cast<int>(content.size()));
            EXPECT_NE(storageOf(buffer), "file") << "a bulk append never moves the content";
            c.call(buffer);
            const bool mayMove = policy == kMemoryOrFilePolicy || policy == kContinuousOrFilePolicy;
            EXPECT_EQ(storageOf(buffer) == "file", mayMove && c.moves);
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

TEST(SmartBufferBase, staysInMemoryOnceDiscarded) {
    SmartBufferBase buffer;
    const std::string content(2 * kBarrier, 'o');
    buffer.append(content.data(), static_cast<int>(content.size()));
    buffer.discardUsedBuffer();
    buffer.write(0, 'x');
    EXPECT_EQ(storageOf(buffer), "blocks");
}

TEST(SmartBufferBase, keepsItsContentWhenTheMoveFails) {
    const std::string piece(4096, 'o');
    for (const long room : {kBarrier, 2 * kBarrier - 4096}) {
        SCOPED_TRACE(room);
        SmartBufferBase buffer;
        while (buffer.getSize() < 2 * kBarrier) buffer.append(piece.data(), 4096);
        {
            const FileSizeLimit limit(static_cast<rlim_t>(room));
            EXPECT_EQ(thrownBy([&] { buffer.append('x'); }), "File too large");
        }
        EXPECT_EQ(storageOf(buffer), "blocks");
        EXPECT_EQ(buffer.getSize(), 2 * kBarrier);
        buffer.append('x');
        EXPECT_EQ(storageOf(buffer), "file");
    }
}

}  // namespace
}  // namespace ZOV_SPACE
