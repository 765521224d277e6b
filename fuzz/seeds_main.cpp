// Writes the inputs that fuzzing starts from: DIRECTORY/<target>/<name>, each small and the same every time. Between
// them they reach what random bytes would not find.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
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
using Op = VmOperation;

const std::string kText = "the quick brown vole digs the quick brown burrow under the quick brown field\n";

std::string text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

class Seeds {
public:
    explicit Seeds(fs::path root) : _root(std::move(root)) {}

    void add(const std::string& target, const std::string& name, const std::string& bytes) const {
        fs::create_directories(_root / target);
        std::ofstream out(_root / target / name, std::ios::binary);
        if (!(out << bytes).flush()) throw std::runtime_error("cannot write " + name);
    }

private:
    fs::path _root;
};

// Adds 1 to each byte of the block.
Bytes incrementProgram() {
    RarVmAssembler program;
    program.dword(Op::mov, reg(0), imm(0));
    const std::uint32_t loop = program.next();
    program.byte(Op::inc, at(reg(0))).dword(Op::inc, reg(0)).dword(Op::cmp, reg(0), reg(4)).jump(Op::jb, loop);
    return program.dword(Op::ret).build();
}

// Every command, and operands of every form.
Bytes everyCommand() {
    RarVmAssembler program;
    program.staticData({1, 2, 3, 4, 5, 6, 7, 8});
    for (int number = 0; number <= static_cast<int>(Op::print); ++number) {
        const auto operation = static_cast<Op>(number);
        switch (operation) {
            case Op::jz:
            case Op::jnz:
            case Op::js:
            case Op::jns:
            case Op::jb:
            case Op::jbe:
            case Op::ja:
            case Op::jae:
            case Op::jmp:
            case Op::call:
                program.jump(operation, program.next() + 1);
                break;
            case Op::ret:
            case Op::pushAll:
            case Op::popAll:
            case Op::pushFlags:
            case Op::popFlags:
            case Op::print:
                if (operation != Op::ret) program.dword(operation);
                break;
            case Op::push:
            case Op::inc:
            case Op::dec:
            case Op::bitNot:
            case Op::neg:
                program.dword(operation, at(reg(1), 16));
                break;
            case Op::pop:
                program.dword(operation, reg(2));
                break;
            default:
                program.dword(operation, reg(1), at(reg(2))).dword(operation, at(0x3C020), imm(77));
        }
    }
    return program.dword(Op::ret).build();
}

// As a filter's description has it: which program, how far ahead its block begins, the block's length, the program.
Bytes filterDescription(const Bytes& program) {
    RarBitWriter bits;
    for (const std::uint32_t number : {0U, 5U, 40U, static_cast<std::uint32_t>(program.size())}) bits.putNumber(number);
    for (const unsigned char byte : program) bits.put(byte, 8);
    return bits.bytes();
}

constexpr unsigned kNumber = 0x80, kLength = 0x20;  // What a filter's description has.

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
    if (!program.empty()) encoder.filter(kNumber | kLength, filterDescription(program));
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
    const std::string filter = text(filterDescription(incrementProgram()));
    put({PpmEncoder::kEscape, 3, static_cast<char>(kNumber | kLength | 6), static_cast<char>(filter.size() - 7)});
    put(filter);
    encoder.text(kText);
    return {encoder.finish(), 1000};  // More than it is: it has an end of its own.
}

std::string twoEntries(const Packed& first, const Packed& second = {}) {
    return littleEndian(first.bytes.size(), 2) + littleEndian(first.size, 2) + littleEndian(second.size, 2) +
           first.bytes + second.bytes;
}

