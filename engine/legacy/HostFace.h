// HostFace: what a scan by scanFile() asks for: the signatures of the slot that is active at each pass, and the limits
// of the options file.
#ifndef ENGINE_LEGACY_HOSTFACE_H
#define ENGINE_LEGACY_HOSTFACE_H

#include "ScanFace.h"
#include "VoleOptions.h"

class HostFace : public ScanFace {
public:
    explicit HostFace(const OptionValues& options) : _options(options) {}

    Matched match(const _st_ArchEntry& record, Form form, ZOV_SPACE::IOBuffer& content, long size,
                  MatchVisitor& visitor) override;
    bool onFinding(const _st_ArchEntry& content, Form form, const SignatureMatch& match) override;
    // An entry that breaks a limit of its own is reported to the host. Throws UnarchivePolicyException when there are
    // too many.
    std::optional<MemberTerms> admit(const _st_ArchEntry& archive, const ZOV_SPACE::ArchiveEntryInfo& entry,
                                     const MemberOffer& offer) override;
    int deepestProbed() const override { return _options.maxDepth; }

private:
    void checkCounts(const MemberOffer& offer) const;
    bool passesLimits(unsigned int packedSize, unsigned int unpackedSize) const;

    const OptionValues _options;
};

#endif  // ENGINE_LEGACY_HOSTFACE_H
