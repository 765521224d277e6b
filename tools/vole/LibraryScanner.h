// LibraryScanner: one scanner of the C interface.
//   Owns:    the vole_scanner.
//   Threads: made and destroyed on the thread that gets the signals; scans on one at a time.
#ifndef VOLE_TOOL_LIBRARY_SCANNER_H
#define VOLE_TOOL_LIBRARY_SCANNER_H

#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "FileScanner.h"
#include "Interruption.h"
#include "VoleLibrary.h"
#include "vole.h"

class LibraryScanner : public FileScanner {
public:
    explicit LibraryScanner(ScannerHandle scanner) : _scanner(std::move(scanner)), _cancelling(_scanner.get()) {}

    FileReport scan(const Target& target) override;
    void scanAll(std::span<const Target> targets, const Told& told) override;

    // The file that the descriptor is of, reported under this path.
    FileReport scanOpen(const std::string& path, int fd);

private:
    FileReport scanStandardInput(const std::string& name);
    FileReport reportOn(const std::string& path, vole_error error) const;

    ScannerHandle _scanner;
    CancelledBySignal _cancelling;
};

#endif  // VOLE_TOOL_LIBRARY_SCANNER_H
