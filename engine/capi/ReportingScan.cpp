#include "ReportingScan.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <new>
#include <utility>

#include "Raise.h"
#include "ScanJob.h"
#include "ShownContent.h"
#include "WrappedLimitedBufferBase.h"
#include "unarchiver/DeepFormats.h"
#include "unarchiver/ForeignFormat.h"

namespace {

using ZOV_SPACE::ArchiveEntryInfo;

constexpr std::uint64_t kProgressStep = std::uint64_t{8} << 20;  // Bytes.
// Levels of archives. Some archives hold themselves, and a path costs what it is long.
constexpr std::uint64_t kDeepestEver = 10'000;

// A limit as the host gave it, where 0 means that there is none.
std::uint64_t bounded(std::uint64_t limit) { return limit == 0 ? std::numeric_limits<std::uint64_t>::max() : limit; }

// Sizes are given in 32 bits, the largest number standing for all that are larger.
std::uint64_t sizeOf(int size) { return static_cast<std::uint32_t>(size); }

std::shared_ptr<const ContentName> sharedName(const _st_ArchEntry& content) {
    return std::make_shared<const ContentName>(content.name);
}

std::shared_ptr<const ContentName> memberName(const _st_ArchEntry& archive, const std::string& member) {
    return std::make_shared<const ContentName>(sharedName(archive), member, 0);
}

}  // namespace

ReportingScan::ReportingScan(const vole_signatures& signatures, const ScanTerms& terms, vole_result& result,
                             std::chrono::microseconds spent)
    : _signatures(signatures), _terms(terms), _result(result), _start(Clock::now() - spent) {}

ReportingScan::~ReportingScan() = default;

void ReportingScan::run(std::unique_ptr<ZOV_SPACE::BufferBase> content) {
    _result.counters.bytes_read = static_cast<std::uint64_t>(content->getSize());
    ScanJob job(*this, this);
    job.begin(std::move(content), "");
    std::string decidingName;
    try {
        job.run(decidingName);
    } catch (const ZOV_SPACE::ScanStoppedException&) {
    } catch (const std::bad_alloc&) {
        refuse(Unseen::memory, "memory ran out");
    } catch (ZOV_SPACE::Exception& e) {
        refuse(Unseen::damaged, e.toString());
    }
}

void ReportingScan::refuse(Unseen what, const char* text) { unseen(what, _root, text); }

void ReportingScan::conclude() {
    const bool complete = _result.counters.reasons == 0;
    _result.outcome = complete ? VOLE_OUTCOME_CLEAN : VOLE_OUTCOME_INCOMPLETE;
    if (_found) _result.outcome = VOLE_OUTCOME_FOUND;
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - _start);
    _result.counters.time_us = static_cast<std::uint64_t>(time.count());
}

Matched ReportingScan::match(const _st_ArchEntry& record, Form form, ZOV_SPACE::IOBuffer& content, long size,
                             MatchVisitor& visitor) {
    _givingUp = false;
    if (showsContents()) showContent(record, form, content);
    const bool isKnown = _digest && record.level == 0 && form == Form::raw;
    return matchSignatures(_signatures.patterns, content, size, visitor, isKnown ? &*_digest : nullptr);
}

void ReportingScan::showContent(const _st_ArchEntry& record, Form form, ZOV_SPACE::IOBuffer& bytes) {
    const LocalContent content(record, static_cast<vole_form>(form), bytes);
    const KeptPath path(sharedName(record));
    vole_event event{};
    event.type = VOLE_EVENT_CONTENT;
    event.member = path.view();
    event.size = content.size;
    event.content = &content;
    tell(event);
}

