// Workers killed from outside at any time, while they scan very many files.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "Isolated.h"
#include "io/OwnFd.h"
#include "support/Eicar.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "support/ZipBuilder.h"

namespace {

constexpr std::size_t kFiles = kSanitized ? 500 : 3000;
constexpr unsigned kLongestLifeUs = 6'000;  // After an answer that was not lost; on a busy machine none may ever come.

// By a descriptor, and only once it is known to be ours: numbers of processes are used again.
bool killChild(pid_t child) {
    const ZOV_SPACE::OwnFd process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0U)));
    const auto all = children();
    const bool isOurs = process && std::find(all.begin(), all.end(), child) != all.end();
    return isOurs && ::syscall(SYS_pidfd_send_signal, process.get(), SIGKILL, nullptr, 0U) == 0;
}

struct Account {
    vole_scanner* scanner = nullptr;
    std::vector<std::string> answers = {};
    bool isInOrder = true;
    std::atomic<std::size_t> good = 0;

    static int enter(void* context, std::size_t index, vole_error error, vole_outcome) {
        Account& of = *static_cast<Account*>(context);
        of.isInOrder = of.isInOrder && index == of.answers.size();
        const bool isLost = error == VOLE_E_WORKER || error == VOLE_E_ISOLATION;
        of.answers.push_back(isLost ? "lost" : told(of.scanner));
        of.good += !isLost;
        return 0;
    }
};

TEST(KilledWorkers, costTheFilesThatTheyHadAndNoOthers) {
    const TempDir patterns, files;
    patterns.write("a.hdb", md5Record(eicar(), "Eicar"));
    const VoleSet set = loadedSet(patterns.path());
    const std::string zip = ZipBuilder({{"in", ZipBuilder({{"e", eicar()}}).archive()}}).archive();
    const std::string kinds[] = {eicar(), zip, std::string(70'000, 'l'), zip.substr(0, zip.size() / 2)};
    const VoleScanner here = scannerOf(set);
    std::vector<std::string> names, right;
    std::minstd_rand random(1);
    for (std::size_t i = 0; i < kFiles; ++i) {
        const auto kind = random() / 8 % 20;
        const std::string content = kind < std::size(kinds) ? kinds[kind] : std::string(random() % 5000, 'x');
        names.push_back(files.write(std::to_string(i), content));
        right.push_back(toldOf(here.get(), content));
    }
    std::vector<const char*> paths;
    for (const std::string& name : names) paths.push_back(name.c_str());
    const std::string before = possessions();
    std::atomic<std::size_t> kills = 0;
    Account account;
    {
        const VoleScanner scanner = isolatedScanner(set, VOLE_WORKER);
        ASSERT_TRUE(scanner);
        account.scanner = scanner.get();
        std::atomic<bool> ended = false;
        std::thread killer([&] {
            for (std::size_t seen = 0; !ended;) {
                ::usleep(static_cast<useconds_t>(random() % kLongestLifeUs));
                if (account.good == std::exchange(seen, account.good)) continue;
                for (const pid_t child : children()) kills += killChild(child);
            }
        });
        EXPECT_EQ(vole_scan_paths(scanner.get(), paths.data(), paths.size(), Account::enter, &account), VOLE_OK);
        ended = true;
        killer.join();
    }
    EXPECT_EQ(possessions(), before);
    EXPECT_TRUE(account.isInOrder);
    ASSERT_EQ(account.answers.size(), kFiles);
    std::size_t lost = 0;
    for (std::size_t i = 0; i < kFiles; ++i) {
        if (account.answers[i] == "lost") {
            ++lost;
        } else {
            EXPECT_EQ(account.answers[i], right[i]) << i;
        }
    }
    EXPECT_GT(lost, 0U);
    EXPECT_LE(lost, kills);
    std::cout << kFiles << " files, " << kills << " kills, " << lost << " files lost\n";
}

}  // namespace
