// VoleOptions: the limits on unarchiving, process-wide. Created with the defaults on first use and never destroyed.
// Safe from any thread: every read and write takes the mutex, a reader once for all five values.
#ifndef ENGINE_LEGACY_VOLEOPTIONS_H
#define ENGINE_LEGACY_VOLEOPTIONS_H

#include <string>

#include "Mutex.h"

// A copy of the limits, as one scan uses them. 0 means no limit, but for maxDepth, where it means that no archive is
// opened.
struct OptionValues {
    int maxEntries;       // Records waiting in one scan.
    int maxRatio;         // Unpacked to packed size of an entry.
    int maxLevelEntries;  // Entries of one archive.
    int maxDepth;         // Nesting.
    int maxSize;          // Unpacked size of an entry, in bytes.
};

class VoleOptions {
public:
    static constexpr int DefaultMaxEntries = 100;
    static constexpr int DefaultMaxRatio = 250;
    static constexpr int DefaultMaxLevelEntries = 50;
    static constexpr int DefaultMaxDepth = 50;
    static constexpr int DefaultMaxSize = 1048576;

    VoleOptions(const VoleOptions&) = delete;
    VoleOptions& operator=(const VoleOptions&) = delete;

    static OptionValues get();
    // One value at a time: a scan that starts meanwhile may see some old and some new ones.
    static void set(const OptionValues& values);

private:
    VoleOptions() = default;

    static VoleOptions& instance() VOLE_REQUIRES(_mutex);

    // Defined in Load.cpp.
    static ZOV_SPACE::Mutex _mutex;
    static VoleOptions* _instance VOLE_GUARDED_BY(_mutex);

    OptionValues _values{DefaultMaxEntries, DefaultMaxRatio, DefaultMaxLevelEntries, DefaultMaxDepth, DefaultMaxSize};
};

// Reads the limits from an options file. 0; VOLE_NO_OPTION_FILE when it cannot be opened; VOLE_INVALID_OPTION, with
// nothing changed, when a value is not a number. Missing keys and empty values leave a limit as it is.
int readOptions(const std::string& path);

#endif  // ENGINE_LEGACY_VOLEOPTIONS_H
