/*
 * vole.h: the Vole Engine's C interface, libvole.so.1.
 *
 * A host loads a set of signatures once, makes a scanner for each thread, and asks it about one content after another:
 * a file, a descriptor, bytes in memory or a stream. Members of archives are scanned too. The answer is one of four
 * outcomes, and "clean" is only said of what was seen: whatever kept a byte from being looked at is a reason, and makes
 * the outcome "incomplete".
 *
 *     vole_signatures *signatures;
 *     vole_scanner *scanner;
 *     vole_outcome outcome;
 *     if (vole_signatures_load("/var/lib/vole", NULL, &signatures) != VOLE_OK) ...
 *     if (vole_scanner_new(signatures, NULL, &scanner) != VOLE_OK) ...
 *     if (vole_scan_path(scanner, "suspect.zip", &outcome) == VOLE_OK && outcome == VOLE_OUTCOME_FOUND) ...
 *
 * Threads. A set may be used by any number of threads at once; a scanner by one at a time, but vole_scanner_cancel(),
 * which any thread may call. There is no other state: nothing is process-wide. The library starts no threads unless
 * VOLE_LOAD_THREADS allows it, and no processes but those of isolated scanners; it handles no signals, writes to no
 * descriptor, never ends the process, and no C++ exception leaves it. A forked child may use what it has a copy of, if
 * no call into the library was under way in another thread, but isolated scanners.
 *
 * Strings are bytes that end with a NUL, in no particular encoding. Names of archive members are given with a length,
 * as they stand in the archive, and may have any byte in them.
 *
 * Binary compatibility. What a host hands in begins with its own sizeof in `struct_size`: initialise it with the macro
 * beside it, so that fields added later get their defaults. What the library hands out only ever grows at its end, and
 * is reached through pointers. Numbers of enumerations never change; new ones are added, so treat an unknown reason
 * like VOLE_REASON_UNSUPPORTED.
 */
#ifndef VOLE_H
#define VOLE_H

#include <stddef.h> /* NOLINT(modernize-deprecated-headers): this is C. */
#include <stdint.h> /* NOLINT(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

#define VOLE_API __attribute__((visibility("default")))

/* What a function returns. Whatever is not VOLE_OK leaves out-parameters null, or VOLE_OUTCOME_FAILED. */
typedef enum vole_error {
    VOLE_OK = 0,
    VOLE_E_ARGUMENT = 1,   /* A null where none may be, or a structure or option that this version does not know. */
    VOLE_E_MEMORY = 2,     /* Memory ran out. */
    VOLE_E_NOT_FOUND = 3,  /* There is nothing of that name. */
    VOLE_E_PERMISSION = 4, /* It may not be read. */
    VOLE_E_NOT_FILE = 5,   /* Neither a regular file nor, for vole_scan_fd(), anything else that can seek. */
    VOLE_E_IO = 6,         /* It could not be opened or read for another reason, or a read callback failed. */
    VOLE_E_SIGNATURES = 7, /* The set cannot be used; the problem callback has said why. */
    VOLE_E_BUSY = 8,       /* The scanner is in the middle of a scan. */
    VOLE_E_INTERNAL = 9,   /* A fault in the library. */
    VOLE_E_WORKER = 10,    /* The worker of an isolated scanner was lost over it: it ended, hung or made no sense. */
    VOLE_E_ISOLATION = 11  /* No worker can be started, or be kept from what it may not do. */
} vole_error;

/* A short English text for the error, static; for unknown numbers, too. */
VOLE_API const char* vole_error_text(vole_error error);

/* "1.0.0.223" and the like, static. */
VOLE_API const char* vole_version(void);

/* ---------------------------------------------------------------------------------------------------- signatures */

/* A set of signatures with its list of false alarms: immutable, counted by reference. */
typedef struct vole_signatures vole_signatures;

/* Something in a pattern directory that is not in the set as its author may think. */
typedef struct vole_load_problem {
    const char* file;   /* Path of the file. */
    uint64_t line;      /* Counted from 1; 0: the whole file. */
    const char* text;   /* The line, up to its first NUL; empty for a whole file. */
    size_t text_size;   /* Bytes of it. */
    const char* reason; /* What is wrong, in English. */
    int fatal;          /* 1: loading fails for it. So do files that cannot be read, and all under VOLE_LOAD_STRICT. */
} vole_load_problem;

