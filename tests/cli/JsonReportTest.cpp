#include "JsonReport.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/TempDir.h"

namespace {

TEST(JsonReport, isAsTheSchemaSaysAndLosesNothing) {
    FileReport found, failed, cached;
    found.path = "caf\u00e9\x7f";
    found.outcome = Outcome::found;
    found.findings.push_back({"A", "md5", "raw", false, {}, {"a.zip", "\xff\x0a"}});
    found.findings.push_back({"B", "check-sum", "normalised", true, std::uint64_t{1} << 40, {}});
    found.reasons.push_back({"size-limit", "larger than 1 MiB", {"", std::string("\0b", 2)}});
    failed.path = "caf\xe9";
    failed.outcome = Outcome::failed;
    failed.error = "gone";
    cached.cached = true;
    EXPECT_EQ(jsonLine(found),
              R"({"path":"caf\u00e9\u007f","outcome":"found",)"
              R"("findings":[{"name":"A","kind":"md5","form":"raw","member":["a.zip",{"bytes":"ff0a"}]}],)"
              R"("reasons":[{"code":"size-limit","member":["","\u0000b"],"text":"larger than 1 MiB"}],)"
              R"("allowed":[{"name":"B","kind":"check-sum","form":"normalised","member":[],"offset":1099511627776}],)"
              R"("counters":{"bytes_read":0,"bytes_unpacked":0,"members":0,"deepest_level":0,"time_us":0,"findings":0,)"
              R"("reasons":0}})");
    const TempDir box;
    std::string report = jsonHeader("1.2", 3, std::string(32, 'a')) + "\n";
    for (const FileReport& file : {found, failed, cached}) report += jsonLine(file) + "\n";
    report += jsonSummary({}, 1.0 / 3, true) + "\n";
    EXPECT_EQ(std::system((VOLE_CHECK_JSON " <" + box.write("report", report)).c_str()), 0) << report;
}

}  // namespace
