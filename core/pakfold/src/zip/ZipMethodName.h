// ZipMethodName.h: what the compression methods of ZIP are called (APPNOTE.TXT, 4.4.5), decoded here or not.
#ifndef PAKFOLD_ZIP_ZIPMETHODNAME_H
#define PAKFOLD_ZIP_ZIPMETHODNAME_H

#include <algorithm>
#include <iterator>

namespace ZOV_SPACE {

// A static word; empty for numbers that stand for nothing.
inline const char* zipMethodName(unsigned number) {
    struct Name {
        unsigned number;
        const char* text;
    };
    static constexpr Name kNames[] = {
        {0, "stored"},  {1, "shrink"},    {2, "reduce"}, {3, "reduce"}, {4, "reduce"},   {5, "reduce"}, {6, "implode"},
        {8, "deflate"}, {9, "deflate64"}, {12, "bzip2"}, {14, "lzma"},  {18, "terse"},   {19, "lz77"},  {20, "zstd"},
        {93, "zstd"},   {94, "mp3"},      {95, "xz"},    {96, "jpeg"},  {97, "wavpack"}, {98, "ppmd"},  {99, "aes"}};
    const auto* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                           [number](const Name& name) { return name.number == number; });
    return found == std::end(kNames) ? "" : found->text;
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPMETHODNAME_H
