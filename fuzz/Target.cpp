#include "Target.h"

#include <map>

#include "HostListener.h"
#include "Input.h"
#include "rar/RarUnarchiver.h"
#include "rar/deep/RarDeepUnarchiver.h"
#include "rar/deep/RarWithin.h"
#include "unarchiver/ScanBudget.h"
#include "utils/Crc.h"
#include "zip/ZipUnarchiver.h"
#include "zip/deep/ZipDeepUnarchiver.h"
#include "zip/deep/ZipWithin.h"

using namespace ZOV_SPACE;

static Iso3309Crc outcomes;

static void walkRarDeep(std::string_view input) {
    InputBuffer buffer(input);
    NotedEntries entries;
    CoveredRanges covered;
    note(std::to_string(findRarWithin(buffer).value_or(-1)));
    noteRefusal([&] { RarDeepUnarchiver(&buffer, entries, covered).start(); });
}

// Of any content, as one that is looked into.
static void walkZipDeep(std::string_view input) {
    InputBuffer buffer(input);
    NotedEntries entries;
    CoveredRanges covered;
    note(std::to_string(static_cast<int>(findZipWithin(buffer).what)));
    noteRefusal([&] { ZipDeepUnarchiver(&buffer, entries, covered).start(); });
}

Target* findTarget(std::string_view name) {
    static const std::map<std::string_view, Target*> kTargets{
        {"list", readList},
        {"options", readOptionFile},
        {"patterns", scanWithPatterns},
        {"pe", compareCheckSums},
        {"ppm", unpackPpm},
        {"rar", walk<RarUnarchiver>},
        {"rar20", unpackRar20},
        {"rar29", unpackRar29},
        {"scan_buffer", scanBuffer},
        {"scan_file", scanWhole},
        {"vm", runVmProgram},
        {"zip", walk<ZipUnarchiver>},
        {"rar_deep", walkRarDeep},
        {"zip_deep", walkZipDeep},
        {"streams", walkContainer},
        {"tar", walkContainer},
        {"deflate", inflateTwice},
        {"vset", scanWithCompiledSet},
        {"check", checkFiles},
        {"worker_reply", readReplies},
#ifdef VOLE_FUZZ_HTTP_BODY
        {"http_body", readHttpBody},
#endif
    };
    const auto found = kTargets.find(name);
    return found == kTargets.end() ? nullptr : found->second;
}

void runTarget(Target* target, std::string_view input) {
    host::setSink(3, [](const char*) {});
    const diag::ListenerScope listening(host::listener());
    ScanBudget budget;
    const ScanBudget::Scope spending(budget);
    // Most of it is spent already: what a little work does not find, more of the same does not find either.
    ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - (std::int64_t{16} << 20));
    ScanBudget::takeVmInstructions(ScanBudget::kVmInstructions - 100'000);
    noteRefusal([&] { target(input); });
}

void note(std::string_view outcome) { outcomes.add(outcome.data(), static_cast<unsigned>(outcome.size())); }

std::uint32_t noted() { return outcomes.crc(); }