bool ReportingScan::onFinding(const _st_ArchEntry& content, Form form, const SignatureMatch& match) {
    ++_result.counters.findings;
    KeptFinding finding{KeptPath(sharedName(content)), match.name, {}};
    finding.view.kind = match.offset ? VOLE_KIND_CHECKSUM : VOLE_KIND_MD5;
    finding.view.form = static_cast<vole_form>(form);
    finding.view.allowed = _signatures.falseAlarms.contains(match.name);
    finding.view.offset = match.offset ? *match.offset : VOLE_NO_OFFSET;
    finding.view.name = match.name;
    finding.view.member = finding.path.view();
    vole_event event{};
    event.type = VOLE_EVENT_FINDING;
    event.member = finding.view.member;
    event.finding = &finding.view;
    tell(event);
    const bool counts = !finding.view.allowed;
    _result.keep(std::move(finding));
    _found = _found || counts;
    if (counts && !(_terms.flags & VOLE_SCAN_ALL_MATCHES)) _decided = true;
    return _decided;
}

void ReportingScan::onUnseen(Unseen what, const _st_ArchEntry& content, const std::string* member, const char* text) {
    unseen(what, member ? memberName(content, *member) : sharedName(content), text);
}

void ReportingScan::unseen(Unseen what, const std::shared_ptr<const ContentName>& name, const char* text) {
    if (_givingUp) return;
    ++_result.counters.reasons;
    KeptReason reason{KeptPath(name), text, {}};
    reason.view.code = static_cast<vole_reason_code>(what);
    reason.view.text = reason.text.c_str();
    reason.view.member = reason.path.view();
    vole_event event{};
    event.type = VOLE_EVENT_REASON;
    event.member = reason.view.member;
    event.reason = &reason.view;
    tell(event);
    _result.keep(std::move(reason));
}

std::optional<MemberTerms> ReportingScan::admit(const _st_ArchEntry& archive, const ArchiveEntryInfo& entry,
                                                const MemberOffer&) {
    const std::uint64_t packed = sizeOf(entry.compressedSize);
    const std::uint64_t announced = sizeOf(entry.uncompressedSize);
    const bool isEmpty = packed == 0 && announced == 0;
    if (isEmpty && entry.name.empty()) return std::nullopt;  // No member at all.
    countMember(archive);
    if (isEmpty) {
        const bool isFolder = entry.isFolder || entry.name.ends_with('/');
        if (showsContents()) tellOfMember(isFolder ? VOLE_EVENT_FOLDER : VOLE_EVENT_EMPTY_MEMBER, archive, entry);
        return std::nullopt;
    }
    const vole_limits& limits = _terms.limits;
    const std::uint64_t mostByRatio = bounded(limits.max_ratio * std::max<std::uint64_t>(packed, 1));
    if (announced > bounded(limits.max_member)) {
        unseen(Unseen::sizeLimit, memberName(archive, entry.name), "it is larger than the limit");
        return std::nullopt;
    }
    if (announced > mostByRatio) {
        unseen(Unseen::ratioLimit, memberName(archive, entry.name), "it unpacks to more than the ratio allows");
        return std::nullopt;
    }
    tellOfMember(VOLE_EVENT_MEMBER_ENTERED, archive, entry);
    constexpr std::uint64_t kMostEver = WrappedLimitedBufferBase::kHighestLimit;
    const std::uint64_t mostBySize = std::min(bounded(limits.max_member), kMostEver);
    return MemberTerms{static_cast<long>(std::min(mostBySize, mostByRatio)),
                       mostByRatio < mostBySize ? Unseen::ratioLimit : Unseen::sizeLimit};
}

void ReportingScan::countMember(const _st_ArchEntry& archive) {
    ++_result.counters.members;
    if (_result.counters.members <= bounded(_terms.limits.max_members)) return;
    limitReached(Unseen::memberLimit, archive, "there are more members than the limit", _memberLimitTold);
}

// Told once: every archive that comes later ends in the same way.
void ReportingScan::limitReached(Unseen what, const _st_ArchEntry& archive, const char* text, bool& told) {
    if (!std::exchange(told, true)) unseen(what, sharedName(archive), text);
    _givingUp = true;
    ZOV_SPACE::raise<LimitReachedException>(text);
}

void ReportingScan::tellOfMember(vole_event_type what, const _st_ArchEntry& archive, const ArchiveEntryInfo& entry) {
    if (!_terms.onEvent) return;
    const KeptPath path(memberName(archive, entry.name));
    vole_event event{};
    event.type = what;
    event.member = path.view();
    event.size = sizeOf(entry.uncompressedSize);
    tell(event);
}

