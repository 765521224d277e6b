// FileTypeIdent: what kind of file a buffer or stream holds, by its first bytes, with the help of a file name or of a
// MIME content type. A hint is a preference, no restriction: its own tests come first, then all the others in a fixed
// order, so that the order decides where several kinds fit. Stateless; safe from any thread.
#ifndef PAKFOLD_UNUSED_FILETYPEIDENT_H
#define PAKFOLD_UNUSED_FILETYPEIDENT_H

#include <string>

namespace ZOV_SPACE {

class BufferBase;
class InputStream;

class FileTypeIdent {
public:
    FileTypeIdent() = delete;

    // The numbers are part of the framework's contract.
    enum Code : int {
        kPlainText = 100,
        kHtml = 101,
        kVbScript = 102,
        kJavaScript = 103,
        kBatch = 104,
        kJpeg = 200,
        kGif = 201,
        kPic = 202,
        kTiff = 203,
        kPng = 204,
        kBmp = 205,
        kIco = 206,
        kMpegVideo = 300,
        kAvi = 301,
        kFlc = 302,
        kFli = 303,
        kQuickTime = 304,
        kPatternFile = 350,  // The engine's own signatures.
        kMp3 = 400,
        kWav = 401,
        kMidi = 402,
        kExe = 500,  // MZ or NE.
        kCom = 501,
        kPdf = 502,
        kWordDocument = 504,
        kWordTemplate = 505,
        kPowerPoint = 506,
        kChm = 507,
        kZip = 700,
        kRar = 701,
        kArc = 702,
        kArj = 703,
        kTar = 704,
        kGzip = 705,
        kCompress = 706,    // .Z
        kMsCompress = 707,  // The SZDD and KWAJ forms of MS-DOS.
        kCab = 708,
        kZoo = 709,
        kUnknown = 999,
    };

    static constexpr int kHeadLength = 1024;  // Bytes that identification reads.

    // The code of the file name's extension alone.
    static int checkFileType(const char* fileName);
    // The code of the content. The hint is the name's extension or, without one, the content type; empty texts are no
    // hint. Kept as is: a hint that no table has gives kUnknown, whatever the content. A null source gives kUnknown;
    // the stream, which must support marks, stays where it is.
    //   Throws: what the source throws; the stream then stays where reading it failed.
    static int checkFileType(BufferBase* buffer, const std::string& fileName, const std::string& contentType);
    static int checkFileType(InputStream* in, const std::string& fileName, const std::string& contentType);

    // The code of an extension (without its dot), in any letter case; kUnknown when the table does not have it.
    static int extToType(const char* extension);
    static bool isArchiveFile(int code) { return code >= 700 && code < 800; }

    // Whether a comma-separated list of extensions, with blanks around them or not, has one of this code (kUnknown is
    // in no list), or this very extension in any letter case.
    static bool isTypeInList(int code, const char* list);
    static bool isExtInList(const char* extension, const char* list);

    // Rows of the tables, -1 when none fits. An extension must be the row's; a content type only its beginning, so that
    // "image" finds "image/jpeg".
    static int indexTypeTbl(const std::string& extension);
    static int indexContentTbl(const std::string& contentType);

    static std::string fileSuffix(const std::string& fileName);  // What follows the last dot; may be empty.
    // The code of the first test that holds, those numbered `first` to `last` before all others.
    static int priorMatch(const unsigned char* head, int length, int first, int last);

    // The tests. Each looks at the first `length` bytes of a file and answers false for a null head, except
    // isTxtFile(), isPlainTxtFile() and isNullFile(). Kept as is: several want more bytes than they look at.

    // No binary byte among the first 200; bytes of 128 and above are none. True when there are no bytes at all.
    static bool isTxtFile(const unsigned char* head, int length);
    // Only bytes of plain text among the first 200. True when there are no bytes at all.
    static bool isPlainTxtFile(const unsigned char* head, int length);
    // Any text.
    static bool isBatFile(const unsigned char* head, int length);
    static bool isVbsFile(const unsigned char* head, int length);
    static bool isJsFile(const unsigned char* head, int length);
    // Begins with one of three tags or with a document type declaration, in any letter case.
    static bool isHtmFile(const unsigned char* head, int length);

    static bool isJpgFile(const unsigned char* head, int length);
    static bool isGifFile(const unsigned char* head, int length);
    static bool isPicFile(const unsigned char* head, int length);
    static bool isTiffFile(const unsigned char* head, int length);
    static bool isPngFile(const unsigned char* head, int length);
    static bool isBmpFile(const unsigned char* head, int length);
    static bool isIcoFile(const unsigned char* head, int length);
    static bool isMp3File(const unsigned char* head, int length);
    static bool isWavFile(const unsigned char* head, int length);
    static bool isMidFile(const unsigned char* head, int length);
    static bool isCorvoPatternFile(const unsigned char* head, int length);
    static bool isMpgFile(const unsigned char* head, int length);
    static bool isAviFile(const unsigned char* head, int length);
    static bool isFlcFile(const unsigned char* head, int length);
    static bool isFliFile(const unsigned char* head, int length);
    static bool isMovFile(const unsigned char* head, int length);

    static bool isExeFile(const unsigned char* head, int length);
    static bool isComFile(const unsigned char* head, int length);
    static bool isPdfFile(const unsigned char* head, int length);
    static bool isChmFile(const unsigned char* head, int length);
    static bool isMsOfficeFile(const unsigned char* head, int length);  // A compound document of any kind.
    static bool isDocFile(const unsigned char* head, int length);       // The same, or an older word processor's.
    static bool isDotFile(const unsigned char* head, int length);       // As isMsOfficeFile().
    static bool isPptFile(const unsigned char* head, int length);       // As isMsOfficeFile().

    static bool isZipFile(const unsigned char* head, int length);
    static bool isArcFile(const unsigned char* head, int length);
    static bool isArjFile(const unsigned char* head, int length);
    static bool isRarFile(const unsigned char* head, int length);
    static bool isTarFile(const unsigned char* head, int length);
    static bool isGzipFile(const unsigned char* head, int length);
    static bool isZFile(const unsigned char* head, int length);
    static bool isMscmpFile(const unsigned char* head, int length);
    static bool isCabFile(const unsigned char* head, int length);
    static bool isZooFile(const unsigned char* head, int length);

    static bool isNullFile(const unsigned char* head, int length);  // Always true.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNUSED_FILETYPEIDENT_H