/* Told of each problem while the set is loaded, in the order of files and lines. The problem is valid during the call.
 * Not 0 ends the load with VOLE_E_SIGNATURES. */
typedef int (*vole_load_problem_fn)(void* context, const vole_load_problem* problem);

/* Flags for loading. */
#define VOLE_LOAD_STRICT 1u /* Any problem makes the load fail, once all files were looked at, compiled sets whole. */
/* The load may use threads of its own, which block all signals and have ended when the call returns. The set, the
 * problems and their order are the same, and on_problem is called on the caller's thread. For a spare processor. */
#define VOLE_LOAD_THREADS 2u

typedef struct vole_load_options {
    size_t struct_size;
    uint32_t flags;                  /* VOLE_LOAD_...; others are refused. */
    vole_load_problem_fn on_problem; /* May be null. */
    void* context;                   /* Handed to on_problem. */
} vole_load_options;

#define VOLE_LOAD_OPTIONS_INIT \
    { sizeof(vole_load_options), 0u, NULL, NULL }

/* Loads every ".hdb" and ".chk" file of the directory, in byte order of the names, and the false alarms of its
 * "pattern_assistant.xml", if it has one. Records that cannot be used are left out and told as problems. A directory
 * without any record gives an empty set: look at vole_signatures_count(). `options` may be null.
 *
 * In place of a directory it takes a file that vole_signatures_save() wrote, under any name. That is mapped, not read:
 * it is ready at once, and all processes that use it share its memory. The set is the same in every respect. Checksums
 * of the file's header and directory are compared, those of its tables, which are all the rest, only under
 * VOLE_LOAD_STRICT, since that reads the whole file. No damage makes a search leave the file; but what is damaged may
 * not be found, or under another name. A file that cannot be used is a fatal problem and VOLE_E_SIGNATURES; one of any
 * other kind is a problem and VOLE_E_NOT_FILE. Nothing may be written to a file in use, since cutting it off ends every
 * process that searches it: have another one renamed to its name. Files that anybody may write to are refused.
 *
 * The set comes with one reference, which is the caller's. */
VOLE_API vole_error vole_signatures_load(const char* path, const vole_load_options* options,
                                         vole_signatures** signatures);

/* Writes the set to a file that vole_signatures_load() takes, on any machine of the same word order, 32 and 64 bits
 * alike. It replaces what has that name only when all of it is on the disk. The checksums in it find accidents; whoever
 * may write to the file decides what is found. VOLE_E_NOT_FILE when the name is that of anything but a file,
 * VOLE_E_IO when the disk is full. SIGHUP, SIGINT, SIGTERM and SIGXFSZ wait on the calling thread while the new file
 * has another name, for a moment, or, where the file system has no files without names, from the start. */
VOLE_API vole_error vole_signatures_save(const vole_signatures* signatures, const char* path);

/* One reference more; returns its argument. One less: the last one releases the set. Null is allowed in both. */
VOLE_API vole_signatures* vole_signatures_ref(vole_signatures* signatures);
VOLE_API void vole_signatures_unref(vole_signatures* signatures);

/* Records in the set; bytes of memory that it takes; 32 hexadecimal digits that are the same for the same records and
 * false alarms in the same order, on every machine, and valid as long as the set. */
VOLE_API uint64_t vole_signatures_count(const vole_signatures* signatures);
VOLE_API uint64_t vole_signatures_memory(const vole_signatures* signatures);
VOLE_API const char* vole_signatures_id(const vole_signatures* signatures);

/* 1 when the name is on the set's list of false alarms, ignoring ASCII letter case; else 0. */
VOLE_API int vole_signatures_is_false_alarm(const vole_signatures* signatures, const char* name);

/* ------------------------------------------------------------------------------------------------------- scanner */

/* What a scan may cost. 0 means unlimited, everywhere; what memory, or the engine's own bounds on work that nobody
 * sees, do not allow is given up with a reason all the same. Contents above 2^31 - 1 bytes are never looked into. */
