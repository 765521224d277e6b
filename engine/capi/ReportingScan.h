// ReportingScan: one scan for a host of vole.h: applies its limits, and writes down what was found and what was not
// seen. Tells the host's event callback, which may stop the scan, as may the clock and vole_scanner_cancel().
#ifndef ENGINE_CAPI_REPORTINGSCAN_H
#define ENGINE_CAPI_REPORTINGSCAN_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Result.h"
#include "ScanFace.h"
#include "Signatures.h"
#include "unarchiver/ScanBudget.h"
#include "vole.h"

// What a scanner is told once, and keeps to in each scan.
struct ScanTerms {
    vole_limits limits = VOLE_LIMITS_INIT;
    std::uint32_t flags = 0;
    vole_event_fn onEvent = nullptr;
    void* context = nullptr;
    std::atomic<bool> cancelled = false;
    // Where it is said that the scan is to end: above, or in memory that another process shares.
    const std::atomic<bool>* cancelledAt = &cancelled;
};

class ReportingScan final : private ScanFace, private ZOV_SPACE::ScanWatch {
public:
    // All are borrowed. The result is filled. The clock starts, that much ahead.
    ReportingScan(const vole_signatures& signatures, const ScanTerms& terms, vole_result& result,
                  std::chrono::microseconds spent = {});
    ~ReportingScan() override;

    // Throws std::bad_alloc only before anything was looked at.
    void run(std::unique_ptr<ZOV_SPACE::BufferBase> content);
    // Instead of run(), or beside it: something about the content itself keeps it from being looked at.
    void refuse(Unseen what, const char* text);
    // For whoever gets the content ready: time limit and cancelling hold there, too. Throws ScanStoppedException.
    void checkpoint() { onWork(0); }
    // Who has other volumes of the content; null where there is no such volume.
    using Volumes = std::function<std::unique_ptr<ZOV_SPACE::BufferBase>(int number)>;
    void lookBeside(Volumes volumes) { _volumes = std::move(volumes); }
    // The MD5 digest of the content that run() gets.
    void know(const Md5Digest& digest) { _digest = digest; }
    // The outcome, and the time. Last of all.
    void conclude();

private:
    using Clock = std::chrono::steady_clock;

    Matched match(const _st_ArchEntry& record, Form form, ZOV_SPACE::IOBuffer& content, long size,
                  MatchVisitor& visitor) override;
    bool onFinding(const _st_ArchEntry& content, Form form, const SignatureMatch& match) override;
    void onUnseen(Unseen what, const _st_ArchEntry& content, const std::string* member, const char* text) override;
    std::optional<MemberTerms> admit(const _st_ArchEntry& archive, const ZOV_SPACE::ArchiveEntryInfo& entry,
                                     const MemberOffer& offer) override;
    void onUnpacked(std::int64_t bytes) override;
    bool mayUnpack(std::int64_t bytes) const override;
    void onMemberDone(const _st_ArchEntry& member, std::int64_t bytes) override;
    bool opens(const _st_ArchEntry& archive) override;
    void onNoArchive(const _st_ArchEntry& content, ZOV_SPACE::ProbedContent& bytes,
                     const ZOV_SPACE::ArchiveId& walked) override;
    bool persists() const override { return true; }
    bool comparesCheckSums() const override { return true; }
    bool readsDeep() const override { return !(_terms.flags & VOLE_SCAN_SHALLOW); }
    std::unique_ptr<ZOV_SPACE::BufferBase> volume(const _st_ArchEntry& archive, int number) override;
    void onWork(std::int64_t bytes) override;

    bool showsContents() const { return _terms.onEvent && (_terms.flags & VOLE_SCAN_CONTENTS); }
    void showContent(const _st_ArchEntry& record, Form form, ZOV_SPACE::IOBuffer& bytes);
    void countMember(const _st_ArchEntry& archive);
    void limitReached(Unseen what, const _st_ArchEntry& archive, const char* text, bool& told);
    void unseen(Unseen what, const std::shared_ptr<const ContentName>& name, const char* text);
    void tellOfMember(vole_event_type what, const _st_ArchEntry& archive, const ZOV_SPACE::ArchiveEntryInfo& entry);
    [[noreturn]] void stop(Unseen what, const char* text);
    void tell(vole_event& event);

    const vole_signatures& _signatures;
    const ScanTerms& _terms;
    vole_result& _result;
    const Clock::time_point _start;
    const std::shared_ptr<const ContentName> _root = std::make_shared<const ContentName>("");
    Volumes _volumes;
    std::optional<Md5Digest> _digest;
    std::uint64_t _bytesDone = 0;
    std::uint64_t _bytesTold = 0;  // Of those, by progress events.
    bool _found = false;
    bool _decided = false;    // A finding ends the scan.
    bool _hostStops = false;  // The event callback wants the end.
    bool _stopped = false;    // And was told so.
    // From the throw that ends an archive or the scan to the next content: what walks say of an end that was wanted is
    // no news.
    bool _givingUp = false;
    bool _memberLimitTold = false;
    bool _totalLimitTold = false;
};

#endif  // ENGINE_CAPI_REPORTINGSCAN_H
