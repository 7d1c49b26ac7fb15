#include <tessel/foundation/Directory.h>

#include <algorithm>
#include <cstddef>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel {

namespace {

// A name with its upper-cased form computed once, so that sorting a large directory
// upper-cases each name once rather than at every comparison. The key holds the upper-cased
// code units as big-endian byte pairs: bytes compare (memcmp) in the order of the code units,
// several at a time, which is what a sort of many names with a long common prefix
// ("frame_0000001.dpx" ...) spends its time on.
struct SortableName {
    std::string key;
    std::u16string name;
    std::size_t position = 0;
};

SortableName MakeSortable(std::u16string name, std::size_t position = 0) {
    SortableName sortable;
    sortable.key.resize(name.size() * 2);
    char* out = sortable.key.data();
    for (const char16_t unit : name) {
        const char16_t upper = unit < 0x80 ? (unit >= u'a' && unit <= u'z'
                                                  ? static_cast<char16_t>(unit - (u'a' - u'A'))
                                                  : unit)
                                           : UpperCaseCodeUnit(unit);
        *out++ = static_cast<char>(upper >> 8);
        *out++ = static_cast<char>(upper & 0xFF);
    }
    sortable.name = std::move(name);
    sortable.position = position;
    return sortable;
}

// NTFS order; names that differ only in case (possible on a case-sensitive disk) follow
// their code units, so the order never depends on the order of the read.
bool NtfsLess(const SortableName& a, const SortableName& b) {
    if (const int byKey = a.key.compare(b.key); byKey != 0)
        return byKey < 0;
    return a.name < b.name;
}

void SortSortable(std::vector<SortableName>& names) {
    std::sort(names.begin(), names.end(), NtfsLess);
}

// One read of PATH. Files go to FILES and sub-directories to DIRECTORIES when those are
// given; both come out in NTFS order.
Status ReadLevel(const std::u16string& path, std::vector<std::u16string>* files,
                 std::vector<Directory>* directories, const AbortPredicate& abort, int limit) {
    std::vector<Platform::DirectoryEntry> entries;
    // LIMIT counts entries as the system returns them, before the sort, so a capped walk
    // of a large directory stops reading early rather than reading everything to sort it.
    std::size_t read = 0;
    const auto stop = [&] {
        if (limit >= 0 && read >= static_cast<std::size_t>(limit))
            return true;
        if (abort && abort())
            return true;
        ++read;
        return false;
    };
    if (Status read = Platform::ReadDirectory(Path::ToNative(path), entries, stop); !read.IsOk())
        return read;

    std::vector<SortableName> fileNames;
    std::vector<SortableName> directoryNames;
    for (Platform::DirectoryEntry& entry : entries) {
        if (entry.kind == Platform::EntryKind::File && files != nullptr) {
            fileNames.push_back(MakeSortable(Path::FromNative(entry.name)));
        } else if (entry.kind == Platform::EntryKind::Directory && directories != nullptr) {
            directoryNames.push_back(MakeSortable(Path::FromNative(entry.name)));
        }
    }
    // Leaf names hold no separator, so every path is this prefix and the leaf: the folder's
    // part of Path::Join is worked out once, not once per entry.
    const std::u16string prefix = Path::Join(path, std::u16string_view());
    if (files != nullptr) {
        SortSortable(fileNames);
        files->reserve(files->size() + fileNames.size());
        for (const SortableName& name : fileNames) {
            std::u16string& file = files->emplace_back();
            file.reserve(prefix.size() + name.name.size());
            file.append(prefix).append(name.name);
        }
    }
    if (directories != nullptr) {
        SortSortable(directoryNames);
        directories->reserve(directories->size() + directoryNames.size());
        for (const SortableName& name : directoryNames)
            directories->emplace_back(prefix + name.name);
    }
    return Status::Ok();
}

}  // namespace

Directory::Directory(std::u16string_view path) : mPath(Path::StripTrailingSeparator(path)) {}

Directory Directory::GetParent() const {
    if (mPath.empty() || Path::IsRoot(mPath))
        return {};
    const std::u16string parent = Path::GetParent(mPath);
    return parent.empty() ? Directory() : Directory(parent);
}

bool Directory::Exists() const {
    return !mPath.empty() && Path::DirectoryExists(mPath);
}

std::vector<Directory> Directory::GetSubDirectories(const AbortPredicate& abort) const {
    std::vector<Directory> directories;
    ReadLevel(mPath, nullptr, &directories, abort, -1).Ignore();  // unreadable: none
    return directories;
}

Status Directory::GetContainedFileAndDirectoryPaths(std::vector<std::u16string>& files,
                                                    std::vector<Directory>& directories,
                                                    const AbortPredicate& abort, int limit) const {
    files.clear();
    directories.clear();
    return ReadLevel(mPath, &files, &directories, abort, limit);
}

void SortNtfsOrder(std::vector<std::u16string>& names) {
    std::vector<SortableName> sortable;
    sortable.reserve(names.size());
    for (std::u16string& name : names)
        sortable.push_back(MakeSortable(std::move(name)));
    SortSortable(sortable);
    for (std::size_t i = 0; i < names.size(); ++i)
        names[i] = std::move(sortable[i].name);
}

std::vector<std::size_t> NtfsOrderOf(const std::vector<std::u16string>& names) {
    std::vector<SortableName> sortable;
    sortable.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        sortable.push_back(MakeSortable(names[i], i));
    SortSortable(sortable);
    std::vector<std::size_t> order;
    order.reserve(sortable.size());
    for (const SortableName& name : sortable)
        order.push_back(name.position);
    return order;
}

}  // namespace Tessel
