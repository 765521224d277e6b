#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "Escape.h"
#include "JsonReport.h"
#include "TreeReport.h"

namespace {

constexpr std::size_t kIndent = 2;         // Blanks for a level.
constexpr unsigned kDeepestIndented = 16;  // Deeper levels begin where this one does.
constexpr std::size_t kWidestName = 40;    // Wider ones have a line of their own.
constexpr const char* kNothing = "-";

// Of the columns behind the name. The last one is as wide as it is.
constexpr const char* kTitles[] = {"FORM", "SIZE", "PACKED", "METHOD", "CHECKSUM", "MD5", "TYPE"};
constexpr bool kIsNumber[] = {false, true, true, false, false, false, false};
constexpr std::size_t kColumns = std::size(kTitles);

using Cells = std::array<std::string, kColumns>;

std::string orNothing(std::string text) { return text.empty() ? kNothing : std::move(text); }

std::string indented(unsigned level) { return std::string(kIndent * std::min(level, kDeepestIndented), ' '); }

std::string formOf(const ContentFacts& facts) { return facts.isPacked ? "packed" : formWord(facts); }

Cells cellsOf(const ContentFacts& facts, const ContentPlace& place) {
    const bool isMember = facts.isSeen() && facts.form == VOLE_FORM_RAW && place.level > 0;
    return {formOf(facts),
            facts.size ? std::to_string(*facts.size) : kNothing,
            isMember ? std::to_string(facts.packedSize) : kNothing,
            orNothing(facts.method),
            isMember ? checksumWord(facts.checksum) : kNothing,
            orNothing(facts.md5),
            orNothing(facts.type)};
}

std::string nameOf(const ContentPlace& place, const FileReport& report) {
    std::string name = indented(place.level);
    if (place.level == 0) {
        appendEscaped(name, report.path);
    } else {
        appendEscaped(name, place.name.empty() ? "(no name)" : place.name);
    }
    return name;
}

// Characters, of which only the first byte does not look like 10xxxxxx.
std::size_t widthOf(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string hex(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(value));
    return text;
}

struct Widths {
    std::size_t name = std::string_view("CONTENT").size();
    std::array<std::size_t, kColumns> cells{};

    Widths() {
        for (std::size_t i = 0; i < kColumns; ++i) cells[i] = std::string_view(kTitles[i]).size();
    }
    void fit(const std::string& rowName, const Cells& row) {
        const std::size_t width = widthOf(rowName);
        if (width <= kWidestName) name = std::max(name, width);
        for (std::size_t i = 0; i < kColumns; ++i) cells[i] = std::max(cells[i], row[i].size());
    }
};

class Table {
public:
    Table(const Widths& widths, std::ostream& out) : _widths(widths), _out(out) {}

    void header() {
        Cells titles;
        std::copy(std::begin(kTitles), std::end(kTitles), titles.begin());
        row("CONTENT", titles);
    }

    void row(const std::string& name, const Cells& cells) {
        std::string line = name;
        std::size_t width = widthOf(name);
        if (width > _widths.name) {
            line += '\n';
            width = 0;
        }
        line.append(_widths.name - width, ' ');
        for (std::size_t i = 0; i < kColumns; ++i) appendCell(line, i, cells[i]);
        _out << line << '\n';
    }

    // What is to be said of the row above.
    void note(unsigned level, const std::string& what, const std::string& text) {
        std::string line = indented(level + 1) + what + ' ';
        appendEscaped(line, text);
        _out << line << '\n';
    }

private:
    void appendCell(std::string& line, std::size_t column, const std::string& cell) const {
        const std::string blanks(_widths.cells[column] - cell.size(), ' ');
        line += "  ";
        if (column == kColumns - 1) {
            line += cell;
        } else {
            line += kIsNumber[column] ? blanks + cell : cell + blanks;
        }
    }

    const Widths& _widths;
    std::ostream& _out;
};

void notePe(Table& table, unsigned level, const PeFacts& pe) {
    const std::string count = std::to_string(pe.sectionCount) + (pe.sectionCount == 1 ? " section" : " sections");
    table.note(level, "pe:",
               pe.entry ? "entry point at " + hex(*pe.entry) + ", " + count
                        : count + ", no entry point in the file; records that count from either never match");
    for (std::size_t i = 0; i < pe.sections.size(); ++i) {
        const PeSection& section = pe.sections[i];
        table.note(level, "section " + std::to_string(i) + ':',
                   orNothing(section.name) + " at " + hex(section.rawPosition) + ", " +
                       std::to_string(section.rawSize) + " bytes; in memory at " + hex(section.virtualAddress) + ", " +
                       std::to_string(section.virtualSize) + " bytes");
    }
}

void writeNotes(Table& table, unsigned level, const ContentFacts& facts) {
    for (const Finding& finding : facts.findings) {
        const std::string where = finding.offset ? " at " + hex(static_cast<std::uint32_t>(*finding.offset)) : "";
        table.note(level, finding.allowed ? "allowed:" : "found:", finding.name + " (" + finding.kind + where + ')');
    }
    for (const Reason& reason : facts.reasons) table.note(level, "reason:", reason.text + " [" + reason.code + ']');
    if (facts.pe) notePe(table, level, *facts.pe);
    if (!facts.extractedTo.empty()) table.note(level, "file:", facts.extractedTo);
}

std::string counted(std::uint64_t count, const std::string& what) {
    return ", " + std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string outcomeLine(const FileReport& report) {
    std::string line;
    appendEscaped(line, report.path);
    line += std::string(": ") + wordFor(report.outcome);
    if (report.outcome == Outcome::failed) {
        appendEscaped(line += ": ", report.error);
        return line;
    }
    const Counters& counters = report.counters;
    return line + counted(counters.members, "member") + counted(counters.bytesUnpacked, "byte") + " unpacked" +
           counted(counters.findings, "finding") + counted(counters.reasons, "reason");
}

// `take(place, name, facts)`
template <class Take>
void forEachRow(const ContentTree& tree, const FileReport& report, Take take) {
    tree.forEachPlace([&](const ContentPlace& place) {
        const std::string name = nameOf(place, report);
        for (const ContentFacts& facts : place.contents) take(place, name, facts);
    });
}

}  // namespace

void writeTable(const ContentTree& tree, const FileReport& report, std::ostream& out) {
    Widths widths;
    bool isEmpty = true;
    forEachRow(tree, report, [&](const ContentPlace& place, const std::string& name, const ContentFacts& facts) {
        widths.fit(name, cellsOf(facts, place));
        isEmpty = false;
    });
    Table table(widths, out);
    if (!isEmpty) table.header();
    forEachRow(tree, report, [&](const ContentPlace& place, const std::string& name, const ContentFacts& facts) {
        table.row(name, cellsOf(facts, place));
        writeNotes(table, place.level, facts);
    });
    out << outcomeLine(report) << '\n';
}
