#include "ArchiveCorpus.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "Process.h"
#include "support/RarBuilder.h"
#include "utils/Crc.h"

namespace fs = std::filesystem;

namespace corpus {

namespace {

std::string contentOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::string content(std::istreambuf_iterator<char>(in), {});
    if (!in) throw std::runtime_error("cannot read " + path.string());
    return content;
}

std::vector<fs::path> sorted(const fs::path& folder) {
    std::vector<fs::path> paths;
    constexpr auto kOptions = fs::directory_options::skip_permission_denied;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder, kOptions)) {
        if (!entry.is_symlink() && entry.is_regular_file()) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

// Regular files below the folders, those of each in the order of their names.
std::vector<fs::path> filesBelow(const std::vector<fs::path>& folders, std::uintmax_t least, std::uintmax_t most) {
    std::vector<fs::path> chosen;
    for (const fs::path& folder : folders) {
        for (const fs::path& path : sorted(folder)) {
            const std::uintmax_t size = fs::file_size(path);
            if (least <= size && size <= most) chosen.push_back(path);
        }
    }
    return chosen;
}

class MemberWriter {
public:
    explicit MemberWriter(const fs::path& folder) : _members{folder} {}

    void write(const std::string& content) {
        writeFile(_members.folder / std::to_string(100'000 + _members.count), content);
        ++_members.count;
        _members.bytes += content.size();
    }

    const Members& members() const { return _members; }

private:
    Members _members;
};

void inFolder(const Members& members, const std::string& command, const fs::path& archive) {
    secondsToRun({"sh", "-c", "cd \"$0\" && " + command, members.folder, archive});
}

}  // namespace

std::string Members::concatenated() const {
    std::string all;
    all.reserve(bytes);
    for (const fs::path& path : sorted(folder)) all += contentOf(path);
    return all;
}

std::string Members::last() const { return contentOf(sorted(folder).back()); }

Members chooseMembers(const fs::path& folder, unsigned count, std::uintmax_t largest) {
    const fs::path programs = "/usr/bin", compiler = "/usr/lib/gcc", headers = "/usr/include";
    std::vector<fs::path> large = filesBelow({programs, compiler}, 512 << 10, largest);
    // Where few programs are installed, the beginnings of those that are larger, such as the compiler's.
    for (const fs::path& path : filesBelow({programs, compiler}, largest + 1, UINTMAX_MAX)) large.push_back(path);
    const std::vector<fs::path> scripts = filesBelow({programs, compiler}, 4 << 10, 200 << 10);
    const std::vector<fs::path> texts = filesBelow({headers}, 4 << 10, 200 << 10);
    if (large.size() < count / 5 || std::min(scripts.size(), texts.size()) < count / 5 * 2) {
        throw std::runtime_error("too few files in /usr/bin, /usr/lib/gcc and /usr/include");
    }
    MemberWriter writer(folder);
    for (unsigned i = 0; i < count / 5; ++i) {
        for (const fs::path& path : {large[i], scripts[2 * i], scripts[2 * i + 1], texts[2 * i], texts[2 * i + 1]}) {
            writer.write(contentOf(path).substr(0, largest));
        }
    }
    return writer.members();
}

Members cutEqually(const Members& members, const fs::path& folder) {
    const std::string all = members.concatenated();
    const std::size_t size = all.size() / members.count;
    MemberWriter writer(folder);
    for (std::size_t i = 0; i < members.count; ++i) writer.write(all.substr(i * size, size));
    return writer.members();
}

void writeZip(const fs::path& path, const Members& members, const std::string& options) {
    inFolder(members, "zip -q -X " + options + " \"$1\" *", path);
}

void writeStreamedZip(const fs::path& path, const Members& members) {
    inFolder(members, "zip -q -X - * | cat >\"$1\"", path);
}

void writeRar(const fs::path& path, const Members& members, Packer pack) {
    using ZOV_SPACE::RarBuilder;
    constexpr unsigned kWindow4M = 0xC0;  // In the flags.
    std::ofstream out(path, std::ios::binary);
    out << RarBuilder::marker() << RarBuilder::archive();
    for (const fs::path& member : sorted(members.folder)) {
        const std::string content = contentOf(member);
        ZOV_SPACE::Iso3309Crc crc;
        crc.add(content.data(), static_cast<unsigned>(content.size()));
        ZOV_SPACE::RarFile entry;
        entry.name = member.filename();
        entry.data = pack(content);
        entry.flags = kWindow4M;
        entry.method = 0x33;
        entry.unpVer = 29;
        entry.fileCrc = crc.crc();
        entry.unpackedSize = static_cast<std::uint32_t>(content.size());
        out << RarBuilder::file(entry);
    }
    out << RarBuilder::end();
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace corpus
