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

// Files whose known contents lie where the engine does not look: in the archive's comment.
const std::set<std::string> kExcepted{"zip/zip64-in-archive-comment.zip"};

bool is(const json& entry, const char* property) { return entry.value(property, false); }

bool canUnpack(const json& entry, bool rar) {
    static const std::set<json> methods{0, 8, "0x30"}, rarVersions{20, 26, 29};
    if (rar && is(entry, "split_before")) return false;
    return methods.contains(entry.at("method")) || (rar && rarVersions.contains(entry.at("unp_ver")));
}

// What follows such an entry is out of reach: a RAR walk ends with an encrypted entry, with one that goes on in the
// next volume, and with one in a method of another version.
bool endsRarWalk(const json& entry) {
    const bool passedOver = is(entry, "split_before") || entry.at("packed_size") == 0;
    return is(entry, "encrypted") || is(entry, "split_after") || (!passedOver && !canUnpack(entry, true));
}

class Samples : public EngineTest {
protected:
    void SetUp() override {
        if (!fs::exists(kSamples / "manifest.json")) {
            GTEST_SKIP() << "NO SAMPLES in " << kSamples << ": set VOLE_SAMPLES_DIR to test with real archives.";
        }
        VoleOptions::set({0, 0, 0, 50, 0});
        manifest = json::parse(std::ifstream(kSamples / "manifest.json")).at("samples");
    }

    static std::string scanned(const json& sample) { return verdictOf(kSamples / sample.at("file")); }

    json manifest;
};

using Kind = std::pair<std::string, std::string>;  // The category, and how its archives start.

// The records of the contents that must be found in a sample, in the form of an ".hdb" file. None for those with
// something in front of the archive, and for volumes of a ZIP set but the first.
std::vector<std::string> expected(const json& sample, const Kind& kind) {
    const auto& [category, magic] = kind;
    std::vector<std::string> records;
    const std::string file = sample.at("file");
    const bool rar = category == "rar";
    if (sample.at("category") != category || kExcepted.contains(file)) return records;
    if (!TempDir::contentOf(kSamples / file).starts_with(magic)) return records;
    for (const json& entry : sample.at("entries")) {
        if (rar && endsRarWalk(entry)) break;
        if (entry.value("content_state", "") != "confirmed" || !canUnpack(entry, rar)) continue;
        const json& content = entry.at("content");
        if (content.at("size") == 0) continue;
        records.push_back(content.at("md5").get<std::string>() + ":" + content.at("size").dump() + ":Known\n");
    }
    return records;
}

TEST_F(Samples, contentsAreFoundByTheirDigests) {
    for (const Kind& kind : {Kind("zip", "PK\3\4"), {"rar", std::string("Rar!\x1A\7\0", 7)}}) {
        int known = 0;
        for (const json& sample : manifest) {
            for (const std::string& record : expected(sample, kind)) {
                know(record);
                EXPECT_EQ(scanned(sample), "Known") << sample.at("file") << " " << record;
                ++known;
            }
        }
        EXPECT_GT(known, 0) << kind.first;
        std::cout << kind.first << ": looked for " << known << " contents\n";
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