void addRarData(const Seeds& seeds) {
    seeds.add("rar20", "lz", twoEntries(packed20()));
    RarEncoder chain20(20);
    writeEverything(chain20);
    const Packed first20 = finished(chain20, true);
    writeEverything(chain20);
    seeds.add("rar20", "lz-solid", twoEntries(first20, finished(chain20)));
    // Sound of one and of four channels: tables whose symbols all have eight bits, by the ninth of the code lengths.
    for (const unsigned channels : {1U, 4U}) {
        RarBitWriter bits;
        bits.put(2, 2), bits.put(channels - 1, 2);
        for (unsigned i = 0; i < 19; ++i) bits.put(i == 9 || i == 0 ? 1 : 0, 4);
        for (unsigned i = 0; i < 257 * channels; ++i) bits.put(i % 257 == 256 ? 0 : 1, 1);
        for (unsigned i = 0; i < 300; ++i) bits.put(i * i % 509, 9);
        seeds.add("rar20", "sound-" + std::to_string(channels), twoEntries({text(bits.bytes()), 300}));
    }

    seeds.add("rar29", "lz", twoEntries(packed29()));
    RarEncoder chain29(29);
    writeEverything(chain29);
    chain29.nextBlock(true);
    writeEverything(chain29);
    const Packed first29 = finished(chain29);
    writeEverything(chain29);
    const Packed second29 = finished(chain29);
    seeds.add("rar29", "lz-blocks-solid", twoEntries(first29, second29));
    seeds.add("rar29", "lz-filter", twoEntries(packed29(incrementProgram())));
    seeds.add("rar29", "lz-filter-e8", twoEntries(packed29(standInProgram(kFilterE8))));
    seeds.add("rar29", "lz-filter-delta", twoEntries(packed29(standInProgram(kFilterDelta))));
    PpmEncoder chain(5, 1);
    chain.text(kText);
    const Packed firstPpm{chain.finish(), kText.size()};
    chain.nextEntry();
    chain.text(kText);
    seeds.add("rar29", "ppm-solid", twoEntries(firstPpm, {chain.finish(), kText.size()}));
    seeds.add("rar29", "ppm-commands", twoEntries(packedPpmCommands()));
    seeds.add("rar29", "ppm-then-lz", twoEntries(packedPpm(), packed29()));

    seeds.add("ppm", "text", packedPpm().bytes);
    PpmEncoder blocks(64, 1);
    blocks.text(kText);
    blocks.nextBlock();
    for (int c = 0; c < 256; ++c) blocks.text(std::string(1, static_cast<char>(c)));
    blocks.nextBlock(true);
    blocks.text(std::string(300, 'a') + kText);
    seeds.add("ppm", "blocks", blocks.finish());
    // One letter is wrong in each line, behind the longest contexts there are: the heap is full before the text is
    // over.
    PpmEncoder lines(64, 1);
    std::minstd_rand random(1);
    for (int i = 0; i < 1200; ++i) {
        std::string line = kText;
        line[random() % line.size()] = static_cast<char>('A' + random() % 26);
        lines.text(line);
    }
    seeds.add("ppm", "full-heap", lines.finish());
}

