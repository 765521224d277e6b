// SignatureMatch: one signature that a content has, and who is told of it.
#ifndef SIGNATURES_SIGNATUREMATCH_H
#define SIGNATURES_SIGNATUREMATCH_H

#include <cstdint>
#include <optional>
#include <string>

struct SignatureMatch {
    const char* name;  // Belongs to the list of the signature.
    // Where a checksum signature's first range begins in the content; nothing for an MD5 signature.
    std::optional<std::uint32_t> offset;
};

class MatchVisitor {
public:
    MatchVisitor() = default;
    MatchVisitor(const MatchVisitor&) = delete;
    MatchVisitor& operator=(const MatchVisitor&) = delete;
    virtual ~MatchVisitor() = default;

    // True: that is enough, the scan may end here.
    virtual bool onMatch(const SignatureMatch& match) = 0;
};

// For whoever wants a name and no more: takes that of the first match. Borrows the text.
class FirstMatchName final : public MatchVisitor {
public:
    explicit FirstMatchName(std::string& name) : _name(name) {}
    bool onMatch(const SignatureMatch& match) override {
        _name = match.name;
        return true;
    }

private:
    std::string& _name;
};

#endif  // SIGNATURES_SIGNATUREMATCH_H
