#include "HeuPlugin.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/CapturedLog.h"
#include "support/OwnProcess.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

using Lines = std::vector<std::string>;

// Copies of the built libraries, so that each directory's has a state of its own.
class PluginDir : public TempDir {
public:
    PluginDir(const char* builtLibrary, const std::string& configuration) {
        std::filesystem::copy_file(builtLibrary, *this / "libheueng.so");
        write("heueng.ini", configuration);
    }
};

TEST(HeuPlugin, saysWhichStepFailed) {
    inOwnProcess([] {
        const Lines refused{"[pattern_assistant:586] Call my_loadOption failed .......\n"};
        const std::tuple<const char*, std::string, const char*, Lines> cases[] = {
            {VOLE_ENGINE_ANSWERS, "load heu-engine from ", "libheueng.so", {}},  // No library.
            {VOLE_TEST_PLUGIN_EMPTY, "load Option : ", "libheueng.so", {}},
            {VOLE_TEST_PLUGIN_WITHOUT_DESTROY, "load destroyInstance : ", "libheueng.so", {}},
            {VOLE_TEST_PLUGIN_GOOD, "load config file : ", "heueng.ini", refused},
        };
        for (const auto& [library, step, file, lines] : cases) {
            const PluginDir dir(library, "1 0");
            EngineLog log;
            std::string message;
            EXPECT_EQ(loadHeuPlugin(dir.path(), message), -479);
            // The system's own text follows where a symbol is missing.
            EXPECT_TRUE(message.starts_with("fail to " + step + (dir / file).string())) << message;
            EXPECT_EQ(heu_instance, nullptr) << message;
            EXPECT_EQ(log.taken(), lines) << message;
        }
        EngineLog log;
        EXPECT_EQ(checkSusVirus(1, nullptr), 0);
        EXPECT_EQ(log.taken(), Lines{"[pattern_assistant:1360] Fail to get Heuristic Engine Instance."});
    });
}

TEST(HeuPlugin, answersForTheLifeOfTheProcessOnceItHasMadeAnInstance) {
    inOwnProcess([] {
        const PluginDir none(VOLE_TEST_PLUGIN_GOOD, "0 100 null");
        const PluginDir first(VOLE_TEST_PLUGIN_GOOD, "0 200");
        const PluginDir second(VOLE_TEST_PLUGIN_GOOD, "0 300");
        const PluginDir broken(VOLE_TEST_PLUGIN_WITHOUT_DESTROY, "0 400");
        std::string message = "untouched";
        int extra = 7;
        EXPECT_EQ(loadHeuPlugin(none.path(), message), 0) << "no instance is no failure yet";
        EXPECT_EQ(message, "untouched");
        EXPECT_EQ(checkSusVirus(1, &extra), 0);
        EXPECT_EQ(extra, 0);

        // Nothing else loads: the text is that of the last step that failed.
        first.write("pattern_assistant.xml", "no XML");
        std::filesystem::create_symlink("/proc/self/mem", first / "broken.hdb");
        EXPECT_EQ(init((first / "").c_str(), message), 0);
        EXPECT_EQ(message, "fail to load pa list from " + (first / "").string());
        for (const auto& [dir, code] : {std::pair{&second, -476}, {&broken, -479}}) {
            freeResource();
            EngineLog log(1);
            EXPECT_EQ(init(dir->path().c_str(), message), 0);
            EXPECT_EQ(log.taken().rbegin()[1], "[pattern_assistant:681] rc3 is " + std::to_string(code));
            extra = 30;
            EXPECT_EQ(checkSusVirus(5, &extra), 205);
            EXPECT_EQ(extra, 35);
            EXPECT_EQ(checkSusVirus(-5, nullptr), 195);
            EXPECT_EQ(checkSusVirus(0, &extra), 0) << "no verdict was written";
        }
    });
}

TEST(HeuPlugin, isAskedByOneThreadAtATime) {
    inOwnProcess([] {
        const PluginDir dir(VOLE_TEST_PLUGIN_GOOD, "0 100");
        std::string message;
        ASSERT_EQ(loadHeuPlugin(dir.path(), message), 0);
        int extras[2] = {};
        const auto ask = [](int* extra) {
            for (int i = 0; i < 50 && *extra >= 0; ++i) checkSusVirus(1, extra);
        };
        { const std::jthread threads[] = {std::jthread(ask, extras), std::jthread(ask, extras + 1)}; }
        EXPECT_EQ(extras[0] + extras[1], 100) << "-1: calls overlapped";
    });
}

}  // namespace
