#include "MakeMd5.h"

#include "RecordWriter.h"

bool makeMd5Records(const std::vector<std::string>& files, const ContentChoice& choice, const RecordNames& names,
                    const ReadingTerms& terms, NewRecords& records) {
    bool isWhole = true;
    std::uint64_t number = 0;
    for (const std::string& file : files) {
        const bool wasSeen = forChosenContents(file, choice, terms, [&](const SeenContent& seen) {
            if (seen.content.size != 0) {
                unsigned char digest[Md5::kDigestSize];
                digestOf(seen.content, digest);
                records.add(md5RecordLine(digest, static_cast<std::uint32_t>(seen.content.size),
                                          names.nameOf(file, seen.member, ++number)));
            } else if (choice.isFileOnly()) {
                terms.note(file + ": it is empty, and no record matches that");
                isWhole = false;
            }
        });
        isWhole = isWhole && wasSeen;
    }
    return isWhole;
}
