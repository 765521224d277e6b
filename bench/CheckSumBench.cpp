// What a scan costs with many checksum records, relative to few of the same kind.
#include <string>
#include <utility>
#include <vector>

#include "Benches.h"
#include "Corpus.h"
#include "Engine.h"
#include "support/PeBuilder.h"

namespace {

using corpus::ChkShape;

constexpr std::uint64_t kFewRecords = 1000;
constexpr std::uint64_t kManyRecords = 100'000;
constexpr double kTarget = 2;

constexpr ChkShape kEndShapes[] = {
    {"any of 65536 offsets", false, 0, 0x10000},
    {"any of the 32768 that can match", false, 0, 0x8000},
    {"16 offsets", false, 0, 16},
    {"one offset", false, 0, 1},
};
constexpr ChkShape kPeShapes[] = {
    {"PE, any of 65536 offsets", true, 0, 0x10000},
    {"PE, 16 offsets", true, 0, 16},
    {"PE, one offset", true, 0, 1},
};

using Sizes = std::vector<std::pair<std::string, std::size_t>>;

struct Sample {
    std::string name;
    std::string path;
};

// Three sections in the first 128 KiB, so that windows around them reach both ways.
std::string peImage(std::size_t size) {
    PeBuilder image;
    image.sections.clear();
    const auto step = static_cast<std::uint32_t>(std::min<std::size_t>(size / 4, 0x8000));
    for (std::uint32_t i = 1; i <= 3; ++i) image.sections.push_back({0x10000 * i, step, step * i, step});
    image.entryPoint = 0x10000 + 16;
    const std::string headers = image.build();
    std::string content = corpus::randomBytes(6, size);
    return content.replace(0, headers.size(), headers);
}

std::vector<Sample> writeSamples(const corpus::Folder& folder, const Sizes& sizes, bool pe) {
    std::vector<Sample> samples;
    const auto add = [&](const std::string& name, const std::string& content) {
        const std::string path = folder / ("sample" + std::to_string(samples.size()) + (pe ? "pe" : ""));
        corpus::writeFile(path, content);
        samples.push_back({name, path});
    };
    for (const auto& [name, size] : sizes) add(name, pe ? peImage(size) : corpus::randomBytes(5, size));
    if (!pe) add("64 KiB of zeros", std::string(0x10000, '\0'));
    return samples;
}

void benchShape(const Settings& settings, Report& report, const corpus::Folder& folder, const ChkShape& shape,
                const std::vector<Sample>& samples) {
    const auto few = folder.sub(std::string(shape.name) + ", few");
    const auto many = folder.sub(std::string(shape.name) + ", many");
    corpus::writeChk(few / "bench.chk", shape, kFewRecords);
    corpus::writeChk(many / "bench.chk", shape, kManyRecords);

    // The sets take turns; with each, all samples are scanned.
    std::vector<Times> times(samples.size());
    const int rounds = settings.quick ? 1 : 4;
    const int batches = settings.quick ? 5 : 12;
    for (int round = 0; round < rounds; ++round) {
        const auto scanAll = [&](const std::string& patterns, auto Times::*best) {
            loadEngine(patterns);
            for (std::size_t i = 0; i < samples.size(); ++i) {
                const double seconds = secondsPerCall(batches, [&] { scanCleanFile(samples[i].path); });
                times[i].*best = std::min(times[i].*best, seconds);
            }
        };
        scanAll(few, &Times::reference);
        scanAll(many, &Times::subject);
    }
    freeResource();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        report.ratio(std::string(shape.name) + "; " + samples[i].name, times[i], kTarget);
    }
}

}  // namespace

void benchCheckSums(const Settings& settings, Report& report) {
    report.section("Checksum records: scanFile() with 100,000 records / with 1,000",
                   "One file over and over, so the index is in the processor's caches. Offsets count from both ends "
                   "of the file, or from a PE file's entry point and three sections. Nothing matches.");
    const corpus::Folder folder;
    Sizes sizes = {{"8 KiB", 8 << 10}, {"64 KiB", 64 << 10}, {"1 MiB", 1 << 20}};
    const auto peSamples = writeSamples(folder, sizes, true);
    sizes.emplace_back("16 MiB", 16 << 20);
    const auto endSamples = writeSamples(folder, sizes, false);
    for (const ChkShape& shape : kEndShapes) benchShape(settings, report, folder, shape, endSamples);
    for (const ChkShape& shape : kPeShapes) benchShape(settings, report, folder, shape, peSamples);
}
