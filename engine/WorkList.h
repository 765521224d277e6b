// WorkList.h: what a scan has still to report on.
#ifndef ENGINE_WORKLIST_H
#define ENGINE_WORKLIST_H

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/BufferBase.h"
#include "unarchiver/Pakfold.h"
#include "util/Diag.h"

// What scanning a content before its turn gave.
struct EarlyScan {
    bool found = false;
    std::string virusName;
    std::vector<diag::HeldLine> scanLines;
    // Which archive format the content has, ARCHIVEID_NONE for most; null when nobody looked.
    const ZOV_SPACE::ArchiveId* format = nullptr;
    std::vector<diag::HeldLine> formatLines;
    bool contentLetGo = false;
};

// One content on the work list.
struct _st_ArchEntry {
    std::unique_ptr<ZOV_SPACE::BufferBase> buffer;
    int level;  // Archive nesting; 0 for the file itself.
    std::string name;
    std::optional<EarlyScan> early;
};

using WorkList = std::list<_st_ArchEntry>;

#endif  // ENGINE_WORKLIST_H
