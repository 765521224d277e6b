#include "ContentScan.h"

#include <new>
#include <stdexcept>
#include <utility>

#include "Exception.h"
#include "Normalize.h"
#include "io/BufferBaseStreams.h"
#include "io/IOBuffer.h"
#include "unarchiver/DeepFormats.h"
#include "unarchiver/ScanBudget.h"
#include "unarchiver/VoleEngineFactory.h"
#include "util/Diag.h"

namespace {

using ZOV_SPACE::Exception;
using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::ScanStoppedException;
using ZOV_SPACE::SmartBufferBase;

constexpr diag::Unit kDiag{"pattern_assistant"};

// The passes over one content.
class Passes : private MatchVisitor {
public:
    Passes(ScanFace& face, const _st_ArchEntry& record, std::string& virusName)
        : _face(face), _record(record), _virusName(virusName) {}

    bool raw(IOBuffer& content) {
        long size = 0;
        bool found = false;
        try {
            size = content.getSize();
            found = pass(Form::raw, content, size);
        } catch (const ScanStoppedException&) {
            throw;
        } catch (Exception& e) {
            kDiag.at().err("%s", e.toString());
            unseen(Unseen::io, e.toString());
        }
        kDiag.at(1287).dbg("scan raw file, scanned %ld bytes, return %d.", size, found);
        return found;
    }

    bool normalised(IOBuffer& content) {
        const auto text = normalizedText(content);
        if (!text) return false;
        IOBuffer cursor(text.get());
        const long size = cursor.getSize();
        const bool found = pass(Form::normalised, cursor, size);
        kDiag.at(1298).dbg("scan normalized raw file, scanned %ld bytes, return %d.", size, found);
        return found;
    }

private:
    bool pass(Form form, IOBuffer& content, long size) {
        _form = form;
        const Matched matched = _face.match(_record, form, content, size, *this);
        if (matched.failed) unseen(Unseen::io, "the content could not be read");
        return matched.enough;
    }

    bool onMatch(const SignatureMatch& match) override {
        const bool decides = _face.onFinding(_record, _form, match);
        if (decides) _virusName = match.name;
        return decides;
    }

    std::unique_ptr<SmartBufferBase> normalizedText(IOBuffer& content) {
        std::unique_ptr<SmartBufferBase> text;
        bool failed = false;
        try {
            text = normalize(&content, &failed);
        } catch (Exception& e) {
            kDiag.at().err("%s", e.toString());
            failed = true;
        }
        if (failed) unseen(Unseen::memory, "the text could not be normalised");
        kDiag.at(1295).dbg("return from normalize_iob, size=%d", text ? static_cast<int>(text->getSize()) : 0);
        return text;
    }

    void unseen(Unseen what, const char* text) { _face.onUnseen(what, _record, nullptr, text); }

    ScanFace& _face;
    const _st_ArchEntry& _record;
    std::string& _virusName;
    Form _form = Form::raw;
};

bool isProbed(const ScanFace& face, const _st_ArchEntry& record) {
    return static_cast<unsigned>(record.level) < static_cast<unsigned>(face.deepestProbed());
}

const ZOV_SPACE::ArchiveId& probe(ScanFace& face, const _st_ArchEntry& record, ZOV_SPACE::BufferBase& content) {
    ZOV_SPACE::BufferBaseInputStream stream(&content);
    const ZOV_SPACE::ArchiveId& plain = ZOV_SPACE::VoleEngineFactory::identify(stream);
    // What an unknown method has packed may look like anything.
    const bool isDeep = face.readsDeep() && !record.isPacked;
    ZOV_SPACE::ProbedContent probed(content);
    const ZOV_SPACE::ArchiveId& format = isDeep ? ZOV_SPACE::deepFormat(probed, plain) : plain;
    if (&plain == &ZOV_SPACE::ARCHIVEID_NONE) face.onNoArchive(record, probed, format);
    return format;
}

EarlyScan scanned(ScanFace& face, const _st_ArchEntry& record, ZOV_SPACE::BufferBase& content) {
    EarlyScan early;
    early.dumpDirectory = diag::dumpDirectory();
    diag::Hold hold;
    early.found = scanContent(face, record, content, early.virusName);
    early.scanLines = hold.take();
    return early;
}

// A probe that fails is left to the record's turn, which reports it.
void probeEarly(ScanFace& face, const _st_ArchEntry& record, ZOV_SPACE::BufferBase& content, EarlyScan& early) {
    diag::Hold hold;
    try {
        early.format = &probe(face, record, content);
        early.formatLines = hold.take();
    } catch (const ScanStoppedException&) {
        throw;
    } catch (const Exception&) {
    }
}

}  // namespace

bool scanContent(ScanFace& face, const _st_ArchEntry& record, ZOV_SPACE::BufferBase& content, std::string& virusName) {
    Passes passes(face, record, virusName);
    IOBuffer cursor(&content);
    return passes.raw(cursor) || passes.normalised(cursor);
}

const ZOV_SPACE::ArchiveId& formatOf(ScanFace& face, const _st_ArchEntry& record) {
    if (!isProbed(face, record)) {
        kDiag.at(1213).dbg("Reach the unarchive depth limit. ASSERT(%d < %d).", record.level, face.deepestProbed());
        return ZOV_SPACE::ARCHIVEID_NONE;
    }
    if (!record.early || !record.early->format) return probe(face, record, *record.buffer);
    record.early->formatLines.deliver();
    return *record.early->format;
}

std::unique_ptr<SmartBufferBase> scanEarly(ScanFace& face, _st_ArchEntry& record, WrappedLimitedBufferBase& content) {
    std::unique_ptr<SmartBufferBase> released;
    try {
        EarlyScan& early = record.early.emplace(scanned(face, record, content));
        const bool mayBeOpened = !early.found && isProbed(face, record);
        if (mayBeOpened) probeEarly(face, record, content, early);
        const bool isArchive = mayBeOpened && early.format != &ZOV_SPACE::ARCHIVEID_NONE;
        const bool needed = isArchive || !early.dumpDirectory.empty();
        if (needed) {
            content.useSharedBarrier();
            return nullptr;
        }
        released = content.letGo();
        record.buffer.reset();
    } catch (const ScanStoppedException&) {
        throw;
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    } catch (const Exception&) {
    }
    return released;
}
