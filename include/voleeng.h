// voleeng.h: the Vole Engine's public interface.
//
// The engine is one process-wide object behind plain C symbols. A host loads a pattern directory with init(), asks
// with scanFile() file by file whether a file carries known malware, swaps signatures with reload() while scans go
// on, and releases everything with freeResource().
//
// Strings. Texts come back through references to std::string objects that the host owns, so host and library must
// agree on the layout of std::string: the legacy layout (_GLIBCXX_USE_CXX11_ABI=0) in the 32-bit x86 build, and
// libstdc++'s default one in the 64-bit build. The checks below refuse to compile a
// host that would not agree, because such a host links without a complaint and then corrupts memory. Both sides must
// use the same shared libstdc++.
//
// Threads. scanFile(), IsFalseAlarm(), IsSpyware(), checkSpam(), checkSusVirus(), getVersion(), setDebugger() and
// setDumpPath() may be called from any thread at any time. init(), reload() and freeResource() serialise themselves
// and may run while scans do. The engine creates no threads, throws nothing and never closes or keeps what the host
// passed in.
//
// Fork. A forked child may use everything when no call into the engine was under way at the moment of the fork, in any
// thread; it has a copy of all that was loaded. Otherwise, and when a function of the engine was calling the host back,
// the child must leave the engine alone and go on to exec() or _exit(): locks that were held at that moment, by threads
// which the child does not have, are never released in it. The parent goes on as before in either case.
//
// Null arguments never crash: each function says what a null means. An out-parameter keeps its contents unless the
// function's comment says that it is set.
#ifndef VOLEENG_H
#define VOLEENG_H

#include <string>

#if defined(__i386__)
#if !defined(_GLIBCXX_USE_CXX11_ABI) || _GLIBCXX_USE_CXX11_ABI != 0
#error "32-bit hosts of the Vole Engine are compiled with -D_GLIBCXX_USE_CXX11_ABI=0"
#endif
#elif defined(_GLIBCXX_USE_CXX11_ABI) && _GLIBCXX_USE_CXX11_ABI != 1
#error "64-bit hosts of the Vole Engine are compiled with libstdc++'s default string layout (_GLIBCXX_USE_CXX11_ABI=1)"
#endif

#define VOLEENG_API __attribute__((visibility("default")))

