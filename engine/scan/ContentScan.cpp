#include "ContentScan.h"

#include <new>
#include <stdexcept>
#include <utility>

#include "Exception.h"
#include "Normalize.h"
#include "PatternSlot.h"
#include "VoleScanner.h"
#include "io/BufferBaseStreams.h"
#include "io/IOBuffer.h"
#include "unarchiver/VoleEngineFactory.h"
#include "util/Diag.h"

namespace {

using ZOV_SPACE::Exception;
using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::SmartBufferBase;

constexpr diag::Unit kDiag{"pattern_assistant"};

bool scanMd5(const BmList& list, IOBuffer& content, unsigned int size, std::string& virusName) {
    try {
        return list.count() != 0 && Md5Scanner(list).scan(&content, size, virusName);
    } catch (Exception& e) {
        kDiag.at().err("catch Exception from md5Scanner: %s", e.toString());
        return false;
    }
}

bool scanCheckSums(const CheckSumList& list, IOBuffer& content, unsigned int size, std::string& virusName) {
    try {
        return list.count() != 0 && ChkScanner(list).scan(&content, size, virusName, kTargetAny);
    } catch (Exception& e) {
        kDiag.at().err("catch Exception from chkScanner: %s", e.toString());
        return false;
    }
}

// Both scanners over one content, with the signatures that are active now.
bool scanRaw(IOBuffer& content, long size, std::string& virusName) {
    const SlotLease slot = SlotLease::acquire();
    if (!slot) return false;
    const auto bytes = static_cast<unsigned int>(size);
    return scanMd5(slot->patterns->md5List(), content, bytes, virusName) ||
           scanCheckSums(slot->patterns->checkSumList(), content, bytes, virusName);
}

bool rawPass(IOBuffer& content, std::string& virusName) {
    long size = 0;
    bool found = false;
    try {
        size = content.getSize();
        found = scanRaw(content, size, virusName);
    } catch (Exception& e) {
        kDiag.at().err("%s", e.toString());
    }
    kDiag.at(1287).dbg("scan raw file, scanned %ld bytes, return %d.", size, found);
    return found;
}

std::unique_ptr<SmartBufferBase> normalizedText(IOBuffer& content) {
    std::unique_ptr<SmartBufferBase> text;
    try {
        text = normalize(&content);
    } catch (Exception& e) {
        kDiag.at().err("%s", e.toString());
    }
    kDiag.at(1295).dbg("return from normalize_iob, size=%d", text ? static_cast<int>(text->getSize()) : 0);
    return text;
}

bool normalizedPass(IOBuffer& content, std::string& virusName) {
    const auto text = normalizedText(content);
    if (!text) return false;
    IOBuffer cursor(text.get());
    const long size = cursor.getSize();
    const bool found = scanRaw(cursor, size, virusName);
    kDiag.at(1298).dbg("scan normalized raw file, scanned %ld bytes, return %d.", size, found);
    return found;
}

bool withinDepth(const _st_ArchEntry& record, int maxDepth) {
    return static_cast<unsigned>(record.level) < static_cast<unsigned>(maxDepth);
}

const ZOV_SPACE::ArchiveId& probe(ZOV_SPACE::BufferBase& content) {
    ZOV_SPACE::BufferBaseInputStream stream(&content);
    return ZOV_SPACE::VoleEngineFactory::identify(stream);
}

EarlyScan scanned(ZOV_SPACE::BufferBase& content) {
    EarlyScan early;
    early.dumpDirectory = diag::dumpPath();
    diag::Hold hold;
    early.found = scanContent(content, early.virusName);
    early.scanLines = hold.take();
    return early;
}

// A probe that fails is left to the record's turn, which reports it.
void probeEarly(ZOV_SPACE::BufferBase& content, EarlyScan& early) {
    diag::Hold hold;
    try {
        early.format = &probe(content);
        early.formatLines = hold.take();
    } catch (const Exception&) {
    }
}

}  // namespace

bool scanContent(ZOV_SPACE::BufferBase& content, std::string& virusName) {
    IOBuffer cursor(&content);
    return rawPass(cursor, virusName) || normalizedPass(cursor, virusName);
}

const ZOV_SPACE::ArchiveId& formatOf(const _st_ArchEntry& record, int maxDepth) {
    if (!withinDepth(record, maxDepth)) {
        kDiag.at(1213).dbg("Reach the unarchive depth limit. ASSERT(%d < %d).", record.level, maxDepth);
        return ZOV_SPACE::ARCHIVEID_NONE;
    }
    if (!record.early || !record.early->format) return probe(*record.buffer);
    record.early->formatLines.deliver();
    return *record.early->format;
}

std::unique_ptr<SmartBufferBase> scanEarly(_st_ArchEntry& record, WrappedLimitedBufferBase& content, int maxDepth) {
    std::unique_ptr<SmartBufferBase> released;
    try {
        EarlyScan early = scanned(content);
        const bool mayBeOpened = !early.found && withinDepth(record, maxDepth);
        if (mayBeOpened) probeEarly(content, early);
        const bool isArchive = mayBeOpened && early.format != &ZOV_SPACE::ARCHIVEID_NONE;
        const bool needed = isArchive || !early.dumpDirectory.empty();
        if (needed) content.useSharedBarrier();
        record.early = std::move(early);
        if (needed) return nullptr;
        released = content.letGo();
        record.buffer.reset();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    } catch (const Exception&) {
    }
    return released;
}
