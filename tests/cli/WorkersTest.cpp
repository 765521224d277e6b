#include "Workers.h"

#include <gtest/gtest.h>

#include <new>

namespace {

struct FailingScanner : FileScanner {
    FileReport scan(const Target& target) override {
        if (target.path == "large") throw std::bad_alloc();
        FileReport report;
        report.path = target.path;
        return report;
    }
};

TEST(Workers, handOnAllThatCameBeforeMemoryRanOut) {
    const auto source = [](std::vector<Target>& targets, std::size_t) -> bool {
        for (const char* path : {"small", "large", "last"}) targets.push_back({path});
        throw std::bad_alloc();
    };
    std::string told;
    Workers workers(source, [&](const FileReport& file) { return told += file.path + ':' + file.error + ' ', true; });
    std::vector<std::unique_ptr<FileScanner>> scanners;
    for (int i = 0; i < 3; ++i) scanners.push_back(std::make_unique<FailingScanner>());
    EXPECT_THROW(workers.run(scanners), std::bad_alloc);
    EXPECT_EQ(told, "small: large:memory ran out last: ");
}

}  // namespace
