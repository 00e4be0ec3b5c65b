#include "HTResFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unicode/udata.h>
#include <unicode/uloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace {

// The layout of a bundle (format version 2 or 3), in the byte order of the machine:
//
//     FileHeader, and a comment up to headerSize | Indexes | keys | 16-bit units | resources
//
// Offsets count words of 32 bits from the start of the indexes.
struct FileHeader {
    std::uint16_t headerSize;
    std::array<std::uint8_t, 2> magic;
    UDataInfo info;
};

struct Indexes {
    std::uint32_t root;    // of the root table: type in the top 4 bits, offset in the rest
    std::uint32_t length;  // of the indexes behind this word: in the low 8 bits
    std::uint32_t keysTop;
    std::uint32_t resourcesTop;
    std::uint32_t bundleTop;
    std::uint32_t longestTable;
    std::uint32_t attributes;
    std::uint32_t unitsTop;
};

constexpr std::uint32_t kWord = 4;
constexpr std::uint32_t kIndexes = sizeof(Indexes) / kWord;

constexpr std::uint32_t kUsesPool = 4;  // attribute: keys may be those of another file

// The forms of a table: a count, the keys, the items.
struct TableForm {
    std::uint32_t type;
    std::uint32_t numberSize;  // of the count and of each key, in bytes
    std::uint32_t itemSize;
};

constexpr std::array<TableForm, 3> kTableForms = {{{2, 2, 4}, {4, 4, 4}, {5, 2, 2}}};

bool isHeader(const FileHeader &header)
{
    constexpr std::array<std::uint8_t, 2> kMagic = {0xda, 0x27};
    const UDataInfo &info = header.info;
    const int version = info.formatVersion[0];
    const bool hasIndexes = version > 1 || info.formatVersion[1] > 0;
    return header.magic == kMagic && header.headerSize >= sizeof(FileHeader) &&
           header.headerSize % kWord == 0 && info.size >= sizeof(UDataInfo) &&
           info.isBigEndian == U_IS_BIG_ENDIAN && info.charsetFamily == U_CHARSET_FAMILY &&
           info.sizeofUChar == U_SIZEOF_UCHAR &&
           std::equal(info.dataFormat, info.dataFormat + 4, "ResB") && version >= 1 &&
           version <= 3 && hasIndexes;
}

// `words` is the length of what follows the header.
bool areIndexes(const Indexes &indexes, std::uint64_t words)
{
    const std::uint32_t count = 1 + (indexes.length & 0xff);
    const std::array<std::uint64_t, 6> tops = {
        count, indexes.keysTop, indexes.unitsTop, indexes.resourcesTop, indexes.bundleTop, words};
    return count >= kIndexes && std::is_sorted(tops.begin(), tops.end());
}

template <typename Record>
bool readAt(int file, std::uint64_t offset, Record *record)
{
    return pread(file, record, sizeof(Record), static_cast<off_t>(offset)) ==
           ssize_t{sizeof(Record)};
}

// Reads the count and the first key of a table.
bool readTable(int file, std::uint64_t offset, const TableForm &form,
               std::array<std::uint32_t, 2> *numbers)
{
    if (form.numberSize == sizeof(std::uint32_t)) {
        return readAt(file, offset, numbers);
    }
    std::array<std::uint16_t, 2> narrow{};
    const bool read = readAt(file, offset, &narrow);
    *numbers = {narrow[0], narrow[1]};
    return read;
}

// True when the root is an empty table, or one inside the area for its form, with its first key
// among the keys or perhaps in another file. `start` is the offset of the indexes in the file.
bool isRoot(int file, std::uint64_t start, const Indexes &indexes)
{
    const auto *const form =
        std::find_if(kTableForms.begin(), kTableForms.end(),
                     [type = indexes.root >> 28](const TableForm &f) { return f.type == type; });
    if (form == kTableForms.end()) {
        return false;
    }
    const std::uint64_t offset = indexes.root & 0x0fffffff;
    if (offset == 0) {
        return true;  // an empty table
    }
    // The offset of a table with narrow items counts these, from keysTop.
    const bool narrow = form->itemSize < kWord;
    const std::uint64_t keysTop = std::uint64_t{indexes.keysTop} * kWord;
    const std::uint64_t at = (narrow ? keysTop : 0) + offset * form->itemSize;
    const std::uint64_t low = std::uint64_t{narrow ? indexes.keysTop : indexes.unitsTop} * kWord;
    const std::uint64_t top =
        std::uint64_t{narrow ? indexes.unitsTop : indexes.resourcesTop} * kWord;
    std::array<std::uint32_t, 2> numbers{};
    if (at < low || at >= top || !readTable(file, start + at, *form, &numbers)) {
        return false;
    }
    const auto [count, key] = numbers;
    const std::uint64_t size =
        form->numberSize * (std::uint64_t{count} + 1) + form->itemSize * std::uint64_t{count};
    return size <= top - at &&
           (count == 0 || key < keysTop || (indexes.attributes & kUsesPool) != 0);
}

bool isSoundFile(int file)
{
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        return true;  // nothing that ICU could map
    }
    FileHeader header{};
    if (!readAt(file, 0, &header) || !isHeader(header)) {
        return false;
    }
    Indexes indexes{};
    const std::uint64_t size = static_cast<std::uint64_t>(status.st_size) - header.headerSize;
    if (header.info.formatVersion[0] == 1) {
        // No part of this layout but the end of the resources is known to be there.
        std::array<std::uint32_t, 5> first{};
        return readAt(file, header.headerSize, &first) && first[4] <= size / kWord;
    }
    return readAt(file, header.headerSize, &indexes) && areIndexes(indexes, size / kWord) &&
           isRoot(file, header.headerSize, indexes);
}

bool isSound(int directory, const char *name)
{
    // Without O_NONBLOCK a FIFO would wait for its writer.
    const int file = openat(directory, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return true;
    }
    const bool sound = isSoundFile(file);
    close(file);
    return sound;
}

// Do both names begin with the same language? "-" and "_" end it.
bool isOfLanguage(std::string_view file, std::string_view locale)
{
    const std::string_view language = locale.substr(0, locale.find_first_of("-_@."));
    return file.size() > language.size() &&
           strncasecmp(file.data(), language.data(), language.size()) == 0 &&
           std::string_view("-_@.").find(file[language.size()]) != std::string_view::npos;
}

bool mayBeOpened(std::string_view file, const char *locale)
{
    return file.ends_with(".res") &&
           (file == "root.res" || file == "pool.res" || isOfLanguage(file, locale) ||
            isOfLanguage(file, uloc_getDefault()));
}

}  // namespace

bool HTResFile_allSound(const char *directory, const char *locale)
{
    DIR *const files = opendir(directory);
    if (files == nullptr) {
        return true;
    }
    bool sound = true;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): only a stream that threads share would need a lock
    while (const dirent *const entry = sound ? readdir(files) : nullptr) {
        sound = !mayBeOpened(entry->d_name, locale) || isSound(dirfd(files), entry->d_name);
    }
    closedir(files);
    return sound;
}
