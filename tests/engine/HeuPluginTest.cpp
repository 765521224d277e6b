#include "HeuPlugin.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/EngineLog.h"
#include "support/OwnProcess.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

using Lines = std::vector<std::string>;

// Copies of the built libraries, so that each directory's has a state of its own.
class PluginDir : public TempDir {
public:
    explicit PluginDir(const char* builtLibrary, const std::string& configuration = "") {
        std::filesystem::copy_file(builtLibrary, *this / "libheueng.so");
        if (!configuration.empty()) write("heueng.ini", configuration);
    }
    std::string name() const { return path().string(); }
};

TEST(HeuPlugin, saysWhichStepFailed) {
    inOwnProcess([] {
        const TempDir none;
        const PluginDir empty(VOLE_TEST_PLUGIN_EMPTY);
        const PluginDir withoutDestroy(VOLE_TEST_PLUGIN_WITHOUT_DESTROY);
        const PluginDir refusing(VOLE_TEST_PLUGIN_GOOD, "1 0");
        const TempDir noLibrary;
        noLibrary.write("libheueng.so", "not a library");
        const TempDir folder;
        std::filesystem::create_directory(folder / "libheueng.so");
        const auto cannotLoad = [](const TempDir& dir) {
            return "fail to load heu-engine from " + (dir / "libheueng.so").string();
        };
        const struct {
            const char* why;
            const TempDir& dir;
            std::string message;  // How it begins: the system's own text follows where a symbol is missing.
        } cases[] = {
            {"no library", none, cannotLoad(none)},
            {"no shared object", noLibrary, cannotLoad(noLibrary)},
            {"a folder", folder, cannotLoad(folder)},
            {"no entry points", empty, "fail to load Option : " + (empty / "libheueng.so").string()},
            {"without the one that is never called", withoutDestroy,
             "fail to load destroyInstance : " + (withoutDestroy / "libheueng.so").string()},
            {"refuses its configuration", refusing, "fail to load config file : " + (refusing / "heueng.ini").string()},
        };
        for (const auto& c : cases) {
            EngineLog log;
            std::string message = "untouched";
            EXPECT_EQ(loadHeuPlugin(c.dir.path().string(), message), -479) << c.why;
            EXPECT_TRUE(message.starts_with(c.message)) << c.why << ": " << message;
            EXPECT_EQ(heu_instance, nullptr) << c.why;
            const bool refused = &c.dir == &refusing;
            EXPECT_EQ(log.taken(),
                      refused ? Lines{"[pattern_assistant:586] Call my_loadOption failed .......\n"} : Lines{});
            int extra = 7;
            EXPECT_EQ(checkSusVirus(1, &extra), 0);
            EXPECT_EQ(extra, 0);
            EXPECT_EQ(log.taken(), Lines{"[pattern_assistant:1360] Fail to get Heuristic Engine Instance."});
        }
    });
}

TEST(HeuPlugin, passesQuestionsOnAndAnswersBack) {
    inOwnProcess([] {
        const PluginDir dir(VOLE_TEST_PLUGIN_GOOD, "0 100");
        std::string message;
        EngineLog log;
        EXPECT_EQ(init((dir.name() + "/").c_str(), message), 0);
        for (const std::string& line : log.taken()) EXPECT_EQ(line.find("rc3"), std::string::npos) << line;
        EXPECT_NE(heu_instance, nullptr);
        int extra = 30;
        EXPECT_EQ(checkSusVirus(5, &extra), 105);
        EXPECT_EQ(extra, 35);
        EXPECT_EQ(checkSusVirus(-5, &extra), 95);
        EXPECT_EQ(checkSusVirus(6, nullptr), 106);
        EXPECT_EQ(checkSusVirus(0, &extra), 0) << "no verdict was written";
        EXPECT_EQ(freeResource(), 0);
        EXPECT_EQ(checkSusVirus(5, &extra), 105) << "it stays for the life of the process";
    });
}

TEST(HeuPlugin, theFirstInstanceStays) {
    inOwnProcess([] {
        const PluginDir first(VOLE_TEST_PLUGIN_GOOD, "0 100");
        const PluginDir second(VOLE_TEST_PLUGIN_GOOD, "0 200");
        const PluginDir broken(VOLE_TEST_PLUGIN_WITHOUT_DESTROY, "0 300");
        std::string message;
        ASSERT_EQ(init(first.name().c_str(), message), 0);
        void* const instance = heu_instance;
        for (const auto& [dir, code] : {std::pair{&second, -476}, {&broken, -479}, {&first, -476}}) {
            freeResource();
            EngineLog log(1);
            EXPECT_EQ(init(dir->name().c_str(), message), 0);
            EXPECT_EQ(message, "");
            const Lines lines = log.taken();
            ASSERT_GE(lines.size(), 2U);
            EXPECT_EQ(lines[lines.size() - 2], "[pattern_assistant:681] rc3 is " + std::to_string(code));
            EXPECT_EQ(lines.back(), "[pattern_assistant:682] Fail to install heueng : .");
            EXPECT_EQ(heu_instance, instance);
            EXPECT_EQ(checkSusVirus(5, nullptr), 105);
        }
    });
}

TEST(HeuPlugin, loadsEvenWhenNothingElseDoes) {
    inOwnProcess([] {
        const PluginDir plugin(VOLE_TEST_PLUGIN_GOOD, "0 100");
        plugin.write("pattern_assistant.xml", "no XML");
        std::filesystem::create_symlink("/proc/self/mem", plugin / "broken.hdb");
        std::string message;
        EXPECT_EQ(init(plugin.name().c_str(), message), 0);
        EXPECT_EQ(message, "fail to load pa list from " + plugin.name()) << "the last step that failed";
        EXPECT_EQ(checkSusVirus(1, nullptr), 101);
        EXPECT_EQ(reload(plugin.name().c_str(), message), -473) << "no signatures are active";
    });
}

TEST(HeuPlugin, noInstanceIsNoFailureYet) {
    inOwnProcess([] {
        const PluginDir none(VOLE_TEST_PLUGIN_GOOD, "0 100 null");
        const PluginDir good(VOLE_TEST_PLUGIN_GOOD, "0 200");
        std::string message = "untouched";
        EXPECT_EQ(loadHeuPlugin(none.name(), message), 0);
        EXPECT_EQ(message, "untouched");
        int extra = 7;
        EXPECT_EQ(checkSusVirus(1, &extra), 0);
        EXPECT_EQ(extra, 0);
        EXPECT_EQ(loadHeuPlugin(good.name(), message), 0) << "there is still none, so a later one is taken";
        EXPECT_EQ(checkSusVirus(1, nullptr), 201);
    });
}

TEST(HeuPlugin, isAskedByOneThreadAtATime) {
    inOwnProcess([] {
        const PluginDir dir(VOLE_TEST_PLUGIN_GOOD, "0 100");
        std::string message;
        ASSERT_EQ(loadHeuPlugin(dir.name(), message), 0);
        std::vector<std::thread> threads;
        std::vector<int> extras(4, 0);
        for (int& extra : extras) {
            threads.emplace_back([&extra] {
                for (int i = 0; i < 50 && extra >= 0; ++i) checkSusVirus(1, &extra);
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(extras, std::vector<int>(4, 50)) << "-1: calls overlapped";
    });
}

}  // namespace
