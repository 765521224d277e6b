#include "Workers.h"

#include <gtest/gtest.h>

#include <latch>
#include <new>

namespace {

struct Scanner : FileScanner {
    explicit Scanner(std::latch* others = nullptr) : left(others) {}
    FileReport scan(const Target& target) override {
        if (target.path == "large") throw std::bad_alloc();
        if (target.path == "slow") {
            left->wait();
        } else if (left) {
            left->count_down();
        }
        FileReport report;
        report.path = target.path;
        return report;
    }
    std::latch* left;
};

TEST(Workers, handOnAllThatCameBeforeMemoryRanOut) {
    const auto source = [](std::vector<Target>& targets, std::size_t) -> bool {
        for (const char* path : {"small", "large", "last"}) targets.push_back({path});
        throw std::bad_alloc();
    };
    for (const int threads : {1, 3}) {
        std::string told;
        Workers workers(source,
                        [&](const FileReport& file) { return told += file.path + ':' + file.error + ' ', true; });
        std::vector<std::unique_ptr<FileScanner>> scanners;
        for (int i = 0; i < threads; ++i) scanners.push_back(std::make_unique<Scanner>());
        EXPECT_THROW(workers.run(scanners), std::bad_alloc);
        EXPECT_EQ(told, "small: large:memory ran out last: ");
    }
}

TEST(Workers, takeOverWhatOthersHaveNotBegun) {
    constexpr int kOthers = 300;
    std::latch others(kOthers);
    std::string told, expected;
    std::vector<std::string> paths{"slow"};
    for (int i = 0; i < kOthers; ++i) paths.push_back(std::to_string(i));
    for (const std::string& path : paths) expected += path + ' ';
    const auto source = [&, next = paths.begin()](std::vector<Target>& targets, std::size_t most) mutable {
        while (targets.size() < most && next != paths.end()) targets.push_back({*next++});
        return next != paths.end();
    };
    Workers workers(source, [&](const FileReport& file) { return told += file.path + ' ', true; });
    std::vector<std::unique_ptr<FileScanner>> scanners;
    for (int i = 0; i < 2; ++i) scanners.push_back(std::make_unique<Scanner>(&others));
    workers.run(scanners);
    EXPECT_EQ(told, expected);
}

}  // namespace
