#include "FilesAhead.h"

#include "Md5Lanes.h"

void digestThose(std::span<ContentAhead> contents, const BmList& signatures) {
    if (signatures.count() == 0) return;
    std::vector<Md5Content> wanted;
    std::vector<ContentAhead*> owners;
    for (ContentAhead& content : contents) {
        if (!signatures.verifyFileSize(static_cast<std::uint32_t>(content.bytes.size()))) continue;
        wanted.push_back({content.bytes});
        owners.push_back(&content);
    }
    digestTogether(wanted);
    for (std::size_t i = 0; i < owners.size(); ++i) owners[i]->digest = wanted[i].digest;
}

const ContentAhead* FilesAhead::at(std::size_t index) {
    if (index < _first || index - _first >= _byPath.size()) readFrom(index);
    return _byPath[index - _first];
}

void FilesAhead::readFrom(std::size_t index) {
    if (!_files) {
        _room = std::make_unique_for_overwrite<char[]>(SmallFiles::kMostBytes);
        _files.emplace(std::span(_room.get(), SmallFiles::kMostBytes));
    }
    _byPath.clear();
    _contents.clear();
    _first = index;
    _files->read(_paths.subspan(index));
    _contents.reserve(_files->contents().size());
    for (const auto& bytes : _files->contents()) {
        _byPath.push_back(bytes ? &_contents.emplace_back(ContentAhead{*bytes}) : nullptr);
    }
    digestThose(_contents, _digests);
}
