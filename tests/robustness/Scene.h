// Scene.h: a loaded engine, and contents of all kinds in which a signature matches at the very end, so that a scan that
// finds it has been through everything before.
#ifndef TESTS_ROBUSTNESS_SCENE_H
#define TESTS_ROBUSTNESS_SCENE_H

#include <atomic>
#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/PeBuilder.h"
#include "support/PpmEncoder.h"
#include "support/RarBuilder.h"
#include "support/RarEncoder.h"
#include "support/RarVmAssembler.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "support/Verdict.h"
#include "support/ZipBuilder.h"
#include "voleeng.h"

namespace scene {

using ZOV_SPACE::RarBuilder;
using ZOV_SPACE::RarEncoder;

inline const std::string kNeedle = "the needle in\nthe haystack\n";
inline const std::string kHay = "hay, and more hay";

// Text with some order in it, so that packers have something to learn.
inline std::string words(unsigned count) {
    std::string text;
    for (unsigned i = 0, random = 1; i < count; ++i) {
        random = random * 1103515245U + 12345U;
        text += std::to_string((random >> 16) % 300) + (i % 20 ? " " : "\n");
    }
    return text;
}

inline std::string peImage() {
    std::string image = PeBuilder().build();
    image.replace(0x200, 16, "start of the code");
    return image;
}

// Files of the pattern directory. Every verdict bears the set's name.
inline void writePatterns(const TempDir& directory, const std::string& set) {
    std::string others;
    for (int i = 0; i < 300; ++i) others += md5Record(std::to_string(i), "Other-" + set);
    const std::string code = peImage().substr(0x200, 16);
    directory.write("a.hdb", others + md5Record(kNeedle, "Needle-" + set));
    directory.write("b.chk", startRecord("sum of this text", "Sum-" + set) +
                                 "03:0200:0000:10:" + toHex(code.substr(0, 4)) + ":" + crcField(code) +
                                 ":0:0:" + crcField("") + ":Pe-" + set + "\n");
    directory.write("pattern_assistant.xml", "<r><FalseAlarm><i name='Fa-" + set +
                                                 "'/></FalseAlarm><Spyware><i name='Spy-" + set + "'/></Spyware></r>");
    directory.write("voleeng.ini", "MaxUnarDepth = 10\n");
}

// An entry of packed data.
constexpr auto rarEntry = RarBuilder::packed;

inline std::string rarOf(const std::string& entries, bool solid = true) {
    return RarBuilder::marker() + RarBuilder::archive(solid ? 0x0008 : 0) + entries + RarBuilder::end();
}

inline std::string lzRar(unsigned version) {
    RarEncoder encoder(static_cast<int>(version));
    using enum ZOV_SPACE::VmOperation;
    if (version == 29) {
        // Changes the first byte, and leaves the rest.
        const auto program = ZOV_SPACE::RarVmAssembler().byte(inc, ZOV_SPACE::at(0U)).dword(ret).build();
        encoder.filter(ZOV_SPACE::kFilterHead, ZOV_SPACE::filterOf(0, 0, 16, program));
    }
    encoder.text(words(200));
    encoder.match(100, 50);
    const std::string first = encoder.finish(true);
    const std::size_t firstSize = encoder.takeEntry().size();
    encoder.text(kNeedle);
    return rarOf(rarEntry("a", first, firstSize, version, false) +
                 rarEntry("b", encoder.finish(), kNeedle.size(), version, true));
}

inline std::string ppmRar() {
    ZOV_SPACE::PpmEncoder encoder(6, 1);
    const std::string text = words(400);
    encoder.text(text);
    const std::string first = encoder.finish();
    encoder.nextEntry();
    encoder.text(kNeedle);
    return rarOf(rarEntry("a", first, text.size(), 29, false) +
                 rarEntry("b", encoder.finish(), kNeedle.size(), 29, true));
}

inline std::string zipOf(std::initializer_list<ZipMember> members) { return ZipBuilder(members).archive(); }

struct Content {
    const char* name;
    std::string bytes;
    std::string verdict;  // Without the set's name.
};

inline std::vector<Content> contents() {
    const ZipMember hay{"hay", kHay}, needle{"needle", kNeedle};
    const std::string inner = zipOf({hay, {"stored", words(100), 0}, needle});
    return {
        {"text", "  The Needle IN  \r\n\r\n\tthe haystack", "Needle"},
        {"check-sum", "sum of this text and what follows", "Sum"},
        {"PE", peImage(), "Pe"},
        {"nested ZIP", zipOf({hay, {"in", zipOf({hay, {"inner", inner, 0}})}}), "Needle"},
        {"streamed ZIP",
         zipOf({{"s", words(5000), 8, kSignedDescriptor},
                {"p", words(50), 0, kPlainDescriptor},
                {"in", zipOf({{"needle", kNeedle, 8, kSignedDescriptor}}), 8, kLargeSignedDescriptor}}),
         "Needle"},
        {"RAR 2.0", lzRar(20), "Needle"},
        {"RAR 2.9", lzRar(29), "Needle"},
        {"PPM", ppmRar(), "Needle"},
        {"RAR in ZIP", zipOf({hay, {"r", lzRar(29)}, {"p", rarOf(RarBuilder::stored("n", kNeedle), false)}}), "Needle"},
    };
}

// Counts the error lines of its scope without allocating.
class ErrorCount : public CapturedLog {
public:
    ErrorCount() : CapturedLog(kErrors, [](const char*) { ++_count; }) { _count = 0; }
    static unsigned taken() { return _count.exchange(0); }

private:
    static inline std::atomic<unsigned> _count = 0;
};

}  // namespace scene

#endif  // TESTS_ROBUSTNESS_SCENE_H
