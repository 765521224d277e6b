#include "ReplyWriter.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace isolation {

void ReplyWriter::result(vole_error error, const vole_result& result) {
    _numbers.clear();
    for (const KeptFinding& finding : result.findings) {
        const vole_finding& view = finding.view;
        const std::uint32_t content = numberOf(finding.path.name());
        frame(FrameKind::finding,
              FindingFrame{content, static_cast<std::uint32_t>(view.kind), static_cast<std::uint32_t>(view.form),
                           view.offset},
              finding.name);
    }
    for (const KeptReason& reason : result.reasons) {
        const std::uint32_t content = numberOf(reason.path.name());
        frame(FrameKind::reason, ReasonFrame{content, static_cast<std::uint32_t>(reason.view.code)}, reason.text);
    }
    frame(FrameKind::result, ResultFrame{static_cast<std::uint32_t>(error), result.counters}, result.errorText);
    _outbox.results.fetch_add(1, std::memory_order_release);
}

// Archives have their numbers before their members have.
std::uint32_t ReplyWriter::numberOf(const ContentName& name) {
    std::vector<const ContentName*> unnumbered;
    const ContentName* known = &name;
    for (; known->archive() && !_numbers.contains(known); known = known->archive()) unnumbered.push_back(known);
    std::uint32_t number = known->archive() ? _numbers.at(known) : 0;
    for (auto part = unnumbered.rbegin(); part != unnumbered.rend(); ++part) {
        frame(FrameKind::name, NameFrame{number}, (*part)->own());
        number = static_cast<std::uint32_t>(_numbers.size()) + 1;
        _numbers.emplace(*part, number);
    }
    return number;
}

void ReplyWriter::event(const vole_event& event) {
    EventFrame told{};
    told.type = static_cast<std::uint32_t>(event.type);
    told.size = event.size;
    told.bytesDone = event.bytes_done;
    std::string_view text;
    if (event.finding) {
        text = event.finding->name;
        told.kind = static_cast<std::uint32_t>(event.finding->kind);
        told.form = static_cast<std::uint32_t>(event.finding->form);
        told.offset = event.finding->offset;
    } else if (event.reason) {
        text = event.reason->text;
        told.kind = static_cast<std::uint32_t>(event.reason->code);
    } else if (event.content) {
        text = event.content->method;
        told.form = static_cast<std::uint32_t>(event.content->form);
        told.packedSize = event.content->packed_size;
        told.isPacked = static_cast<std::uint32_t>(event.content->is_packed);
        told.checksum = static_cast<std::uint32_t>(event.content->checksum);
    }
    const std::span components(event.member.components, event.member.count);
    std::size_t size = sizeof told + text.size();
    for (const vole_bytes& component : components) size += sizeof(std::uint32_t) + component.size;
    told.componentCount = static_cast<std::uint32_t>(components.size());
    told.textSize = static_cast<std::uint32_t>(text.size());
    head(FrameKind::event, size);
    put(std::as_bytes(std::span(&told, 1)));
    put(text);
    for (const vole_bytes& component : components) {
        const auto length = static_cast<std::uint32_t>(component.size);
        put(std::as_bytes(std::span(&length, 1)));
        put(std::string_view(component.data, component.size));
    }
}

void ReplyWriter::bytes(std::span<const std::byte> bytes) {
    head(FrameKind::bytes, bytes.size());
    put(bytes);
}

void ReplyWriter::text(std::string_view text) {
    head(FrameKind::text, text.size());
    put(text);
}

void ReplyWriter::head(FrameKind kind, std::size_t size) {
    const FrameHead head{kind, static_cast<std::uint32_t>(size)};
    put(std::as_bytes(std::span(&head, 1)));
}

void ReplyWriter::put(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const std::uint32_t used = _outbox.used.load(std::memory_order_relaxed);
        const std::size_t count = std::min(bytes.size(), _outbox.bytes.size() - used);
        if (count == 0) {
            _onFull();
            continue;
        }
        std::memcpy(_outbox.bytes.data() + used, bytes.data(), count);
        _outbox.used.store(used + static_cast<std::uint32_t>(count), std::memory_order_release);
        bytes = bytes.subspan(count);
    }
}

}  // namespace isolation