extern "C" {

// Where diagnostics go, and where extracted archive members are dumped. 12 bytes in the 32-bit build; the field
// order is part of the binary interface.
struct VoleDebugger {
    // 0: only unconditional lines. 1 and above: errors too. 3 and above: debug lines too, with source positions.
    int level;
    // Receives each finished line, NUL-terminated, at most 4095 bytes of message, no newline added. Null: nothing is
    // printed. Called on the thread that caused the line, from any number of threads at once. It must not call init(),
    // reload(), freeResource() or checkSusVirus(): the line may come from inside one of them, which would deadlock.
    void (*print)(const char* line);
    // Directory below which extracted archive members are dumped for diagnosis; empty: nothing is dumped.
    std::string dumpPath;
};

// Results of init(), reload() and scanFile(). Codes between -500 and -472 that are not named here are reserved.
// The texts are those that the functions leave in their message argument.
// "Never answered": no exported function gives the code to a host; what it would say is kept for its number.
enum VoleResult {
    VOLE_CLEAN = 0,                 // success; of scanFile(): nothing found
    VOLE_FOUND = 1,                 // of scanFile(): a signature matched
    VOLE_ALREADY_LOADED = -500,     // "pattern for VoleEngine has been loaded."
    VOLE_NO_PATTERNS = -499,        // "pattern for VoleEngine has not been loaded." Never answered.
    VOLE_INVALID_DIRECTORY = -498,  // "<dir> isn't a valid pattern dir path."
    VOLE_PATTERNS_BUSY = -497,      // "pattern is in busy now, fail to free it." Never answered.
    VOLE_OUT_OF_MEMORY = -496,      // "fail to allocate memory."
    VOLE_EMPTY_PATTERNS = -495,     // "pattern is empty." Never answered.
    VOLE_INVALID_PATTERN = -494,    // "fail to load pattern file: <dir>, maybe this pattern file format is not valid."
    VOLE_CANNOT_OPEN = -493,        // "fail to open file: <path>"
    VOLE_NO_OPTION_FILE = -490,     // (no text) voleeng.ini cannot be opened; only logged by init()
    VOLE_INVALID_OPTION = -489,     // (no text) voleeng.ini holds an illegal value; only logged by init()
    VOLE_INVALID_LIST = -488,       // "fail to load pa list from <dir>"
    VOLE_LIST_LOADED = -487,        // "PA list has been loaded." Never answered.
    VOLE_NO_LIST = -486,            // "PA list has not been loaded" Never answered.
    VOLE_LIST_BUSY = -485,          // "PA list is in busy now, fail to free it." Never answered.
    VOLE_SCAN_FAILED = -483,        // (no text) the scan failed in a way that has no code of its own
    VOLE_NO_ENTRY = -482,           // (no text) the scan could not set up its work list
    VOLE_CANNOT_READ = -481,        // (no text) the file could not be read
    VOLE_PLUGIN_FAILED = -479,      // (no text) the heuristic plug-in is missing or unusable
    VOLE_PLUGIN_LOADED = -478,      // "heu-eng for VoleEngine has been loaded." Never answered.
    VOLE_PLUGIN_PRESENT = -476,     // (no text) a plug-in instance exists already
    VOLE_NOT_LOADED = -473,         // (no text) reload() before a successful init()
    VOLE_STANDBY_BUSY = -472,       // "No idle container."
};

// Loads the pattern directory `dir`: "voleeng.ini", every ".hdb" and ".chk" file, "pattern_assistant.xml" and the
// heuristic plug-in "libheueng.so". A missing part is not fatal: the result is 0 as soon as the signatures, the lists
// or the plug-in loaded, and scanning starts when the signatures or the lists did. `message` holds the text of the
// last step that failed, if any did; a plug-in that failed leaves it empty. When a set is already loaded, nothing
// changes and the result is -500. A null `dir` is an invalid directory: -498, and nothing else is looked at.
VOLEENG_API int init(const char* dir, std::string& message);

// Loads `dir` into the idle slot and switches to it when both the signatures and the lists loaded; otherwise the
// active set stays. A scan that runs keeps its set only to the end of the pass it is in (one content's bytes, or its
// normalised text): what it comes to after the switch meets the new set, so that one file may be judged by both. The
// replaced set is let go of with its last user. The options file and the plug-in are not read again.
// -472 when the idle slot is still held by a scan: call again later.
VOLEENG_API int reload(const char* dir, std::string& message);

// Releases both signature sets. Always 0. A pass that is under way (see reload()) finishes on the set it holds, which
// goes with its last user; what a running scan comes to later finds nothing loaded, and so counts as clean. The plug-in
// instance and the debugger settings stay.
VOLEENG_API int freeResource();

// Scans the regular file `path`. 1: `virusName` is set to the name of the signature that matched. 0: clean, or nothing
// is loaded. Negative: one of the codes above, with its text in `message`. Links are followed; folders, FIFOs,
// devices and files above 2^31 - 1 bytes give -493. A null `path` gives -493. Members of archives are scanned, and it
// is settled where they are dumped, as soon as they are unpacked; what is found and said of them comes in their turn.
VOLEENG_API int scanFile(const char* path, std::string& virusName, std::string& message);

// 1 when `name` is on the false-alarm list, ignoring ASCII letter case; else 0. Null: 0.
VOLEENG_API int IsFalseAlarm(const char* name);

// 1 when an entry of the spyware list is a prefix of `name`, ignoring ASCII letter case; else 0. Null: 0.
VOLEENG_API int IsSpyware(const char* name);

// 1 when the subject and the attachment's file name are those of a known mass-mailing worm: `virusName` is set to its
// name. Else 0. `reserved` is not read. Needs no init(). A null subject or attachment name: 0.
VOLEENG_API int checkSpam(const char* subject, const char* attachmentName, unsigned int reserved,
                          std::string& virusName);

// Asks the heuristic plug-in about `target`, which it understands; `extra` is passed through and may be null. Returns
// the plug-in's verdict. Without a plug-in: 0, and *extra becomes 0. Calls are made one at a time.
VOLEENG_API int checkSusVirus(int target, int* extra);

// The engine's name and version. Static storage: never to be freed.
VOLEENG_API const char* getVersion();

// Takes over `level` and `print` of the record; reads nothing else of it. Null: nothing changes.
VOLEENG_API void setDebugger(VoleDebugger* record);

// Sets the dump directory to a copy of `path`. Null counts as empty.
VOLEENG_API void setDumpPath(const char* path);

// State that older hosts look at. Read-only for hosts.
extern VOLEENG_API VoleDebugger voleeng_debugger;  // The settings in force.
extern VOLEENG_API void* heu_instance;             // The plug-in's instance; null until one is made.
extern VOLEENG_API const char* vole_ini_fname;     // "voleeng.ini"
extern VOLEENG_API const char* LogFileName;        // Source unit of the latest diagnostic, and its line number.
extern VOLEENG_API int LogLineNo;                  // Shared by all threads: only a hint.
}

#endif  // VOLEENG_H
