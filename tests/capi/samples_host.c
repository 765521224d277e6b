/*
 * samples_host: what the C interface says of files, for check-samples. Each is scanned with two sets of signatures.
 *   usage: samples_host KNOWN NOTHING FILE...
 * Prints for each file, with names in hexadecimal digits and a path's components between slashes:
 *   file FILE, outcome NAME (with the set NOTHING), reason CODE PATH TEXT..., finding NAME PATH... (with the set KNOWN)
 */
#include <stdio.h>
#include <stdlib.h>

#include "vole.h"

static void require(vole_error error, const char* what) {
    if (error == VOLE_OK) return;
    fprintf(stderr, "%s: %s\n", what, vole_error_text(error));
    exit(2);
}

static vole_scanner* scannerFor(const char* patterns) {
    vole_signatures* signatures;
    vole_scanner* scanner;
    require(vole_signatures_load(patterns, NULL, &signatures), patterns);
    require(vole_scanner_new(signatures, NULL, &scanner), "scanner");
    vole_signatures_unref(signatures);
    require(vole_scanner_set_flags(scanner, VOLE_SCAN_ALL_MATCHES), "flags");
    return scanner;
}

static void printPath(vole_path path) {
    size_t i, at;
    for (i = 0; i < path.count; ++i) {
        putchar('/');
        for (at = 0; at < path.components[i].size; ++at) printf("%02x", (unsigned char)path.components[i].data[at]);
    }
}

static void printReasons(const vole_result* result) {
    size_t i;
    for (i = 0; i < vole_result_reason_count(result); ++i) {
        const vole_reason* reason = vole_result_reason(result, i);
        printf("reason %s ", vole_reason_name(reason->code));
        printPath(reason->member);
        printf(" %s\n", reason->text);
    }
}

static void printFindings(const vole_result* result) {
    size_t i;
    for (i = 0; i < vole_result_finding_count(result); ++i) {
        const vole_finding* finding = vole_result_finding(result, i);
        printf("finding %s ", finding->name);
        printPath(finding->member);
        putchar('\n');
    }
}

int main(int argc, char** argv) {
    vole_scanner *known, *nothing;
    int i;
    if (argc < 3) return 2;
    known = scannerFor(argv[1]);
    nothing = scannerFor(argv[2]);
    for (i = 3; i < argc; ++i) {
        vole_outcome outcome;
        require(vole_scan_path(nothing, argv[i], &outcome), argv[i]);
        printf("file %s\noutcome %s\n", argv[i], vole_outcome_name(outcome));
        printReasons(vole_scanner_result(nothing));
        require(vole_scan_path(known, argv[i], &outcome), argv[i]);
        printFindings(vole_scanner_result(known));
    }
    vole_scanner_free(known);
    vole_scanner_free(nothing);
    return 0;
}