typedef struct vole_limits {
    size_t struct_size;
    uint64_t max_content; /* Bytes of the content that is scanned itself. */
    uint64_t max_member;  /* Bytes of one archive member, unpacked. */
    uint64_t max_total;   /* Bytes unpacked in one scan. */
    uint64_t max_members; /* Archive members in one scan, at all levels. */
    uint32_t max_depth;   /* Levels of archives that are opened within each other. */
    uint32_t max_ratio;   /* Unpacked to packed size of one member. */
    uint64_t max_time_ms; /* Milliseconds that one scan may take. */
} vole_limits;

/* 2 GiB content, 256 MiB member, 2 GiB in total, 20,000 members, 32 levels, any ratio, 120 s. */
#define VOLE_LIMITS_INIT \
    { sizeof(vole_limits), 2147483648u, 268435456u, 2147483648u, 20000u, 32u, 0u, 120000u }

/* Writes these defaults to the first `size` bytes of the structure; for languages that have no macros. */
VOLE_API void vole_limits_init(vole_limits* limits, size_t size);

/* Scans one content after another. Cheap to make and to keep. */
typedef struct vole_scanner vole_scanner;

/* The scanner holds a reference to the set. `limits` may be null, for the defaults. */
VOLE_API vole_error vole_scanner_new(vole_signatures* signatures, const vole_limits* limits, vole_scanner** scanner);
VOLE_API void vole_scanner_free(vole_scanner* scanner); /* Null is allowed. Not during a scan. */

/* How a scanner is isolated. */
typedef struct vole_isolation {
    size_t struct_size;
    const char* worker;  /* Path of the worker program; null: "libvole1/vole-worker" in the library's folder. */
    uint64_t max_memory; /* Bytes of addresses that a worker may use besides what it starts with; 0: any number.
                          * Members that are kept in memory files do not count: max_total bounds these. */
    uint64_t grace_ms;   /* Milliseconds beyond max_time_ms after which it counts as hung; at most an hour. */
    char* why;           /* Of VOLE_E_ISOLATION, why, in English, cut off to fit and ended by a NUL; may be null. */
    size_t why_size;     /* Bytes that fit there. */
} vole_isolation;

/* The worker of this library, 1 GiB, 5 s. */
#define VOLE_ISOLATION_INIT \
    { sizeof(vole_isolation), NULL, 1073741824u, 5000u, NULL, 0u }

/* A scanner whose contents are looked at in a process of their own, a worker, which gets descriptors for reading and
 * bytes, and can do nothing but scan them and report: not open, connect, fork, execute, or write to anything but memory
 * and that report. So whatever a content may have in it that the engine is wrong about costs that one scan, which fails
 * with VOLE_E_WORKER and a text; the next one has a new worker. After three in a row the next one is started only after
 * a pause, which gets longer. Nothing that a worker says is believed beyond what it says of the content itself. All
 * calls take such a scanner and mean the same. It needs Linux 5.4 with seccomp; Landlock is used where there is any.
 *
 * The worker is a small program, started by posix_spawn(), so other threads do not matter, and it has nothing of this
 * process but the signatures: those of a compiled set it maps from the file, any others from a copy in memory, which
 * all workers of the set share. It is a child of this process; whoever waits for just any child may take its status
 * away, which only makes texts shorter. It runs as the user "_vole", or as nobody, if this process is root's.
 * Each scanner has one worker, a socket and 0.5 MiB of memory; during a scan a descriptor, too, for each member that
 * is too large to be kept but in a file, at most 192. `isolation` and `limits` may be null, for the defaults;
 * without max_time_ms a hung worker is not noticed unless the scan is cancelled. VOLE_E_ISOLATION where it cannot be
 * had; so may scans answer, since later workers may fail to start, and those of a set that has had one are not waited
 * for until the first scan. */
VOLE_API vole_error vole_isolated_scanner_new(vole_signatures* signatures, const vole_limits* limits,
                                              const vole_isolation* isolation, vole_scanner** scanner);

/* Other limits for the scans that follow; null for the defaults. VOLE_E_ARGUMENT, and nothing changed, for what
 * vole_scanner_new() would refuse; VOLE_E_BUSY from inside a scan. */
