// What is digested are sections, one for each run of records of one kind, and one with the false alarms. A section is a
// NUL, the letter of its kind, and its entries: records with a line feed behind each, which none has in it, or names
// with a NUL. No record has a NUL in it, so different sets are different bytes.
#include "SetDigest.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

constexpr char kFalseAlarms = 'f';
constexpr std::string_view kNul("\0", 1);

}  // namespace

struct SetDigest::State {
    XXH3_state_t xxh;
};

SetDigest::SetDigest() : _state(std::make_unique<State>()) { XXH3_128bits_reset(&_state->xxh); }

SetDigest::~SetDigest() = default;

void SetDigest::add(std::string_view bytes) { XXH3_128bits_update(&_state->xxh, bytes.data(), bytes.size()); }

void SetDigest::enterSection(char kind) {
    if (_section == kind) return;
    _section = kind;
    add(kNul);
    add({&kind, 1});
}

void SetDigest::addRecords(RecordKind kind, std::string_view texts) {
    enterSection(static_cast<char>(kind));
    add(texts);
    add("\n");
}

void SetDigest::addFalseAlarm(std::string_view name) {
    enterSection(kFalseAlarms);
    add(name);
    add(kNul);
}

std::string SetDigest::hex() const {
    XXH128_canonical_t digest;
    XXH128_canonicalFromHash(&digest, XXH3_128bits_digest(&_state->xxh));
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result;
    for (const unsigned char byte : digest.digest) {
        result += kDigits[byte >> 4];
        result += kDigits[byte & 15];
    }
    return result;
}
