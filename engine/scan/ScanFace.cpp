// What a face gets that cares for signatures and members only.
#include "ScanFace.h"

void ScanFace::onUnseen(Unseen, const _st_ArchEntry&, const std::string*, const char*) {}
void ScanFace::onUnpacked(std::int64_t) {}
bool ScanFace::mayUnpack(std::int64_t) const { return true; }
void ScanFace::onMemberDone(const _st_ArchEntry&, std::int64_t) {}
int ScanFace::deepestProbed() const { return -1; }
bool ScanFace::opens(const _st_ArchEntry&) { return true; }
void ScanFace::onNoArchive(const _st_ArchEntry&, ZOV_SPACE::ProbedContent&, const ZOV_SPACE::ArchiveId&) {}
bool ScanFace::persists() const { return false; }
bool ScanFace::comparesCheckSums() const { return false; }
bool ScanFace::readsDeep() const { return false; }
std::unique_ptr<ZOV_SPACE::BufferBase> ScanFace::volume(const _st_ArchEntry&, int) { return nullptr; }