VOLE_API vole_error vole_scanner_set_limits(vole_scanner* scanner, const vole_limits* limits);

/* Flags of a scanner. */
#define VOLE_SCAN_ALL_MATCHES 1u /* Goes on behind the first finding, and reports all. */
#define VOLE_SCAN_SHALLOW 2u     /* Opens ZIP and RAR archives alone, and by their formats' rules. */
#define VOLE_SCAN_CONTENTS 4u    /* Shows the event callback each content, and members that have none. */

/* VOLE_E_ARGUMENT, and nothing changed, for unknown flags; VOLE_E_BUSY from inside a scan. */
VOLE_API vole_error vole_scanner_set_flags(vole_scanner* scanner, uint32_t flags);

/* Ends the scan under way as soon as possible, with VOLE_REASON_CANCELLED, and every later one at once, until
 * vole_scanner_rearm() is called. Both from any thread; cancelling also from a signal handler. */
VOLE_API void vole_scanner_cancel(vole_scanner* scanner);
VOLE_API void vole_scanner_rearm(vole_scanner* scanner);

/* ------------------------------------------------------------------------------------------------------- results */

typedef enum vole_outcome {
    VOLE_OUTCOME_CLEAN = 0,      /* All members were reached, all bytes that any signature asks about were looked at. */
    VOLE_OUTCOME_FOUND = 1,      /* At least one finding that is no false alarm, whatever else happened. */
    VOLE_OUTCOME_INCOMPLETE = 2, /* Nothing found, but something was not seen: there is at least one reason. */
    VOLE_OUTCOME_FAILED = 3      /* The content could not be scanned at all: see the error. */
} vole_outcome;

typedef enum vole_kind {
    VOLE_KIND_MD5 = 1,     /* The digest of the whole content. */
    VOLE_KIND_CHECKSUM = 2 /* Check-sums of two ranges in it. */
} vole_kind;

typedef enum vole_form {
    VOLE_FORM_RAW = 1,       /* The content's bytes as they are. */
    VOLE_FORM_NORMALISED = 2 /* The normalised text of a short plain text. */
} vole_form;

typedef enum vole_reason_code {
    VOLE_REASON_ENCRYPTED = 1,   /* A member, or an archive's directory, is encrypted. */
    VOLE_REASON_METHOD = 2,      /* A compression method that the engine does not have. */
    VOLE_REASON_UNSUPPORTED = 3, /* A container of a format or version that is recognised, but not opened. */
    VOLE_REASON_VOLUME = 4,      /* Continued from, or in, another volume. */
    VOLE_REASON_DAMAGED = 5,     /* The archive's structure makes no sense, or members that it counts are missing. */
    VOLE_REASON_TRUNCATED = 6,   /* The data ends early. */
    VOLE_REASON_CHECKSUM = 7,    /* A member's unpacked data does not have the check-sum that the archive gives. */
    VOLE_REASON_SIZE_LIMIT = 8,  /* max_content or max_member, or too large for the engine. */
    VOLE_REASON_RATIO_LIMIT = 9,
    VOLE_REASON_MEMBER_LIMIT = 10,
    VOLE_REASON_TOTAL_LIMIT = 11,
    VOLE_REASON_DEPTH_LIMIT = 12,
    VOLE_REASON_TIME_LIMIT = 13,
    VOLE_REASON_CANCELLED = 14,   /* By vole_scanner_cancel() or by the event callback. */
    VOLE_REASON_WORK_BUDGET = 15, /* Work that no limit covers, such as decoding what nobody sees. */
    VOLE_REASON_MEMORY = 16,
    VOLE_REASON_IO = 17 /* Something could not be read, or a temporary file not be written. */
} vole_reason_code;

/* Lower-case words for reports, static: "clean", "md5", "raw", "size-limit". Unknown numbers: "unknown". */
VOLE_API const char* vole_outcome_name(vole_outcome outcome);
VOLE_API const char* vole_kind_name(vole_kind kind);
VOLE_API const char* vole_form_name(vole_form form);
VOLE_API const char* vole_reason_name(vole_reason_code code);

/* Bytes with a NUL behind them that does not count. */
typedef struct vole_bytes {
    const char* data;
    size_t size;
} vole_bytes;

