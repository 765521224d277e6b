// Crc: the running checksums of the archive formats, both the CRC-32 of ISO 3309 (reflected polynomial 0xEDB88320,
// register preset to all ones). They differ in what they hand out: Iso3309Crc the finished checksum, RarCrc the bare
// register. Objects are used by one thread at a time.
#ifndef PAKFOLD_UTILS_CRC_H
#define PAKFOLD_UTILS_CRC_H

#include <cstdint>

namespace ZOV_SPACE {

// The order of the virtual operations is part of the framework's contract: add new ones at the end only.
class Crc {
public:
    Crc() = default;
    Crc(const Crc&) = default;
    Crc& operator=(const Crc&) = default;
    virtual ~Crc();

    // Feed one byte, or n bytes (none when p is null). The result is the checksum so far, in the class's own form.
    virtual std::uint32_t add(char c) = 0;
    virtual std::uint32_t add(const void* p, unsigned int n) = 0;
    virtual std::uint32_t crc() const = 0;
};

class Iso3309Crc : public Crc {
public:
    Iso3309Crc() = default;
    explicit Iso3309Crc(std::uint32_t soFar) : _register(~soFar) {}  // Of what was fed to another one.

    std::uint32_t add(char c) override;
    std::uint32_t add(const void* p, unsigned int n) override;
    std::uint32_t crc() const override { return ~_register; }
    void reset() { _register = kPreset; }

private:
    static constexpr std::uint32_t kPreset = 0xFFFFFFFF;
    std::uint32_t _register = kPreset;
};

// Kept as is: crc() lacks the final inversion; callers invert it, or compare it with the complement of a stored CRC.
class RarCrc : public Crc {
public:
    std::uint32_t add(char c) override;
    std::uint32_t add(const void* p, unsigned int n) override;
    std::uint32_t crc() const override { return _register; }

private:
    std::uint32_t _register = 0xFFFFFFFF;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UTILS_CRC_H
