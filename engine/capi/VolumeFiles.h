// VolumeFiles: the volumes of an archive that lie beside the first one, under the names that archivers give them.
#ifndef ENGINE_CAPI_VOLUMEFILES_H
#define ENGINE_CAPI_VOLUMEFILES_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "io/BufferBase.h"
#include "io/OwnFd.h"

class VolumeFiles {
public:
    // At most so many bytes are opened in all, 0 for no limit.
    VolumeFiles(std::string first, std::uint64_t most) : _first(std::move(first)), _most(most) {}

    // Volumes have numbers from 2 on. Nothing for one that is not there, is no regular file of its own in the same
    // folder, or is too large; and for all where the first one has no such name.
    ZOV_SPACE::OwnFd open(int number);
    // The bytes of an open volume. Null without one, and for what is no regular file or is too large.
    static std::unique_ptr<ZOV_SPACE::BufferBase> content(const ZOV_SPACE::OwnFd& file);

private:
    std::string _first;
    std::uint64_t _most;
    std::uint64_t _opened = 0;  // Bytes, of each volume once.
    int _latest = 1;            // That was counted.
};

#endif  // ENGINE_CAPI_VOLUMEFILES_H
