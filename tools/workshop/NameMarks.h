// NameMarks: the names of one kind in a list, and which of them apply to a name of a set's records. Millions of records
// are to be asked in little time, so most are told apart by two of their bytes.
#ifndef VOLE_WORKSHOP_NAME_MARKS_H
#define VOLE_WORKSHOP_NAME_MARKS_H

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class NameMarks {
public:
    enum class Compare { whole, prefix };  // Both without ASCII letter case.

    // Repeats count once.
    NameMarks(const std::vector<std::string>& names, Compare compare);

    // Marks what applies to the name.
    void mark(std::string_view name);

    // REQUIRES, of both: one of the names.
    bool isMarked(std::string_view listed) const { return _names[numberOf(listed)].isMarked; }
    // The line that was given when this was first called for the name; nothing that time.
    std::optional<std::uint32_t> noteLine(std::string_view listed, std::uint32_t line);

private:
    struct Name {
        std::string folded;
        std::size_t shorter = SIZE_MAX;  // The longest other that is a prefix of this one.
        std::uint32_t firstLine = 0;     // 0: not noted yet.
        bool isMarked = false;
    };

    std::size_t numberOf(std::string_view listed) const;
    std::size_t lastUpTo(std::string_view folded) const;
    std::uint16_t keyOf(std::string_view name) const;
    void linkPrefixes();

    Compare _compare;
    std::vector<Name> _names;  // In byte order, without ASCII letter case.
    std::bitset<65536> _keys;  // Of the names.
    bool _hasShort = false;    // A name without a key: any record may have it.
    std::string _folded;       // Saves taking memory for each record.
};

#endif  // VOLE_WORKSHOP_NAME_MARKS_H
