// The size is asked for first, because hashing costs more than all other questions about a content together. Bytes that
// lie in memory are hashed where they are; the others are read in pieces.
#include <unistd.h>

#include <algorithm>

#include "Raise.h"
#include "VoleScanner.h"
#include "unarchiver/ScanBudget.h"

using ZOV_SPACE::Exception;
using ZOV_SPACE::IOBuffer;

namespace {

// Streams that are not in memory are read in pieces of this size; on the heap, because host threads may have little
// stack.
constexpr int kPieceSize = 64 * 1024;
// Of bytes in memory, so much is hashed between two looks at the scan's budget.
constexpr std::size_t kMemoryPieceSize = std::size_t{8} << 20;

}  // namespace

template <class Read>
void Md5Scanner::feed(Read read) {
    const auto piece = std::make_unique_for_overwrite<char[]>(kPieceSize);
    for (;;) {
        const int got = read(piece.get(), kPieceSize);
        if (got < 0) ZOV_SPACE::raise<Exception>("fail to read file");
        hash(piece.get(), static_cast<std::size_t>(got));
        if (got < kPieceSize) return;
    }
}

void Md5Scanner::hash(const char* piece, std::size_t length) {
    _md5.MD5Update(piece, length);
    ZOV_SPACE::ScanBudget::worked(static_cast<std::int64_t>(length));
}

bool Md5Scanner::lookUp(MatchVisitor& visitor) {
    Md5Digest digest;
    _md5.MD5Final(digest.data());
    return lookUp(digest, visitor);
}

bool Md5Scanner::lookUp(const Md5Digest& digest, MatchVisitor& visitor) {
    return _list.visitFoundMD5(digest.data(), [&](const char* name) { return visitor.onMatch({name, std::nullopt}); });
}

bool Md5Scanner::scan(IOBuffer* buf, unsigned int size, std::string& virusName) {
    FirstMatchName first(virusName);
    return scan(buf, size, first);
}

bool Md5Scanner::scan(IOBuffer* buf, unsigned int size, MatchVisitor& visitor) {
    if (!buf || size == 0 || !verifyFileSize(size)) return false;
    _md5.MD5Init();
    buf->seek(SEEK_SET, 0);
    for (auto bytes = buf->view(); !bytes.empty(); bytes = buf->view()) {
        bytes = bytes.first(std::min(bytes.size(), kMemoryPieceSize));
        hash(bytes.data(), bytes.size());
        buf->seek(SEEK_CUR, static_cast<long>(bytes.size()));
    }
    if (buf->tell() < buf->getSize()) {
        feed([buf](char* piece, int length) { return VoleUtil::readn(buf, piece, length); });
    }
    return lookUp(visitor);
}

bool Md5Scanner::scan(const Md5Digest& digest, unsigned int size, MatchVisitor& visitor) {
    if (size == 0 || !verifyFileSize(size)) return false;
    ZOV_SPACE::ScanBudget::worked(size);
    return lookUp(digest, visitor);
}

bool Md5Scanner::scan(int fd, unsigned int size, std::string& virusName) {
    if (fd == -1 || size == 0 || !verifyFileSize(size)) return false;
    _md5.MD5Init();
    if (::lseek(fd, 0, SEEK_SET) < 0) ZOV_SPACE::raise<Exception>("fail to read file");
    feed([fd](char* piece, int length) { return VoleUtil::readn(fd, piece, length); });
    FirstMatchName first(virusName);
    return lookUp(first);
}
