#include "ReplyReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

namespace isolation {

// What is left of one frame.
class ReplyReader::Frame {
public:
    explicit Frame(std::span<const std::byte> bytes) : _bytes(bytes) {}

    template <class T>
    T take() {
        static_assert(std::is_trivially_copyable_v<T>);
        const auto bytes = take(sizeof(T));
        T value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

    std::span<const std::byte> take(std::size_t size) {
        if (size > _bytes.size()) throw Nonsense();
        const auto taken = _bytes.first(size);
        _bytes = _bytes.subspan(size);
        return taken;
    }

    std::string_view takeText(std::size_t size) {
        const auto bytes = take(size);
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }

    std::size_t left() const { return _bytes.size(); }

private:
    std::span<const std::byte> _bytes;
};

namespace {

// An enumerator of numbers that follow each other.
template <class Enum>
Enum checked(std::uint32_t number, Enum first, Enum last) {
    if (number < static_cast<std::uint32_t>(first) || number > static_cast<std::uint32_t>(last)) throw Nonsense();
    return static_cast<Enum>(number);
}

vole_reason_code reasonCode(std::uint32_t number) { return checked(number, VOLE_REASON_ENCRYPTED, VOLE_REASON_IO); }
vole_kind kindOf(std::uint32_t number) { return checked(number, VOLE_KIND_MD5, VOLE_KIND_CHECKSUM); }
vole_form formOf(std::uint32_t number) { return checked(number, VOLE_FORM_RAW, VOLE_FORM_NORMALISED); }

// The engine's own texts are printable English; a worker that is no longer the engine's may write what it likes.
std::string printable(std::string_view text) {
    std::string copy(text);
    std::replace_if(
        copy.begin(), copy.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return copy;
}

// Names of signatures are bytes, but they end with a NUL.
std::string_view signatureName(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) throw Nonsense();
    return text;
}

// Hosts may keep these, so they have to be ours.
const char* methodName(std::string_view name) {
    static constexpr const char* kMethods[] = {"",        "stored",    "sparse",  "shrink", "reduce",  "implode",
                                               "deflate", "deflate64", "bzip2",   "lzma",   "terse",   "lz77",
                                               "zstd",    "mp3",       "xz",      "jpeg",   "wavpack", "ppmd",
                                               "aes",     "rar 1.5",   "rar 2.0", "rar 2.9"};
    const auto* const found = std::find(std::begin(kMethods), std::end(kMethods), name);
    if (found == std::end(kMethods)) throw Nonsense();
    return *found;
}

}  // namespace

void ReplyReader::append(std::span<const std::byte> bytes) {
    // What was read goes only when it is most of all, so that each byte is moved a few times at most.
    if (_position > _unread.size() / 2) {
        _unread.erase(_unread.begin(), _unread.begin() + static_cast<std::ptrdiff_t>(std::exchange(_position, 0)));
    }
    if (bytes.size() > kMostBytes - std::min(kMostBytes, _unread.size())) throw Nonsense();
    _unread.insert(_unread.end(), bytes.begin(), bytes.end());
}

void ReplyReader::clear() {
    _unread.clear();
    _position = 0;
    forgetNames();
}

void ReplyReader::forgetNames() {
    _names.clear();
    _nameBytes = 0;
}

ReplyReader::Next ReplyReader::next(Next wanted, vole_result& result) {
    const auto require = [wanted](Next found) {
        if (found != wanted) throw Nonsense();
    };
    for (;;) {
        const auto unread = std::span<const std::byte>(_unread).subspan(_position);
        if (unread.size() < sizeof(FrameHead)) return Next::nothing;
        FrameHead head;
        std::memcpy(&head, unread.data(), sizeof head);
        if (head.size > kMostBytes) throw Nonsense();
        if (head.size > unread.size() - sizeof head) return Next::nothing;
        _position += sizeof head + head.size;
        const Frame frame(unread.subspan(sizeof head, head.size));
        switch (checked(static_cast<std::uint32_t>(head.kind), FrameKind::name, FrameKind::text)) {
            case FrameKind::name:
                readName(frame);
                break;
            case FrameKind::finding:
                readFinding(frame, result);
                break;
            case FrameKind::reason:
                readReason(frame, result);
                break;
            case FrameKind::result:
                require(Next::result);
                readResult(frame, result);
                return wanted;
            case FrameKind::event:
                require(Next::event);
                readEvent(frame);
                return wanted;
            case FrameKind::bytes:
                require(Next::bytes);
                _bytes = unread.subspan(sizeof head, head.size);
                return wanted;
            case FrameKind::text:
                require(Next::text);
                _bytes = unread.subspan(sizeof head, head.size);
                return wanted;
        }
    }
}

void ReplyReader::readName(Frame frame) {
    const auto head = frame.take<NameFrame>();
    const auto archive = nameOf(head.archive);
    const std::uint32_t level = head.archive == 0 ? 1 : _names[head.archive - 1].level + 1;
    // No more than what is kept of a content can lie in.
    const std::uint64_t mostNames = std::uint64_t{3} * vole_result::kMostKept * _deepest;
    if (level > _deepest || _names.size() >= mostNames) throw Nonsense();
    const auto own = frame.takeText(frame.left());
    if (own.size() > kMostBytes - _nameBytes) throw Nonsense();
    _nameBytes += own.size();
    _names.push_back({std::make_shared<const ContentName>(archive, std::string(own), 0), level});
}

const std::shared_ptr<const ContentName>& ReplyReader::nameOf(std::uint32_t number) const {
    static const auto kRoot = std::make_shared<const ContentName>("");
    if (number == 0) return kRoot;
    if (number > _names.size()) throw Nonsense();
    return _names[number - 1].name;
}

void ReplyReader::readFinding(Frame frame, vole_result& result) {
    const auto head = frame.take<FindingFrame>();
    const auto name = signatureName(frame.takeText(frame.left()));
    KeptFinding finding{KeptPath(nameOf(head.content)), std::string(name), {}};
    finding.view.kind = kindOf(head.kind);
    finding.view.form = formOf(head.form);
    finding.view.allowed = _falseAlarms.contains(name);
    finding.view.offset = head.offset;
    result.keep(std::move(finding));
}

void ReplyReader::readReason(Frame frame, vole_result& result) {
    const auto head = frame.take<ReasonFrame>();
    KeptReason reason{KeptPath(nameOf(head.content)), printable(frame.takeText(frame.left())), {}};
    reason.view.code = reasonCode(head.code);
    result.keep(std::move(reason));
}

void ReplyReader::readResult(Frame frame, vole_result& result) {
    const auto head = frame.take<ResultFrame>();
    _error = checked(head.error, VOLE_OK, VOLE_E_INTERNAL);
    result.errorText = printable(frame.takeText(frame.left()));
    result.counters = head.counters;
    forgetNames();
    result.counters.findings = std::max<std::uint64_t>(head.counters.findings, result.findings.size());
    result.counters.reasons = std::max<std::uint64_t>(head.counters.reasons, result.reasons.size());
    result.outcome = result.counters.reasons == 0 ? VOLE_OUTCOME_CLEAN : VOLE_OUTCOME_INCOMPLETE;
    if (result.keptCounting != 0) result.outcome = VOLE_OUTCOME_FOUND;
    if (_error != VOLE_OK) result.outcome = VOLE_OUTCOME_FAILED;
}

void ReplyReader::readEvent(Frame frame) {
    const auto head = frame.take<EventFrame>();
    _event.text = frame.takeText(head.textSize);
    _event.names.clear();
    _event.components.clear();
    if (head.componentCount > _deepest) throw Nonsense();
    for (std::uint32_t i = 0; i < head.componentCount; ++i) {
        _event.names.emplace_back(frame.takeText(frame.take<std::uint32_t>()));
    }
    for (const std::string& name : _event.names) _event.components.push_back({name.data(), name.size()});
    vole_event& event = _event.event;
    event = {};
    event.type = checked(head.type, VOLE_EVENT_MEMBER_ENTERED, VOLE_EVENT_EMPTY_MEMBER);
    event.member = {_event.components.data(), _event.components.size()};
    event.size = head.size;
    event.bytes_done = head.bytesDone;
    if (event.type == VOLE_EVENT_FINDING) {
        static_cast<void>(signatureName(_event.text));
        _event.finding = {_event.text.c_str(), kindOf(head.kind), formOf(head.form), _falseAlarms.contains(_event.text),
                          head.offset,         event.member};
        event.finding = &_event.finding;
    } else if (event.type == VOLE_EVENT_REASON) {
        _event.text = printable(_event.text);
        _event.reason = {reasonCode(head.kind), _event.text.c_str(), event.member};
        event.reason = &_event.reason;
    } else if (event.type == VOLE_EVENT_CONTENT) {
        _event.content = {formOf(head.form),  head.size,
                          head.packedSize,    methodName(_event.text),
                          head.isPacked != 0, checked(head.checksum, VOLE_CHECKSUM_NONE, VOLE_CHECKSUM_WRONG)};
        event.content = &_event.content;
    }
}

}  // namespace isolation
