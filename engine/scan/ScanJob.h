// ScanJob: one scan, from a content to its end.
//
// The content and every archive member found in it are treated the same way, front to back on a work list: the scanners
// over the raw bytes, then over the normalised text if it is a short text, then the archive step, which queues the
// members; those are scanned as soon as they are unpacked, and take their turn with what came of it. The first finding
// that decides ends the scan. No pass lets an exception end the scan of what is queued behind it.
//
//     ScanJob -> ArchiveStep -> EntryProcessor -> MemberSink
//                                              -> ContentScan -> Matching
//
// Each asks the face (ScanFace.h) for what is not the same for all scans. Used once, by one thread.
#ifndef ENGINE_SCAN_SCANJOB_H
#define ENGINE_SCAN_SCANJOB_H

#include <memory>
#include <string>

#include "ScanFace.h"
#include "WorkList.h"
#include "io/BufferBase.h"
#include "unarchiver/ScanBudget.h"

class ScanJob {
public:
    enum class End {
        found,       // A finding decided.
        workedOff,   // Everything had its turn.
        unreadable,  // The same, but some content could not be read to its end, so that this says nothing.
    };

    // The face is borrowed, and so is the watch, which may be null: it hears of work while it is done.
    explicit ScanJob(ScanFace& face, ZOV_SPACE::ScanWatch* watch = nullptr) : _face(face), _budget(watch) {}
    ScanJob(const ScanJob&) = delete;
    ScanJob& operator=(const ScanJob&) = delete;

    // What is to be scanned. Throws std::bad_alloc.
    void begin(std::unique_ptr<ZOV_SPACE::BufferBase> content, std::string name);

    // Scans it. `virusName` is set when a finding decided. Throws std::bad_alloc, ScanStoppedException when the watch
    // wants the end, and in case of a fault what comes from below.
    End run(std::string& virusName);

private:
    bool takeTurn(const _st_ArchEntry& record, std::string& virusName);
    bool sourceFailed(const _st_ArchEntry& record);
    void logDropped() const;

    ScanFace& _face;
    ZOV_SPACE::ScanBudget _budget;
    WorkList _workList;
};

#endif  // ENGINE_SCAN_SCANJOB_H