void ReportingScan::onUnpacked(std::int64_t bytes) {
    _result.counters.bytes_unpacked += static_cast<std::uint64_t>(bytes);
    onWork(bytes);
    if (_result.counters.bytes_unpacked <= bounded(_terms.limits.max_total)) return;
    if (!std::exchange(_totalLimitTold, true)) {
        unseen(Unseen::totalLimit, _root, "its members unpack to more than the limit");
    }
    _givingUp = true;
    ZOV_SPACE::raise<LimitReachedException>("total limit");
}

bool ReportingScan::mayUnpack(std::int64_t bytes) const {
    const std::uint64_t most = bounded(_terms.limits.max_total), unpacked = _result.counters.bytes_unpacked;
    return unpacked <= most && static_cast<std::uint64_t>(bytes) <= most - unpacked;
}

void ReportingScan::onMemberDone(const _st_ArchEntry& member, std::int64_t bytes) {
    auto& deepest = _result.counters.deepest_level;
    deepest = std::max<std::uint64_t>(deepest, static_cast<std::uint64_t>(member.level));
    if (_terms.onEvent) {
        const KeptPath path(sharedName(member));
        vole_event event{};
        event.type = VOLE_EVENT_MEMBER_DONE;
        event.member = path.view();
        event.size = static_cast<std::uint64_t>(bytes);
        tell(event);
    }
    if (!_decided) return;
    _givingUp = true;
    ZOV_SPACE::raise<ZOV_SPACE::ScanStoppedException>("found");
}

bool ReportingScan::opens(const _st_ArchEntry& archive) {
    const std::uint64_t deepest = std::min(bounded(_terms.limits.max_depth), kDeepestEver);
    if (static_cast<std::uint64_t>(archive.level) < deepest) return true;
    unseen(Unseen::depthLimit, sharedName(archive), "the archive lies deeper than the limit");
    return false;
}

void ReportingScan::onNoArchive(const _st_ArchEntry& content, ZOV_SPACE::ProbedContent& bytes,
                                const ZOV_SPACE::ArchiveId& walked) {
    if (content.isPacked) return;  // Which has been told; what its method writes may look like anything.
    const char* const format = bytes.foreignFormat();
    if (!format || ZOV_SPACE::isWalked(walked, format)) return;
    const std::string text = std::string("the members of ") + format + " are not reached";
    unseen(Unseen::unsupported, sharedName(content), text.c_str());
}

// What is inside of another archive has no other volumes beside it.
std::unique_ptr<ZOV_SPACE::BufferBase> ReportingScan::volume(const _st_ArchEntry& archive, int number) {
    checkpoint();
    return _volumes && archive.level == 0 ? _volumes(number) : nullptr;
}

void ReportingScan::onWork(std::int64_t bytes) {
    _bytesDone += static_cast<std::uint64_t>(bytes);
    if (_terms.onEvent && _bytesDone - _bytesTold >= kProgressStep) {
        _bytesTold = _bytesDone;
        vole_event event{};
        event.type = VOLE_EVENT_PROGRESS;
        tell(event);
    }
    if (_hostStops || _terms.cancelledAt->load(std::memory_order_relaxed)) stop(Unseen::cancelled, "cancelled");
    if (_terms.limits.max_time_ms == 0) return;
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _start);
    if (static_cast<std::uint64_t>(elapsed.count()) >= _terms.limits.max_time_ms) {
        stop(Unseen::timeLimit, "it takes longer than the limit");
    }
}

void ReportingScan::stop(Unseen what, const char* text) {
    if (!std::exchange(_stopped, true)) refuse(what, text);
    _givingUp = true;
    ZOV_SPACE::raise<ZOV_SPACE::ScanStoppedException>(text);
}

// The end that the callback may ask for comes with the next piece of work: not every place where there is something to
// tell can be left.
void ReportingScan::tell(vole_event& event) {
    if (!_terms.onEvent) return;
    event.bytes_done = _bytesDone;
    if (_terms.onEvent(_terms.context, &event) != 0) _hostStops = true;
}
