#include "HostFace.h"

#include "PatternSlot.h"
#include "Raise.h"
#include "Utils.h"
#include "util/Diag.h"

namespace {

using ZOV_SPACE::ArchiveEntryInfo;
using ZOV_SPACE::Utils;

constexpr diag::Unit kDiag{"Unarchive"};
constexpr ZOV_SPACE::ThrowUnit kUnit{"Unarchive"};

}  // namespace

Matched HostFace::match(const _st_ArchEntry&, Form, ZOV_SPACE::IOBuffer& content, long size, MatchVisitor& visitor) {
    const SlotLease slot = SlotLease::acquire();
    return slot ? matchSignatures(*slot->patterns, content, size, visitor) : Matched{};
}

bool HostFace::onFinding(const _st_ArchEntry&, Form, const SignatureMatch&) { return true; }

std::optional<MemberTerms> HostFace::admit(const _st_ArchEntry&, const ArchiveEntryInfo& entry,
                                           const MemberOffer& offer) {
    const int size = entry.compressedSize;
    const int usize = entry.uncompressedSize;
    if (entry.name.empty()) {
        kDiag.at().dbg("process_entry : [NULL], size= %d, usize= %d", size, usize);
    } else {
        kDiag.at().dbg("process_entry : <%s>, size= %d, usize= %d", entry.name.c_str(), size, usize);
    }
    kDiag.at().dbg("list size= %d, added entries= %d, limit= %d.", static_cast<int>(offer.waiting), offer.offered,
                   _options.maxEntries);
    if (size == 0 && usize == 0) return std::nullopt;
    checkCounts(offer);
    if (!passesLimits(static_cast<unsigned>(size), static_cast<unsigned>(usize))) return std::nullopt;
    return MemberTerms{_options.maxSize, Unseen::sizeLimit};
}

void HostFace::checkCounts(const MemberOffer& offer) const {
    const auto waiting = static_cast<long long>(offer.waiting);
    if (_options.maxEntries != 0 && waiting + 1 > _options.maxEntries) {
        kUnit.raise<ZOV_SPACE::UnarchivePolicyException>(
            Utils::formatString("Reach the entries limit [%d].", _options.maxEntries));
    }
    if (_options.maxLevelEntries != 0 && offer.offered > _options.maxLevelEntries) {
        kUnit.raise<ZOV_SPACE::UnarchivePolicyException>(
            Utils::formatString("Reach the level entries limit [%d].", _options.maxLevelEntries));
    }
}

bool HostFace::passesLimits(unsigned int packedSize, unsigned int unpackedSize) const {
    const auto maxSize = static_cast<unsigned int>(_options.maxSize);
    if (maxSize != 0 && packedSize > maxSize) {
        kDiag.at().err("Oversize entry(size): [%d] > [%d]", static_cast<int>(packedSize), _options.maxSize);
        return false;
    }
    if (maxSize != 0 && unpackedSize > maxSize) {
        kDiag.at().err("Oversize entry(usize): [%d] > [%d]", static_cast<int>(unpackedSize), _options.maxSize);
        return false;
    }
    if (_options.maxRatio != 0 && packedSize > 0) {
        const unsigned int ratio = unpackedSize / packedSize;
        if (ratio > static_cast<unsigned int>(_options.maxRatio)) {
            kDiag.at().err("Overratio entry: [%d] > [%d]", static_cast<int>(ratio), _options.maxRatio);
            return false;
        }
    }
    return true;
}
