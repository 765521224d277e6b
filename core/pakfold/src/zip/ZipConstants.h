// ZipConstants: the numbers of the ZIP format (APPNOTE.TXT, PKWARE). Offsets are in bytes from the start of the record
// that the prefix names: LOC local header, EXT data descriptor, CEN central directory entry, END end record.
#ifndef PAKFOLD_ZIP_ZIPCONSTANTS_H
#define PAKFOLD_ZIP_ZIPCONSTANTS_H

#include <cstdint>

namespace ZOV_SPACE {

class ZipConstants {
public:
    ZipConstants() = delete;

    // Signatures, as little-endian numbers.
    static constexpr std::uint32_t LOCSIG = 0x04034B50;
    static constexpr std::uint32_t EXTSIG = 0x08074B50;
    static constexpr std::uint32_t CENSIG = 0x02014B50;
    static constexpr std::uint32_t ENDSIG = 0x06054B50;
    static constexpr std::uint32_t SPHSIG = 0x30304B50;  // "PK00", ahead of a split archive that fitted one volume

    // Record sizes in bytes, without names, extra fields and comments.
    static constexpr int LOCHDR = 30;
    static constexpr int EXTHDR = 16;
    static constexpr int CENHDR = 46;
    static constexpr int ENDHDR = 22;

    static constexpr int LOCVER = 4;
    static constexpr int LOCFLG = 6;
    static constexpr int LOCHOW = 8;
    static constexpr int LOCTIM = 10;
    static constexpr int LOCCRC = 14;
    static constexpr int LOCSIZ = 18;
    static constexpr int LOCLEN = 22;
    static constexpr int LOCNAM = 26;
    static constexpr int LOCEXT = 28;

    static constexpr int EXTCRC = 4;
    static constexpr int EXTSIZ = 8;
    static constexpr int EXTLEN = 12;

    static constexpr int CENVEM = 4;
    static constexpr int CENVER = 6;
    static constexpr int CENFLG = 8;
    static constexpr int CENHOW = 10;
    static constexpr int CENTIM = 12;
    static constexpr int CENCRC = 16;
    static constexpr int CENSIZ = 20;
    static constexpr int CENLEN = 24;
    static constexpr int CENNAM = 28;
    static constexpr int CENEXT = 30;
    static constexpr int CENCOM = 32;
    static constexpr int CENDSK = 34;
    static constexpr int CENATT = 36;
    static constexpr int CENATX = 38;
    static constexpr int CENOFF = 42;

    static constexpr int ENDDSK = 4;
    static constexpr int ENDSRT = 6;
    static constexpr int ENDSUB = 8;
    static constexpr int ENDTOT = 10;
    static constexpr int ENDSIZ = 12;
    static constexpr int ENDOFF = 16;
    static constexpr int ENDCOM = 20;

    static constexpr int MAXNAMELENGTH = 512;  // Bytes; an entry with a longer name is refused.

    // Methods.
    static constexpr int STORED = 0;
    static constexpr int SHRINK = 1;
    static constexpr int REDUCED_FACTOR_1 = 2;
    static constexpr int REDUCED_FACTOR_2 = 3;
    static constexpr int REDUCED_FACTOR_3 = 4;
    static constexpr int REDUCED_FACTOR_4 = 5;
    static constexpr int IMPLODED = 6;
    static constexpr int RESERVED1 = 7;
    static constexpr int DEFLATED = 8;
    static constexpr int RESERVED2 = 9;
    static constexpr int PKWARE_IMPLODING = 10;

    // An archive behind an executable: where its PE header keeps the sections, and what marks them.
    static constexpr int OffsetOfNumberSections = 6;
    static constexpr int OffsetOfSectionTable = 248;
    static constexpr int SizePerSectionTable = 40;
    static constexpr unsigned char SIG_ZIPEXE[8] = {0x4E, 0x4D, 0x43, 0x01, 0x73, 0x66, 0x78, 0x02};
    static constexpr const char* SIG_winzip = "winzip";
    static constexpr const char* SIG__winzip = "_winzip";
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPCONSTANTS_H
