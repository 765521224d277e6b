// ContentScan.h: both passes over one content.
#ifndef ENGINE_CONTENTSCAN_H
#define ENGINE_CONTENTSCAN_H

#include <memory>
#include <string>

#include "WorkList.h"
#include "WrappedLimitedBufferBase.h"

// Runs the scanners over the bytes as they are, then over the normalised text if they are a short text. True, with
// `virusName` set, at a match. A pass that fails is logged and counts as no match. Throws std::bad_alloc.
bool scanContent(ZOV_SPACE::BufferBase& content, std::string& virusName);

// The format of a record's content as an archive. ARCHIVEID_NONE also for what is nested `maxDepth` deep, after saying
// so.
const ZOV_SPACE::ArchiveId& formatOf(const _st_ArchEntry& record, int maxDepth);

// Does both before the record's turn, while the bytes of `content`, the record's buffer, are in the processor's caches,
// and holds back what there is to say. Content that no later step needs is let go of and returned. What fails is left
// to the record's turn.
std::unique_ptr<ZOV_SPACE::SmartBufferBase> scanEarly(_st_ArchEntry& record, WrappedLimitedBufferBase& content,
                                                      int maxDepth);

#endif  // ENGINE_CONTENTSCAN_H