void addPrograms(const Seeds& seeds) {
    std::string block;
    for (const unsigned reg : {3U, 300U, 0x40U, 0U, 0U, 5U, 6U}) block += littleEndian(reg, 4);
    for (int i = 0; i < 80; ++i) block += static_cast<char>(i % 7 == 0 ? 0xE8 : i);
    const auto add = [&](const std::string& name, const Bytes& code) {
        seeds.add("vm", name, littleEndian(code.size(), 2) + text(code) + block);
    };
    add("increment", incrementProgram());
    add("every-command", everyCommand());
    constexpr std::pair<const char*, VM_StandardFilters> kFilters[] = {
        {"e8", kFilterE8},   {"e8e9", kFilterE8E9},   {"itanium", kFilterItanium}, {"delta", kFilterDelta},
        {"rgb", kFilterRgb}, {"audio", kFilterAudio}, {"upcase", kFilterUpcase},
    };
    for (const auto& [name, filter] : kFilters) add(std::string("filter-") + name, standInProgram(filter));
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

void addContents(const Seeds& seeds) {
    seeds.add("zip", "mixed", mixedZip());
    seeds.add("zip", "odd", oddZip());
    seeds.add("zip", "split-encrypted",
              "PK\7\10" + ZipBuilder({{"a", kText}, {"encrypted", kText, 8, 0, 1}, {"b", kText, 0}}).archive());
    seeds.add("rar", "mixed", mixedRar());
    seeds.add("rar", "solid", solidRar());
    seeds.add("rar", "odd", oddRar());

    const std::string pe = PeBuilder().withSections(2).build();
    PeBuilder moved;
    moved.magic = "ZM";
    moved.newHeader = 0x41;
    moved.optionalHeaderSize = 300;
    moved.withSections(17).paddedTo = 0;
    PeBuilder wild;
    wild.sections = {{0xFFFFF000, 0, 0x3FF, 0xFFFFFFFF}, {0x10FF, 0, 0xFFFFFF00, 0x1000}};
    seeds.add("pe", "plain", pe.substr(0, 0x300));
    seeds.add("pe", "moved", moved.build());
    seeds.add("pe", "wild", wild.build());
    seeds.add("pe", "zeros", std::string(700, '\0'));

    seeds.add("scan_file", "text", "\t A Known  Content \r\n\n a known content\n");
    seeds.add("scan_file", "known", "a known start");
    seeds.add("scan_file", "executable", pe.substr(0, 0x300));
    seeds.add("scan_file", "rar-in-zip", ZipBuilder({{"in.rar", mixedRar()}, {"in.zip", mixedZip(), 0}}).archive());
    seeds.add("scan_file", "zip-in-rar",
              RarBuilder::marker() + RarBuilder::archive() + RarBuilder::stored("in.zip", oddZip()) +
                  RarBuilder::stored("in.exe", pe.substr(0, 0x300)) + RarBuilder::end());
    seeds.add("scan_file", "rar-solid", solidRar());
    ZipMember bomb{"bomb", std::string(5 << 18, '\0')};
    bomb.unpacked = 1 << 18;
    seeds.add("scan_file", "larger-than-announced", ZipBuilder({bomb}).archive());
}

void addSettings(const Seeds& seeds) {
    seeds.add("patterns", "md5",
              "# comment\n#count:3\n" + md5Record(std::string(300, 'a'), "Letters") + md5Record("b", "B") +
                  "00:1:short\n\n" + md5Record("c", "One-Too-Many"));
    seeds.add("patterns", "count", "#count:4294967297\n#count:-1\n#count:00000000000009\n" + md5Record("b", "B"));
    seeds.add("patterns", "chk",
              startRecord(std::string(255, 'a'), "Start") +
                  "3:0200:8000:4:00000000:1cdf4421:7fff:4:1cdf4421:Entry\n"
                  "03:0301:0::4:00000000:1cdf4421:fff0:4:1cdf4421:Section\r\n"
                  "0:0100:12c:ff:61616161:00000000:0:0:00000000:End:more\n"
                  "9:0000:0:0:00000000:00000000:0:0:00000000:Target\n"
                  "0:0400:0:0:00000000:00000000:0:0:00000000:Type\n");
    seeds.add("patterns", "long-line", std::string(1022, '#') + "\n" + std::string(1100, '0') + ":1:\n");
    seeds.add("options", "all",
              "# limits\nMaxUnarEntries = 10\n MaxUnarRatio=0 ; none\nMaxUnarLevelEntries\t=\t20\n"
              "MaxUnarDepth = 99999999999\nMaxUnarSize = \nMaxUnarDepth = x\n");
    seeds.add("options", "illegal", "MaxUnarSize = 1x\nMaxUnarEntries == 1\n=\n;\n" + std::string(1100, 'M') + "\n");
    seeds.add("list", "list",
              "<?xml version=\"1.0\"?>\n<a><FalseAlarm><item name=\"Example-False-Alarm\"/><b/></FalseAlarm>\n"
              "<!-- --><Spyware><item name=\"Example-Spy&#x77;are-\"/><item name=''/></Spyware></a>\n");
    seeds.add("list", "declarations",
              "<!DOCTYPE a [<!ELEMENT a ANY><!ATTLIST item name CDATA \"default\"><!ENTITY e \"x\">]>"
              "<a><Spyware><item/></Spyware><![CDATA[<]]>&e;</a>");
    seeds.add("list", "deep", [] {
        std::string deep = "<a>";
        for (int i = 0; i < 260; ++i) deep += "<b>";
        return deep;
    }());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    try {
        const Seeds seeds(argv[1]);
        addRarData(seeds);
        addPrograms(seeds);
        addContents(seeds);
        addSettings(seeds);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
