// FalseAlarms: the names of a set that are no findings. A lookup costs the same however many there are, needs no memory
// and does not throw. Filled by one thread, then only read.
#ifndef ENGINE_CAPI_FALSEALARMS_H
#define ENGINE_CAPI_FALSEALARMS_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Ascii.h"
#include "Text.h"

// FNV-1a from a number that nobody knows, so that no list can be made whose names all go to the same place.
struct FalseAlarmHash {
    using is_transparent = void;

    std::size_t operator()(std::string_view name) const {
        std::uint64_t hash = seed;
        for (const char c : name) {
            hash = (hash ^ static_cast<unsigned char>(ZOV_SPACE::ascii::toLower(c))) * 0x100000001B3U;
        }
        return static_cast<std::size_t>(hash ^ (hash >> 32));
    }

    std::uint64_t seed = 0xCBF29CE484222325U ^ std::random_device()();
};

struct SameFalseAlarm {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const { return ZOV_SPACE::text::sameIgnoringCase(a, b); }
};

class FalseAlarms {
public:
    void add(const std::string& name) { _names.insert(name); }

    // Ignores ASCII letter case.
    bool contains(std::string_view name) const { return _names.find(name) != _names.end(); }

    template <class Visit>
    void forEach(Visit visit) const {
        for (const std::string& name : _names) visit(name);
    }

    std::size_t memoryBytes() const {
        std::size_t bytes = _names.bucket_count() * sizeof(void*);
        for (const std::string& name : _names) bytes += kNodeSize + name.capacity() + 1;
        return bytes;
    }

private:
    static constexpr std::size_t kNodeSize = sizeof(void*) + sizeof(std::size_t) + sizeof(std::string);

    std::unordered_set<std::string, FalseAlarmHash, SameFalseAlarm> _names;
};

#endif  // ENGINE_CAPI_FALSEALARMS_H