/* Where in a content something is: the names of the archive member and of those around it, outermost first. Without
 * any component: the content itself. A member without a name has an empty one. */
typedef struct vole_path {
    const vole_bytes* components;
    size_t count;
} vole_path;

#define VOLE_NO_OFFSET UINT64_MAX

typedef struct vole_finding {
    const char* name; /* Of the signature. */
    vole_kind kind;
    vole_form form;
    int allowed;     /* 1: the name is on the list of false alarms, and the finding does not count. */
    uint64_t offset; /* Of a check-sum's first range, in the content or its normalised text; else VOLE_NO_OFFSET. */
    vole_path member;
} vole_finding;

typedef struct vole_reason {
    vole_reason_code code;
    const char* text; /* In English, for people. */
    vole_path member;
} vole_reason;

typedef struct vole_counters {
    uint64_t bytes_read;     /* Of the content, as large as it is; 0 when it was not looked into. */
    uint64_t bytes_unpacked; /* Out of archives. */
    uint64_t members;        /* That archives offered, at all levels. */
    uint64_t deepest_level;  /* Of a member that was scanned: 1 for members of the content itself. */
    uint64_t time_us;        /* Microseconds of wall time. */
    uint64_t findings;       /* All of them, allowed ones too, also those beyond what is kept. */
    uint64_t reasons;
} vole_counters;

/* What the latest scan came to. Belongs to the scanner; it and all that it leads to are valid until the next scan
 * begins or the scanner goes. The first 1,000 findings that count, the first 1,000 allowed ones and the first 1,000
 * reasons are kept; counters and events tell of all. */
typedef struct vole_result vole_result;

VOLE_API const vole_result* vole_scanner_result(const vole_scanner* scanner); /* Never null. */
VOLE_API vole_outcome vole_result_outcome(const vole_result* result);
VOLE_API const char* vole_result_error_text(const vole_result* result); /* Empty unless the scan failed. */
VOLE_API size_t vole_result_finding_count(const vole_result* result);
VOLE_API const vole_finding* vole_result_finding(const vole_result* result, size_t index); /* Null beyond the last. */
VOLE_API size_t vole_result_reason_count(const vole_result* result);
VOLE_API const vole_reason* vole_result_reason(const vole_result* result, size_t index); /* Null beyond the last. */
VOLE_API const vole_counters* vole_result_counters(const vole_result* result);

/* -------------------------------------------------------------------------------------------------------- events */

typedef enum vole_event_type {
    VOLE_EVENT_MEMBER_ENTERED = 1, /* A member is about to be unpacked. */
    VOLE_EVENT_MEMBER_DONE = 2,    /* It was unpacked and scanned. */
    VOLE_EVENT_FINDING = 3,
    VOLE_EVENT_REASON = 4,
    VOLE_EVENT_PROGRESS = 5, /* 8 MiB more, or some more than that, went through. */
    /* Under VOLE_SCAN_CONTENTS only. */
    VOLE_EVENT_CONTENT = 6,     /* Bytes are about to be compared with signatures. */
    VOLE_EVENT_FOLDER = 7,      /* A member that its archive calls a folder, and that has no bytes, is passed over. */
    VOLE_EVENT_EMPTY_MEMBER = 8 /* Likewise another one that has none, not even packed ones. */
} vole_event_type;

typedef enum vole_checksum_state {
    VOLE_CHECKSUM_NONE = 0, /* The archive gives none of the member, or not all of it came out. */
    VOLE_CHECKSUM_RIGHT = 1,
    VOLE_CHECKSUM_WRONG = 2
} vole_checksum_state;

/* What is scanned itself, an archive member as it came out, or the normalised text of either, which comes behind the
 * raw form. Members come when they are unpacked, which may be before their archive's other members are. A finding in
 * one comes behind it; without VOLE_SCAN_ALL_MATCHES there is nothing behind the first that counts. */
typedef struct vole_content {
    vole_form form;
    uint64_t size;        /* Bytes. */
    uint64_t packed_size; /* Of a member, as its archive has it; 2^32 - 1 stands for all that is more. Else 0. */
    const char* method;   /* What packs a member, static: "stored", "deflate"; empty when it has no name, or is none. */
    int is_packed;        /* 1: nobody here knows the method, and these are the packed bytes. */
    vole_checksum_state checksum; /* What the archive's check-sum of a member says of these bytes. */
} vole_content;

