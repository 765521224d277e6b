// ScanFace.h: what a scan asks of the face that it is made for. The walk over a content and all that is in it is one
// and the same; the faces differ in whose signatures count, which members are taken, and who hears of what.
#ifndef ENGINE_SCAN_SCANFACE_H
#define ENGINE_SCAN_SCANFACE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Exception.h"
#include "Matching.h"
#include "SignatureMatch.h"
#include "WorkList.h"
#include "unarchiver/Pakfold.h"
#include "unarchiver/ProbedContent.h"

// The form of a content in which a signature was found.
enum class Form { raw = 1, normalised = 2 };

// Why something was not looked at, so that nothing can be said of it.
enum class Unseen {
    encrypted = 1,
    method = 2,
    unsupported = 3,  // Recognised, but not opened.
    volume = 4,
    damaged = 5,
    truncated = 6,
    checkSum = 7,
    sizeLimit = 8,
    ratioLimit = 9,
    memberLimit = 10,
    totalLimit = 11,
    depthLimit = 12,
    timeLimit = 13,
    cancelled = 14,
    workBudget = 15,
    memory = 16,
    io = 17,
};

// A limit of the face ends the archive at hand. It has been told already.
class LimitReachedException : public ZOV_SPACE::UnarchivePolicyException {
public:
    using UnarchivePolicyException::UnarchivePolicyException;
};

// On what terms a member is taken.
struct MemberTerms {
    long mostBytes;  // That are kept of it; 0 or less: as many as a buffer can hold.
    Unseen beyond;   // What it is when there are more.
};

// How far an archive's walk is when it offers a member.
struct MemberOffer {
    std::size_t waiting;  // Contents on the work list.
    int offered;          // Members of this archive so far, this one included.
};

// Called on the scan's thread only. What these throw ends the scan, but where it says otherwise.
class ScanFace {
public:
    ScanFace() = default;
    ScanFace(const ScanFace&) = delete;
    ScanFace& operator=(const ScanFace&) = delete;
    virtual ~ScanFace() = default;

    // Looks for the signatures that are in force now, in one of the forms that a record's content has.
    virtual Matched match(const _st_ArchEntry& record, Form form, ZOV_SPACE::IOBuffer& content, long size,
                          MatchVisitor& visitor) = 0;
    // A content has a signature. True: that decides, and the scan ends with this content's turn.
    virtual bool onFinding(const _st_ArchEntry& content, Form form, const SignatureMatch& match) = 0;
    // A content, or a member of it by its name in the archive, was not seen, or not whole.
    virtual void onUnseen(Unseen what, const _st_ArchEntry& content, const std::string* member, const char* text);

    // Whether a member is taken; nothing: no, and the face has said why if need be. Throwing ends the archive.
    virtual std::optional<MemberTerms> admit(const _st_ArchEntry& archive, const ZOV_SPACE::ArchiveEntryInfo& entry,
                                             const MemberOffer& offer) = 0;
    // More bytes of members were unpacked. Throwing ends the archive.
    virtual void onUnpacked(std::int64_t bytes);
    // Whether that will not throw for so many, other than to end the scan.
    virtual bool mayUnpack(std::int64_t bytes) const;
    // A member was unpacked and scanned.
    virtual void onMemberDone(const _st_ArchEntry& member, std::int64_t bytes);

    // Contents at this level and deeper ones are not probed. Compared as unsigned.
    virtual int deepestProbed() const;
    // Whether this content, which is an archive, is opened; if not, the face has said why.
    virtual bool opens(const _st_ArchEntry& archive);
    // This content does not begin as one of the archives that can be opened. `walked`: what it is walked as all the
    // same, ARCHIVEID_NONE if nothing.
    virtual void onNoArchive(const _st_ArchEntry& content, ZOV_SPACE::ProbedContent& bytes,
                             const ZOV_SPACE::ArchiveId& walked);
    // Whether archives are walked beyond what their format's rules allow; see ArchiveEntryProcessor::persists().
    virtual bool persists() const;
    // Whether the check-sum that an archive gives of a member is compared with what comes out.
    virtual bool comparesCheckSums() const;
    // Whether members are looked for wherever a reader of any kind might find them, instead of by one walk alone.
    virtual bool readsDeep() const;
    // Another volume of an archive; see ArchiveEntryProcessor::volume().
    virtual std::unique_ptr<ZOV_SPACE::BufferBase> volume(const _st_ArchEntry& archive, int number);
};

#endif  // ENGINE_SCAN_SCANFACE_H
