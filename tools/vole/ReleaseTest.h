// ReleaseTest: what a release of signatures has to pass: nothing is found where nothing is, and in each file of known
// malware what a manifest says is found under that name.
//
// A manifest is text: on each line the path of a file below the corpus, a tab, and a name that a finding in it must
// have. Lines that begin with '#' are comments. A file may have several lines; all files of the corpus must have one.
#ifndef VOLE_TOOL_RELEASE_TEST_H
#define VOLE_TOOL_RELEASE_TEST_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "FileReport.h"
#include "LibraryEngine.h"

struct ReleaseTestOptions {
    LibraryOptions engine;              // With the set that is tested.
    std::vector<std::string> clean;     // Files and folders.
    std::vector<std::string> infected;  // Folders.
    std::string manifest;               // Empty: kManifestName in each folder, which then is none of its files.
    bool incompleteIsFine = false;      // Clean files need not be seen whole.
    unsigned jobs = 0;                  // 0: as many as there are processors.
};

constexpr const char* kManifestName = "manifest.tsv";

struct TestFailure {
    enum class Kind {
        found,       // In what has to be clean.
        missing,     // A name that should have been found.
        unseen,      // Not all of the file was looked at, so that nothing can be said.
        unlisted,    // The manifest does not know the file.
        absent,      // The manifest knows a file that is not there.
        unreadable,  // The file could not be scanned.
    };

    Kind kind;
    std::string file;
    std::vector<std::string> expected, found;  // Names.
    std::string text;                          // Why, when neither says it.
};

struct ReleaseTestTally {
    std::uint64_t signatures = 0, clean = 0, infected = 0, failures = 0;  // Signatures; files; files that fail.
    std::string setId;
    bool interrupted = false;  // By a signal: not all was tested.
};

// Tells of files in the order of the walk, then of those that are absent. False names on the set's list of false alarms
// are no findings. Throws LoadError for a set, corpus or manifest that cannot be used, and what `take` throws.
ReleaseTestTally testRelease(const ReleaseTestOptions& options, const std::function<void(const TestFailure&)>& take);

#endif  // VOLE_TOOL_RELEASE_TEST_H
