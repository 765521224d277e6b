// PeBuilder: writes small PE images, well-formed unless a field is set otherwise.
#ifndef TESTS_SUPPORT_PEBUILDER_H
#define TESTS_SUPPORT_PEBUILDER_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

struct PeBuilder {
    struct Section {
        std::uint32_t virtualAddress, virtualSize, rawPosition, rawSize;
    };

    std::string magic = "MZ";
    std::uint32_t newHeader = 0x80;  // e_lfanew
    std::string signature{"PE\0\0", 4};
    std::uint16_t optionalHeaderSize = 224;
    std::uint32_t entryPoint = 0x1000;
    std::vector<Section> sections{{0x1000, 0x200, 0x200, 0x200}};
    int claimedSections = -1;  // NumberOfSections; -1 for those that there are.
    std::size_t paddedTo = 0x400;

    // n sections of a page each, the first at 0x1000.
    PeBuilder& withSections(unsigned n) {
        sections.clear();
        for (std::uint32_t i = 1; i <= n; ++i) sections.push_back({0x1000 * i, 0x1000, 0x200 * i, 0x200});
        return *this;
    }

    std::string build() const {
        const std::size_t table = std::size_t{newHeader} + 24 + optionalHeaderSize;
        std::string image(std::max({paddedTo, std::size_t{newHeader} + 248, table + 40 * sections.size()}), '\0');
        image.replace(0, 2, magic);
        put32(image, 0x3C, newHeader);
        image.replace(newHeader, 4, signature);
        put16(image, newHeader + 6,
              claimedSections < 0 ? static_cast<unsigned>(sections.size()) : static_cast<unsigned>(claimedSections));
        put16(image, newHeader + 20, optionalHeaderSize);
        put32(image, newHeader + 40, entryPoint);
        for (std::size_t header = table; const Section& section : sections) {
            put32(image, header + 8, section.virtualSize);
            put32(image, header + 12, section.virtualAddress);
            put32(image, header + 16, section.rawSize);
            put32(image, header + 20, section.rawPosition);
            header += 40;
        }
        return image;
    }

    static void put16(std::string& image, std::size_t at, unsigned value) { std::memcpy(&image[at], &value, 2); }
    static void put32(std::string& image, std::size_t at, std::uint32_t value) { std::memcpy(&image[at], &value, 4); }
};

#endif  // TESTS_SUPPORT_PEBUILDER_H
