// IOUtils: little-endian integers in streams and byte arrays, and copying between streams. Static functions without
// state; streams are used by one thread at a time. The streams' own exceptions pass through.
#ifndef PAKFOLD_IOUTILS_H
#define PAKFOLD_IOUTILS_H

#include <cstdint>
#include <string>

#include "ByteOrder.h"

namespace ZOV_SPACE {

class InputStream;
class OutputStream;

class IOUtils {
public:
    IOUtils() = delete;

    // The next bytes of the stream. The end of the stream throws IOException "unexpected EOF"; the bytes before it are
    // consumed.
    static unsigned char readUChar(InputStream& in);
    static unsigned short readUShort(InputStream& in);
    static unsigned int readUInt(InputStream& in);

    // The same from memory, at any alignment.
    // REQUIRES: 1, 2 or 4 readable bytes.
    static unsigned char readUChar(const char* bytes) { return static_cast<unsigned char>(*bytes); }
    static unsigned short readUShort(const char* bytes) { return loadU16(bytes); }
    static unsigned int readUInt(const char* bytes) { return loadU32(bytes); }

    // The low 1, 2 or 4 bytes of the value.
    static void writeUChar(OutputStream& out, int value);
    static void writeUShort(OutputStream& out, unsigned int value);
    static void writeUInt(OutputStream& out, long value);

    static void writeUChar(char* bytes, int value) { *bytes = static_cast<char>(value); }
    static void writeUShort(char* bytes, unsigned int value) {
        storeLittleEndian(bytes, static_cast<std::uint16_t>(value));
    }
    static void writeUInt(char* bytes, long value) { storeLittleEndian(bytes, static_cast<std::uint32_t>(value)); }

    // The integer `offset` bytes ahead; the stream, which must support marks, stays where it is, also when the end is
    // met: getUChar() then throws IOException with the system's text for errno, the others "unexpected EOF".
    static unsigned char getUChar(InputStream& in, unsigned int offset);
    static unsigned short getUShort(InputStream& in, unsigned int offset);
    static unsigned int getUInt(InputStream& in, unsigned int offset);

    // Reads until n bytes are in or a read returns less than 1; the count read. A short count is no error.
    static int readFull(InputStream& in, char* buf, int n);
    // The same, but the stream, which must support marks, stays where it is, also when a read throws.
    static int peekFull(InputStream& in, char* buf, int n);
    // Reads and discards what is left; the count.
    static long readFull(InputStream& in);
    static long skip(InputStream& in) { return readFull(in); }

    // Copies what is left, or at most n bytes. Ends quietly when a read returns less than 1.
    static void readAndWrite(InputStream& in, OutputStream& out);
    static void readAndWrite(InputStream& in, OutputStream& out, long n);

    // The bytes before the next byte 0, which is consumed, or before the end.
    static std::string readString(InputStream& in);
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_IOUTILS_H