/* Copies at most `size` of its bytes from there on, of which the first has offset 0: how many, fewer only at the end; a
 * negative number when they cannot be read. During the event only, and on its thread. */
VOLE_API ptrdiff_t vole_content_read(const vole_content* content, uint64_t offset, void* buffer, size_t size);

/* Valid during the call. */
typedef struct vole_event {
    vole_event_type type;
    vole_path member;            /* Of members, contents, findings and reasons. */
    uint64_t size;               /* Of a member: bytes announced (entered), bytes unpacked (done). Of a content. */
    const vole_finding* finding; /* Null unless it is one. */
    const vole_reason* reason;   /* Null unless it is one. */
    uint64_t bytes_done;         /* Read, hashed and unpacked so far, in this scan. */
    const vole_content* content; /* Null unless it is one. */
} vole_event;

/* Called on the scanning thread. 0: go on; anything else ends the scan as vole_scanner_cancel() would, but only this
 * one. The callback may not use the scanner, except to cancel it. */
typedef int (*vole_event_fn)(void* context, const vole_event* event);

/* Null: no events. VOLE_E_BUSY from inside a scan. */
VOLE_API vole_error vole_scanner_set_events(vole_scanner* scanner, vole_event_fn callback, void* context);

/* --------------------------------------------------------------------------------------------------------- scans */

/* Each scans one content and answers VOLE_OK with an outcome other than VOLE_OUTCOME_FAILED, or an error with that one.
 * `outcome` may be null. The details are in vole_scanner_result(). */

/* A regular file; links are followed. FIFOs and devices are VOLE_E_NOT_FILE, and never block. The first volume of a RAR
 * archive is read with the others, if all lie beside it under the names that archivers give them, as regular files and
 * not as links; max_content holds for their bytes, too. */
VOLE_API vole_error vole_scan_path(vole_scanner* scanner, const char* path, vole_outcome* outcome);

/* Told of each file that vole_scan_paths() has scanned: which of the paths it is, counted from 0, and what
 * vole_scan_path() answers of it. vole_scanner_result() is that file's. 0: go on; anything else leaves the rest. The
 * callback may not use the scanner otherwise, except to cancel it. */
typedef int (*vole_scanned_fn)(void* context, size_t index, vole_error error, vole_outcome outcome);

/* Files in order, each as vole_scan_path() scans it, with the same result, but in less time where many are small: those
 * are read some at a time, so that what happens to one while those before it are scanned may not be seen, and neither
 * its limit on time nor its time has reading in it. Give all that
 * there are, or some dozens. VOLE_OK when nothing is left that the callback wanted; VOLE_E_ARGUMENT, and nothing is
 * scanned, when a path or the callback is null. */
VOLE_API vole_error vole_scan_paths(vole_scanner* scanner, const char* const* paths, size_t count,
                                    vole_scanned_fn on_scanned, void* context);

/* All bytes of an open file, whatever its position, which stays where it is. The descriptor stays the caller's. What
 * others write to the file meanwhile may or may not be seen; what they cut off is a reason. */
VOLE_API vole_error vole_scan_fd(vole_scanner* scanner, int fd, vole_outcome* outcome);

/* Bytes in memory, which nobody may change meanwhile. `data` may be null when `size` is 0. */
VOLE_API vole_error vole_scan_buffer(vole_scanner* scanner, const void* data, size_t size, vole_outcome* outcome);

/* Copies at most `size` bytes to `buffer`: how many, 0 at the end, a negative number when reading failed. */
typedef ptrdiff_t (*vole_read_fn)(void* context, void* buffer, size_t size);

/* What `read` gives, to its end. It is kept in memory up to 16 MiB, beyond that in a temporary file without a name. A
 * stream that is longer than max_content is not scanned, and not read further: VOLE_REASON_SIZE_LIMIT. */
VOLE_API vole_error vole_scan_stream(vole_scanner* scanner, vole_read_fn read, void* context, vole_outcome* outcome);

#ifdef __cplusplus
}
#endif

#endif /* VOLE_H */
