#include <gtest/gtest.h>

#include <functional>
#include <tuple>

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
    const std::tuple<const char*, std::function<void(SmartBufferBase&)>, bool> cases[] = {
        {"write(buf)", [](SmartBufferBase& b) { b.write(0, "n", 1); }, true},
        {"insert(buf)", [](SmartBufferBase& b) { b.insert(0, "n", 1); }, true},
        {"cut(pos, n)", [](SmartBufferBase& b) { b.cut(0, 1); }, true},
        {"append(c)", [](SmartBufferBase& b) { b.append('n'); }, true},
        {"append(buf)", [](SmartBufferBase& b) { b.append("n", 1); }, false},
        {"cut(pos)", [](SmartBufferBase& b) { b.cut(0); }, false},
        {"truncate", [](SmartBufferBase& b) { b.truncate(kBarrier + 1); }, false},
    };
    for (const auto& [name, call, moves] : cases) {
        for (const auto policy : {kMemoryPolicy, kMemoryOrFilePolicy, kContinuousOrFilePolicy}) {
            for (const long size : {kBarrier, 2 * kBarrier}) {
                SmartBufferBase buffer(policy);
                buffer.append(std::string(static_cast<std::size_t>(size), 'o').data(), static_cast<int>(size));
                call(buffer);
                const bool inFile = policy != kMemoryPolicy && moves && size > kBarrier;
                EXPECT_EQ(storageOf(buffer) == "file", inFile) << name << policy << size;
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

}  // namespace
}  // namespace ZOV_SPACE
