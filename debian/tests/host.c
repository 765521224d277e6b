#include <stdio.h>
#include <vole.h>

int main(int argc, char** argv) {
    vole_signatures* signatures;
    vole_scanner* scanner;
    vole_outcome outcome;
    if (argc != 3 || vole_signatures_load(argv[1], NULL, &signatures) != VOLE_OK) return 2;
    if (vole_scanner_new(signatures, NULL, &scanner) != VOLE_OK) return 2;
    if (vole_scan_path(scanner, argv[2], &outcome) != VOLE_OK) return 2;
    puts(vole_outcome_name(outcome));
    vole_scanner_free(scanner);
    vole_signatures_unref(signatures);
    return 0;
}
