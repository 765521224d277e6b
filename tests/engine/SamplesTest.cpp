// Real archives, as far as they lie beside the checkout: what is known to be in them must be found, and damaged ones
// must not keep a scan busy.
#include <chrono>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "support/EngineTest.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kSamples = VOLE_SAMPLES_DIR;

bool is(const json& entry, const char* property) { return entry.value(property, false); }

bool canUnpackZip(const json& entry) { return entry.at("method") == 0 || entry.at("method") == 8; }

bool isStoredRar(const json& entry) { return entry.at("method") == "0x30"; }

bool canUnpackRar(const json& entry) {
    static const std::set<int> versions{20, 26, 29};
    return !is(entry, "split_before") && (isStoredRar(entry) || versions.contains(entry.at("unp_ver")));
}

// What follows such an entry is out of reach: a RAR walk ends with an encrypted entry, with one that goes on in the
// next volume, and with one in a method of another version.
bool endsRarWalk(const json& entry) {
    const bool passedOver = is(entry, "split_before") || entry.at("packed_size") == 0;
    return is(entry, "encrypted") || is(entry, "split_after") || (!passedOver && !canUnpackRar(entry));
}

bool never(const json&) { return false; }

// Archives of one kind that must give up all their contents.
struct Kind {
    const char* category;
    std::string start;  // Of their files. Others have something in front, or are not the first volume of a ZIP set.
    bool (*canUnpack)(const json& entry);
    bool (*endsWalk)(const json& entry);
    std::set<std::string> excepted;  // Files.
};

const Kind kKinds[] = {
    // The entry of the exception lies in the archive's comment.
    {"zip", "PK\3\4", canUnpackZip, never, {"zip/zip64-in-archive-comment.zip"}},
    {"rar", std::string("Rar!\x1A\7\0", 7), canUnpackRar, endsRarWalk, {}},
};

class Samples : public EngineTest {
protected:
    void SetUp() override {
        if (!fs::exists(kSamples / "manifest.json")) {
            GTEST_SKIP() << "NO SAMPLES in " << kSamples << ": set VOLE_SAMPLES_DIR to test with real archives.";
        }
        manifest = json::parse(std::ifstream(kSamples / "manifest.json")).at("samples");
    }

    void know(const std::string& record) {
        freeResource();
        const TempDir patterns;
        patterns.write("a.hdb", record);
        ASSERT_EQ(load(patterns), 0) << message;
        VoleOptions::set({0, 0, 0, 50, 0});
    }
    static std::string scanned(const json& sample) { return verdictOf(kSamples / sample.at("file")); }

    json manifest;
};

// The records of the contents that the kind's rules ask for in a sample, in the form of an ".hdb" file.
std::vector<std::string> expected(const Kind& kind, const json& sample) {
    std::vector<std::string> records;
    const std::string file = sample.at("file");
    std::string start(kind.start.size(), '\0');
    std::ifstream(kSamples / file, std::ios::binary).read(start.data(), static_cast<std::streamsize>(start.size()));
    if (sample.at("category") != kind.category || start != kind.start || kind.excepted.contains(file)) return records;
    for (const json& entry : sample.at("entries")) {
        if (kind.endsWalk(entry)) break;
        if (entry.value("content_state", "") != "confirmed" || !kind.canUnpack(entry)) continue;
        const json& content = entry.at("content");
        if (content.at("size") == 0) continue;
        records.push_back(content.at("md5").get<std::string>() + ":" + content.at("size").dump() + ":Known\n");
    }
    return records;
}

TEST_F(Samples, contentsAreFoundByTheirDigests) {
    for (const Kind& kind : kKinds) {
        int known = 0;
        for (const json& sample : manifest) {
            for (const std::string& record : expected(kind, sample)) {
                know(record);
                EXPECT_EQ(scanned(sample), "Known") << sample.at("file") << " " << record;
                ++known;
            }
        }
        EXPECT_GT(known, 0) << kind.category;
        std::cout << kind.category << ": looked for " << known << " contents\n";
    }
}

TEST_F(Samples, damagedArchivesEndInBoundedTime) {
    constexpr std::chrono::seconds kLongest{60};
    know("00000000000000000000000000000000:1:Nothing\n");
    for (const json& sample : manifest) {
        const auto start = std::chrono::steady_clock::now();
        const std::string verdict = scanned(sample);
        EXPECT_LT(std::chrono::steady_clock::now() - start, kLongest) << sample.at("file");
        EXPECT_EQ(verdict, "0") << sample.at("file");
    }
}

}  // namespace
