#include <tessel/providers/cards/ProviderFileSequenceBase.h>

#include <algorithm>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/providers/cards/CardFieldLists.h>
#include <tessel/providers/cards/CardFileNames.h>

namespace Tessel {

namespace N = CardFileNames;

namespace {

constexpr int kSequenceScore = 100;
constexpr int kSequenceWithExtraContentsScore = 40;
constexpr std::uint32_t kLargestThumbnailHeight = 16;
constexpr std::u16string_view kSidecarExtension = u".xmp";
// How many names are examined between two questions to the abort predicate.
constexpr std::size_t kNamesBetweenAbortTests = 4096;

// The files of FOLDER in the order the system reads them: full paths, hidden files (by the
// attributes the read gives, without asking again for each file) and anything but regular
// files left out. One read and no sort: the listing needs one frame and a few names.
std::vector<std::u16string> ReadFolderFiles(const std::u16string& folder,
                                            const AbortPredicate& abort) {
    std::vector<Platform::DirectoryEntry> entries;
    const std::u16string native = Path::StripTrailingSeparator(std::u16string_view(folder));
    if (!Platform::ReadDirectory(Path::ToNative(native), entries, abort).IsOk())
        return {};
    const std::u16string prefix = Path::AddTrailingSeparator(std::u16string_view(native));
    std::vector<std::u16string> files;
    files.reserve(entries.size());
    for (const Platform::DirectoryEntry& entry : entries) {
        if (entry.kind == Platform::EntryKind::File && !entry.hidden)
            files.emplace_back(prefix).append(Path::FromNative(entry.name));
    }
    return files;
}

AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

}  // namespace

bool ProviderFileSequenceBase::IsSequenceFolder(const std::u16string&, bool& extraContents,
                                                DirectoryContents& contents,
                                                const AbortPredicate& abort) {
    extraContents = false;
    // The contents' own directory test is the folder's existence test.
    if (!contents.IsDirectory())
        return false;
    const std::vector<std::u16string>& files = contents.GetFileList(abort);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (i % kNamesBetweenAbortTests == kNamesBetweenAbortTests - 1 && abort())
            return false;
        if (IsFrameFile(N::LeafOf(files[i])))
            return true;
    }
    return false;
}

void ProviderFileSequenceBase::GetFirstFrameFile(const std::vector<std::u16string>& files,
                                                 std::vector<std::u16string>& paths,
                                                 std::vector<std::u16string>& names) {
    // The first in NTFS order, the order of a walk, found without sorting the rest. Names
    // that differ only in letter case follow their code units, as in a walk.
    const std::u16string* first = nullptr;
    std::u16string_view firstName;
    for (const std::u16string& file : files) {
        const std::u16string_view name = N::LeafOf(file);
        if (!IsFrameFile(name))
            continue;
        const int order = first ? CompareNtfsOrder(name, firstName) : -1;
        if (order < 0 || (order == 0 && name < firstName)) {
            first = &file;
            firstName = name;
        }
    }
    if (first) {
        paths.push_back(*first);
        names.emplace_back(firstName);
    }
}

int ProviderFileSequenceBase::CanProvideFor(const std::string& path, const any_regular_t&,
                                            DirectoryContents& contents,
                                            const AbortPredicate& abort) {
    if (path.empty() || !contents.PathIsValid() || !contents.IsDirectory())
        return 0;
    bool extraContents = false;
    if (!IsSequenceFolder(contents.GetPath(), extraContents, contents, abort))
        return 0;
    return extraContents ? kSequenceWithExtraContentsScore : kSequenceScore;
}

SDKContentMap ProviderFileSequenceBase::GetContent(const std::string& path, const any_regular_t&,
                                                   const SDKFieldSet& fields,
                                                   ProviderRequest* request) {
    if (path.empty())
        return {};
    const AbortPredicate aborted = StickyAbort(request);
    const std::vector<std::u16string> files = ReadFolderFiles(Utf8ToUtf16(path), aborted);
    std::vector<std::u16string> paths;
    std::vector<std::u16string> names;
    GetFirstFrameFile(files, paths, names);

    const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
    SDKContentMap content;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (aborted())
            return {};
        const std::string key = Utf16ToUtf8(paths[i]);
        SDKPropertyMap record;
        if (metadataFields.any()) {
            // The sidecar as the listing found it, whatever its letter case ("0001.XMP").
            const std::vector<std::u16string> sidecars =
                FindSidecars(paths[i], files, {kSidecarExtension});
            record = MakeValue(key, sidecars.empty() ? std::string() : Utf16ToUtf8(sidecars[0]),
                               metadataFields);
        }
        record[kSDKNameField] = Path::LeafDisplayString(names[i]);
        record[kSDKPathField] = paths[i];
        AddItemFields(record, paths[i], files, fields, metadataFields);
        content[key] = std::move(record);
    }
    return aborted() ? SDKContentMap() : content;
}

SDKFieldSet ProviderFileSequenceBase::GetFieldList() {
    return CardFieldLists::FieldListWithRelatedFiles();
}

std::vector<std::string> ProviderFileSequenceBase::GetDefaultFieldList() {
    return CardFieldLists::DefaultFieldList();
}

std::map<std::u16string, std::u16string> ProviderFileSequenceBase::GetFieldLabelList() {
    return CardFieldLists::FieldLabelListWithRelatedFiles();
}

std::uint32_t ProviderFileSequenceBase::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return std::min(requestedHeight, kLargestThumbnailHeight);
}

bool ProviderFileSequenceBase::ShouldCheckFilter() {
    return false;
}

bool ProviderFileSequenceBase::IsSelectable() {
    return true;
}

std::vector<std::u16string> ProviderFileSequenceBase::FindSidecars(
    const std::u16string& itemPath, const std::vector<std::u16string>& files,
    std::initializer_list<std::u16string_view> extensions) {
    const std::u16string_view title = N::TitleOf(N::LeafOf(itemPath));
    std::vector<std::u16string> sidecars;
    for (const std::u16string& file : files) {
        const std::u16string_view name = N::LeafOf(file);
        if (N::TitleOf(name) != title || file == itemPath)
            continue;
        if (std::any_of(extensions.begin(), extensions.end(),
                        [&](std::u16string_view e) { return N::HasExtension(name, e); }))
            sidecars.push_back(file);
    }
    SortNtfsOrder(sidecars);
    return sidecars;
}

void ProviderFileSequenceBase::SetIfAbsent(SDKPropertyMap& record, const SDKFieldSet& fields,
                                           const char* field, const std::string& value) {
    if (!value.empty() && fields.count(field) && !record.count(field))
        record[field] = Utf8ToUtf16(value);
}

void ProviderFileSequenceBase::SetExtraPath(SDKPropertyMap& record, const SDKFieldSet& fields,
                                            const std::vector<std::u16string>& paths) {
    if (!fields.count(kSDKExtraPathField))
        return;
    any_regular_t::array_t list;
    list.reserve(paths.size());
    for (const std::u16string& path : paths)
        list.emplace_back(path);
    record[kSDKExtraPathField] = any_regular_t(std::move(list));
}

}  // namespace Tessel
