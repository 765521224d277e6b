// The input as a file of either kind, and then scans with what could be loaded.
#include "Input.h"
#include "PatternContainer.h"
#include "Target.h"
#include "VoleScanner.h"
#include "io/IOBuffer.h"
#include "support/PeBuilder.h"
#include "support/TempDir.h"

void scanWithPatterns(std::string_view input) {
    static const std::string contents[] = {PeBuilder().withSections(2).build(), std::string(300, 'a')};
    static const TempDir dir;
    PatternContainer container;
    for (const char* name : {"a.hdb", "a.chk"}) {
        require(container.loadPattern(dir.write(name, std::string(input))) == 0);
    }
    std::string found[2];
    for (std::string& names : found) {
        for (const std::string& content : contents) {
            ZOV_SPACE::InputBuffer memory(content);
            ZOV_SPACE::IOBuffer buffer(&memory);
            const auto size = static_cast<unsigned>(content.size());
            std::string md5, chk;
            Md5Scanner(container.md5List()).scan(&buffer, size, md5);
            ChkScanner(container.checkSumList()).scan(&buffer, size, chk, kTargetAny);
            names += md5 + "/" + chk + "/";
        }
        container.prepare();
    }
    require(found[0] == found[1]);
    note(found[0]);
}
