// Writes the inputs that fuzzing starts from: DIRECTORY/<target>/<name>, each small and the same every time. Between
// them they reach what random bytes would not find.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/PeBuilder.h"
#include "support/PpmEncoder.h"
#include "support/RarBuilder.h"
#include "support/RarEncoder.h"
#include "support/SignatureText.h"
#include "support/ZipBuilder.h"

namespace {

using namespace ZOV_SPACE;
namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;

const std::string kText = "the quick brown vole digs the quick brown burrow under the quick brown field\n";

std::string text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

fs::path root;

void add(const std::string& target, const std::string& name, const std::string& bytes) {
    fs::create_directories(root / target);
    std::ofstream out(root / target / name, std::ios::binary);
    if (!(out << bytes).flush()) throw std::runtime_error("cannot write " + name);
}

// Every command, and operands of every form.
Bytes everyCommand() {
    using enum VmOperation;
    const std::set<VmOperation> jumps{jz, jnz, js, jns, jb, jbe, ja, jae, jmp, call},
        unary{push, inc, dec, bitNot, neg}, bare{pushAll, popAll, pushFlags, popFlags, print};
    RarVmAssembler program({1, 2, 3, 4, 5, 6, 7, 8});
    for (int number = 0; number <= static_cast<int>(print); ++number) {
        const auto operation = static_cast<VmOperation>(number);
        if (operation == ret) continue;
        if (jumps.contains(operation)) {
            program.jump(operation, program.next() + 1);
        } else if (bare.contains(operation)) {
            program.dword(operation);
        } else if (unary.contains(operation)) {
            program.dword(operation, at(reg(1), 16));
        } else if (operation == pop) {
            program.dword(operation, reg(2));
        } else {
            program.dword(operation, reg(1), at(reg(2))).dword(operation, at(0x3C020), imm(77));
        }
    }
    return program.dword(ret).build();
}

void writeEverything(RarEncoder& encoder) {
    encoder.text(kText);
    encoder.match(20, 30);
    encoder.shortMatch(7);
    encoder.repeatMatch();
    encoder.match(70, 12);
    encoder.oldDistance(1, 8);
}

struct Packed {
    std::string bytes;
    std::size_t size = 0;  // Unpacked.
};

Packed finished(RarEncoder& encoder, bool tablesFollow = false) {
    const std::string bytes = encoder.finish(tablesFollow);
    return {bytes, encoder.takeEntry().size()};
}

Packed packed20() {
    RarEncoder encoder(20);
    writeEverything(encoder);
    return finished(encoder);
}

Packed packed29(const Bytes& program = {}) {
    RarEncoder encoder(29);
    if (!program.empty()) encoder.filter(kFilterHead, filterOf(0, 5, 40, program));
    writeEverything(encoder);
    return finished(encoder);
}

Packed packedPpm() {
    PpmEncoder encoder(5, 1);
    encoder.text(kText + kText);
    return {encoder.finish(), 2 * kText.size()};
}

Packed packedPpmCommands() {
    PpmEncoder encoder(4, 1);
    const auto put = [&encoder](const std::string& bytes) {
        for (const char byte : bytes) encoder.put(static_cast<unsigned char>(byte));
    };
    encoder.text(kText);
    put({PpmEncoder::kEscape, 4, 0, 0, 18, 9});  // A match,
    put({PpmEncoder::kEscape, 5, 10});           // a run,
    const std::string filter = text(filterOf(0, 5, 40, incrementProgram()));
    put({PpmEncoder::kEscape, 3, static_cast<char>(kFilterHead | 6), static_cast<char>(filter.size() - 7)});
    put(filter);
    encoder.text(kText);
    return {encoder.finish(), 1000};  // More than it is: it has an end of its own.
}

std::string twoEntries(const Packed& first, const Packed& second = {}) {
    return littleEndian(first.bytes.size(), 2) + littleEndian(first.size, 2) + littleEndian(second.size, 2) +
           first.bytes + second.bytes;
}

void addRarData() {
    add("rar20", "lz", twoEntries(packed20()));
    RarEncoder chain20(20);
    writeEverything(chain20);
    const Packed first20 = finished(chain20, true);
    writeEverything(chain20);
    add("rar20", "lz-solid", twoEntries(first20, finished(chain20)));
    // Sound of one and of four channels: tables whose symbols all have eight bits, by the ninth of the code lengths.
    for (const unsigned channels : {1U, 4U}) {
        RarBitWriter bits;
        bits.put(2, 2), bits.put(channels - 1, 2);
        for (unsigned i = 0; i < 19; ++i) bits.put(i == 9 || i == 0 ? 1 : 0, 4);
        for (unsigned i = 0; i < 257 * channels; ++i) bits.put(i % 257 == 256 ? 0 : 1, 1);
        for (unsigned i = 0; i < 300; ++i) bits.put(i * i % 509, 9);
        add("rar20", "sound-" + std::to_string(channels), twoEntries({text(bits.bytes()), 300}));
    }

    add("rar29", "lz", twoEntries(packed29()));
    RarEncoder chain29(29);
    writeEverything(chain29);
    chain29.nextBlock(true);
    writeEverything(chain29);
    const Packed first29 = finished(chain29);
    writeEverything(chain29);
    const Packed second29 = finished(chain29);
    add("rar29", "lz-blocks-solid", twoEntries(first29, second29));
    add("rar29", "lz-filter", twoEntries(packed29(incrementProgram())));
    add("rar29", "lz-filter-e8", twoEntries(packed29(standInProgram(kFilterE8))));
    add("rar29", "lz-filter-delta", twoEntries(packed29(standInProgram(kFilterDelta))));
    PpmEncoder chain(5, 1);
    chain.text(kText);
    const Packed firstPpm{chain.finish(), kText.size()};
    chain.nextEntry();
    chain.text(kText);
    add("rar29", "ppm-solid", twoEntries(firstPpm, {chain.finish(), kText.size()}));
    add("rar29", "ppm-commands", twoEntries(packedPpmCommands()));
    add("rar29", "ppm-then-lz", twoEntries(packedPpm(), packed29()));

    add("ppm", "text", packedPpm().bytes);
    PpmEncoder blocks(64, 1);
    blocks.text(kText);
    blocks.nextBlock();
    for (int c = 0; c < 256; ++c) blocks.text(std::string(1, static_cast<char>(c)));
    blocks.nextBlock(true);
    blocks.text(std::string(300, 'a') + kText);
    add("ppm", "blocks", blocks.finish());
    // One letter is wrong in each line, behind the longest contexts there are: the heap is full before the text is
    // over.
    PpmEncoder lines(64, 1);
    std::minstd_rand random(1);
    for (int i = 0; i < 1200; ++i) {
        std::string line = kText;
        line[random() % line.size()] = static_cast<char>('A' + random() % 26);
        lines.text(line);
    }
    add("ppm", "full-heap", lines.finish());
}

void addPrograms() {
    std::string block;
    for (const unsigned reg : {3U, 300U, 0x40U, 0U, 0U, 5U, 6U}) block += littleEndian(reg, 4);
    for (int i = 0; i < 80; ++i) block += static_cast<char>(i % 7 == 0 ? 0xE8 : i);
    const auto addCode = [&](const std::string& name, const Bytes& code) {
        add("vm", name, littleEndian(code.size(), 2) + text(code) + block);
    };
    addCode("increment", incrementProgram());
    addCode("every-command", everyCommand());
    constexpr std::pair<const char*, VM_StandardFilters> kFilters[] = {
        {"e8", kFilterE8},   {"e8e9", kFilterE8E9},   {"itanium", kFilterItanium}, {"delta", kFilterDelta},
        {"rgb", kFilterRgb}, {"audio", kFilterAudio}, {"upcase", kFilterUpcase},
    };
    for (const auto& [name, filter] : kFilters) addCode(std::string("filter-") + name, standInProgram(filter));
}

RarFile rarFile(const std::string& name, const Packed& data, unsigned version, unsigned flags = 0) {
    RarFile file;
    file.name = name;
    file.data = data.bytes;
    file.flags = flags;
    file.method = 0x33;
    file.unpVer = version;
    file.unpackedSize = static_cast<std::uint32_t>(data.size);
    return file;
}

std::string mixedRar() {
    return RarBuilder::marker() + RarBuilder::archive() + RarBuilder::stored("stored", kText) +
           RarBuilder::file(rarFile("lz20", packed20(), 20)) + RarBuilder::file(rarFile("lz29", packed29(), 29)) +
           RarBuilder::file(rarFile("ppm", packedPpm(), 29)) + RarBuilder::end();
}

std::string solidRar() {
    constexpr unsigned kSolidArchive = 8, kSolidFile = 0x10;
    RarEncoder encoder(29);
    writeEverything(encoder);
    const Packed first = finished(encoder);
    writeEverything(encoder);
    const Packed second = finished(encoder);
    RarFile broken = rarFile("3", packedPpm(), 29, kSolidFile);
    broken.broken = true;
    return RarBuilder::marker() + RarBuilder::archive(kSolidArchive) + RarBuilder::file(rarFile("1", first, 29)) +
           RarBuilder::file(rarFile("2", second, 29, kSolidFile)) + RarBuilder::file(broken) +
           RarBuilder::file(rarFile("4", packedPpm(), 29, kSolidFile)) + RarBuilder::end();
}

std::string oddRar() {
    constexpr unsigned kLarge = 0x100, kTimes = 0x1000, kSalt = 0x400;
    RarFile large = rarFile("large", {kText, 9}, 29, kLarge | kTimes | kSalt);
    large.extendedTime = std::string("\xFF\xFF", 2) + std::string(20, '\1');
    large.salt = "saltsalt";
    large.unpackedHigh = 1;
    return RarBuilder::marker() + RarBuilder::archive(2, RarBuilder::block(0x75, 0, "comment")) +
           RarBuilder::block(0x77, RarBuilder::kHasData, "sub-block", kText) + RarBuilder::file(large) +
           RarBuilder::file(rarFile("old", {kText, 100}, 15)) + RarBuilder::end();
}

std::string mixedZip() {
    return ZipBuilder({{"stored", kText, 0},
                       {"deflated", kText + kText},
                       {"signed", kText, 8, kSignedDescriptor},
                       {"plain", kText, 0, kPlainDescriptor},
                       {"large", kText, 8, kLargeSignedDescriptor},
                       {"folder/", "", 0}})
        .archive();
}

std::string oddZip() {
    ZipMember damaged{"damaged", kText};
    damaged.data = deflated(kText).substr(0, 30) + "noise";
    ZipMember lying{"lying", kText};
    lying.unpacked = 5;
    lying.checkSum = 7;
    return ZipBuilder({damaged, lying, {"extra", kText, 8, kNoDescriptor, 0, "xx\4\0data"}, {"shrunk", kText, 1}})
        .archive();
}

void addContents() {
    add("zip", "mixed", mixedZip());
    add("zip", "odd", oddZip());
    add("zip", "split-encrypted",
        "PK\7\10" + ZipBuilder({{"a", kText}, {"encrypted", kText, 8, 0, 1}, {"b", kText, 0}}).archive());
    add("rar", "mixed", mixedRar());
    add("rar", "solid", solidRar());
    add("rar", "odd", oddRar());

    const std::string pe = PeBuilder().withSections(2).build();
    PeBuilder moved;
    moved.magic = "ZM";
    moved.newHeader = 0x41;
    moved.optionalHeaderSize = 300;
    moved.withSections(17).paddedTo = 0;
    PeBuilder wild;
    wild.sections = {{0xFFFFF000, 0, 0x3FF, 0xFFFFFFFF}, {0x10FF, 0, 0xFFFFFF00, 0x1000}};
    add("pe", "plain", pe.substr(0, 0x300));
    add("pe", "moved", moved.build());
    add("pe", "wild", wild.build());
    add("pe", "zeros", std::string(700, '\0'));

    add("scan_file", "text", "\t A Known  Content \r\n\n a known content\n");
    add("scan_file", "known", "a known start");
    add("scan_file", "executable", pe.substr(0, 0x300));
    add("scan_file", "rar-in-zip", ZipBuilder({{"in.rar", mixedRar()}, {"in.zip", mixedZip(), 0}}).archive());
    add("scan_file", "zip-in-rar",
        RarBuilder::marker() + RarBuilder::archive() + RarBuilder::stored("in.zip", oddZip()) +
            RarBuilder::stored("in.exe", pe.substr(0, 0x300)) + RarBuilder::end());
    add("scan_file", "rar-solid", solidRar());
    ZipMember bomb{"bomb", std::string(5 << 18, '\0')};
    bomb.unpacked = 1 << 18;
    add("scan_file", "larger-than-announced", ZipBuilder({bomb}).archive());
}

void addSettings() {
    add("patterns", "md5",
        "# comment\n#count:3\n" + md5Record(std::string(300, 'a'), "Letters") + md5Record("b", "B") + "00:1:short\n\n" +
            md5Record("c", "One-Too-Many"));
    add("patterns", "count", "#count:4294967297\n#count:-1\n#count:00000000000009\n" + md5Record("b", "B"));
    add("patterns", "chk",
        startRecord(std::string(255, 'a'), "Start") +
            "3:0200:8000:4:00000000:1cdf4421:7fff:4:1cdf4421:Entry\n"
            "03:0301:0::4:00000000:1cdf4421:fff0:4:1cdf4421:Section\r\n"
            "0:0100:12c:ff:61616161:00000000:0:0:00000000:End:more\n"
            "9:0000:0:0:00000000:00000000:0:0:00000000:Target\n"
            "0:0400:0:0:00000000:00000000:0:0:00000000:Type\n");
    add("patterns", "long-line", std::string(1022, '#') + "\n" + std::string(1100, '0') + ":1:\n");
    add("options", "all",
        "# limits\nMaxUnarEntries = 10\n MaxUnarRatio=0 ; none\nMaxUnarLevelEntries\t=\t20\n"
        "MaxUnarDepth = 99999999999\nMaxUnarSize = \nMaxUnarDepth = x\n");
    add("options", "illegal", "MaxUnarSize = 1x\nMaxUnarEntries == 1\n=\n;\n" + std::string(1100, 'M') + "\n");
    add("list", "list",
        "<?xml version=\"1.0\"?>\n<a><FalseAlarm><item name=\"Example-False-Alarm\"/><b/></FalseAlarm>\n"
        "<!-- --><Spyware><item name=\"Example-Spy&#x77;are-\"/><item name=''/></Spyware></a>\n");
    add("list", "declarations",
        "<!DOCTYPE a [<!ELEMENT a ANY><!ATTLIST item name CDATA \"default\"><!ENTITY e \"x\">]>"
        "<a><Spyware><item/></Spyware><![CDATA[<]]>&e;</a>");
    std::string deep = "<a>";
    for (int i = 0; i < 260; ++i) deep += "<b>";
    add("list", "deep", deep);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    root = argv[1];
    addRarData();
    addPrograms();
    addContents();
    addSettings();
    return 0;
}
