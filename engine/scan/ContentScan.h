// ContentScan.h: what is done to one content, the file itself or a member of an archive in it.
//
// A content is scanned in two passes: over its bytes as they are, then over its normalised text, if it is a short plain
// text. Each pass asks the face for the signatures that are in force when it begins. Then it is probed for a format
// that can be opened. A member of an archive goes through all that as soon as it is unpacked, while its bytes are in
// the processor's caches; nearly all are then let go of, so that a large archive needs the space of its largest member.
// What came of it waits in the member's record, lines included, for the member's turn on the work list. So a listener
// hears of findings in the order of the list, but the signatures and the dump directory are those of the moment of the
// scan.
#ifndef ENGINE_SCAN_CONTENTSCAN_H
#define ENGINE_SCAN_CONTENTSCAN_H

#include <memory>
#include <string>

#include "ScanFace.h"
#include "WorkList.h"
#include "WrappedLimitedBufferBase.h"

// Runs the scanners over the bytes as they are, then over the normalised text if they are a short text. True, with
// `virusName` set, when a finding decides. A pass that fails is logged, told to the face as unseen, and counts as no
// match. Throws std::bad_alloc and ScanStoppedException.
bool scanContent(ScanFace& face, const _st_ArchEntry& record, ZOV_SPACE::BufferBase& content, std::string& virusName);

// The format of a record's content as an archive. ARCHIVEID_NONE also for what is too deep to be probed, after saying
// so.
const ZOV_SPACE::ArchiveId& formatOf(ScanFace& face, const _st_ArchEntry& record);

// Does both before the record's turn and holds back what there is to say. `content` is the record's buffer. When no
// later step needs it, the buffer is destroyed and its storage returned. What fails is left to the record's turn, but
// ScanStoppedException, which is thrown.
std::unique_ptr<ZOV_SPACE::SmartBufferBase> scanEarly(ScanFace& face, _st_ArchEntry& record,
                                                      WrappedLimitedBufferBase& content);

#endif  // ENGINE_SCAN_CONTENTSCAN_H
