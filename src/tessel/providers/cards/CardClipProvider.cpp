#include <tessel/providers/cards/CardClipProvider.h>

#include <algorithm>
#include <vector>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/media/ImageResources.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/providers/cards/CardFieldLists.h>
#include <tessel/thumbnails/Artwork.h>
#include <tessel/thumbnails/RenderThumbnail.h>

namespace Tessel {

namespace {

constexpr int kCleanCardScore = 100;
constexpr int kCardWithExtraContentsScore = 40;
// Thumbnails are drawn no higher than this.
constexpr std::int32_t kLargestThumbnailHeight = 16;

// The request's abort as a predicate that, once it has seen the abort, keeps answering true
// (asking the request consumes its flag).
AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

bool IsEssence(const std::u16string& path) {
    return CardWalk::HasExtension(path, u".mxf") || CardWalk::HasExtension(path, u".mp4");
}

PelPixHandle RenderCameraCardPicture(std::uint32_t width, std::uint32_t height) {
    const std::optional<ImageResource> picture =
        ImageResources::FindById(Artwork::kCameraCardResourceId);
    if (!picture)
        return nullptr;
    return RenderThumbnail(std::vector<std::uint8_t>(picture->bytes.begin(), picture->bytes.end()),
                           width, height);
}

}  // namespace

namespace CardWalk {

std::u16string Leaf(const std::u16string& path) {
    return Path::GetFilePart(std::u16string_view(path));
}

std::u16string Upper(std::u16string_view text) {
    std::u16string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Platform::UpperCaseCodeUnit);
    return upper;
}

bool HasExtension(const std::u16string& path, std::u16string_view lowerExtension) {
    return Path::GetExtensionLower(std::u16string_view(path)) == lowerExtension;
}

FolderEntries ReadFolder(const std::u16string& folder, const AbortPredicate& abort) {
    FolderEntries entries;
    Directory(folder)
        .GetContainedFileAndDirectoryPaths(entries.files, entries.folders, abort)
        .Ignore();
    Path::RemoveHiddenFiles(entries.files);
    std::erase_if(entries.folders, [](const Directory& sub) {
        return Path::IsHiddenPath(std::u16string_view(sub.GetFullPath()));
    });
    return entries;
}

std::optional<FolderEntries> ReadCardRoot(DirectoryContents& contents,
                                          std::initializer_list<std::u16string_view> tops,
                                          const AbortPredicate& abort) {
    const std::vector<Directory>& folders = contents.GetDirectoryList(abort);
    const bool holdsTop = std::any_of(folders.begin(), folders.end(), [&](const Directory& folder) {
        const std::u16string leaf = Upper(Leaf(folder.GetFullPath()));
        return std::any_of(tops.begin(), tops.end(),
                           [&](std::u16string_view top) { return leaf == Upper(top); });
    });
    if (!holdsTop)
        return std::nullopt;
    FolderEntries entries{contents.GetFileList(abort), folders};
    std::erase_if(entries.folders, [](const Directory& sub) {
        return Path::IsHiddenPath(std::u16string_view(sub.GetFullPath()));
    });
    return entries;
}

std::vector<CardClipProvider::Entry> InWalkOrder(const FolderEntries& entries) {
    std::vector<CardClipProvider::Entry> all;
    for (const std::u16string& file : entries.files)
        all.push_back({file, false});
    for (const Directory& folder : entries.folders)
        all.push_back({folder.GetFullPath(), true});
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
        return Upper(Leaf(a.path)) < Upper(Leaf(b.path));
    });
    return all;
}

std::u16string FindFolder(const FolderEntries& entries, std::u16string_view name) {
    for (const Directory& folder : entries.folders) {
        if (Upper(Leaf(folder.GetFullPath())) == Upper(name))
            return folder.GetFullPath();
    }
    return {};
}

bool InLayout(std::span<const LayoutName> table, const std::u16string& leaf) {
    return std::any_of(table.begin(), table.end(),
                       [&](const LayoutName& row) { return row.name == leaf; });
}

bool TestLayout(const FolderEntries& entries, std::span<const LayoutName> table, bool& extra) {
    unsigned required = 0, seen = 0;
    for (const LayoutName& row : table)
        required |= row.bit == kTolerated ? 0u : 1u << row.bit;
    for (const CardClipProvider::Entry& entry : InWalkOrder(entries)) {
        const std::u16string leaf = Leaf(entry.path);
        const auto row = std::find_if(table.begin(), table.end(),
                                      [&](const LayoutName& r) { return r.name == leaf; });
        if (row == table.end())
            extra = true;
        else if (row->bit != kTolerated)
            seen |= 1u << row->bit;
    }
    return seen == required;
}

void AddOthers(const FolderEntries& entries, std::vector<CardClipProvider::Entry>& others,
               const std::function<bool(const std::u16string& leaf)>& isStructure) {
    for (CardClipProvider::Entry& entry : InWalkOrder(entries)) {
        if (!isStructure(Leaf(entry.path)))
            others.push_back(std::move(entry));
    }
}

}  // namespace CardWalk

int CardClipProvider::CanProvideFor(const std::string& path, const any_regular_t&,
                                    DirectoryContents& contents, const AbortPredicate& abort) {
    if (path.empty() || !contents.PathIsValid() || !contents.IsDirectory())
        return 0;
    bool extra = false;
    if (!CardTest(contents, extra, abort))
        return 0;
    return extra ? kCardWithExtraContentsScore : kCleanCardScore;
}

SDKContentMap CardClipProvider::GetContent(const std::string& path, const any_regular_t&,
                                           const SDKFieldSet& fields, ProviderRequest* request) {
    if (path.empty())
        return {};
    const AbortPredicate aborted = StickyAbort(request);
    const Listing listing = ListCard(Path::StripTrailingSeparator(Utf8ToUtf16(path)), aborted);
    if (aborted())
        return {};

    const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
    XMPValueReader reader(metadataFields);
    SDKContentMap content;
    for (const Clip& clip : listing.clips) {
        if (aborted())
            return {};
        SDKPropertyMap& record = content[Utf16ToUtf8(clip.itemPath)];
        if (fields.count(kSDKNameField))
            record[kSDKNameField] = clip.name;
        if (fields.count(kSDKPathField))
            record[kSDKPathField] = clip.itemPath;
        any_regular_t::array_t files{any_regular_t(clip.itemPath)};
        for (const std::u16string& file : clip.files) {
            if (file != clip.itemPath)
                files.emplace_back(file);
        }
        record[kSDKExtraPathField] = any_regular_t(std::move(files));
        if (metadataFields.none())
            continue;
        for (auto& [name, value] : reader.Read(Utf16ToUtf8(clip.itemPath), std::string()))
            record[name] = std::move(value);
        FillClipValues(record, fields, clip);
    }
    for (const Entry& entry : listing.others) {
        CardFieldLists::FillEntryRecord(content[Utf16ToUtf8(entry.path)], entry.path, entry.folder,
                                        fields);
    }
    return aborted() ? SDKContentMap() : content;
}

std::uint32_t CardClipProvider::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    // Compared as a signed number: a request that reads as negative is passed through.
    return static_cast<std::int32_t>(requestedHeight) > kLargestThumbnailHeight
               ? static_cast<std::uint32_t>(kLargestThumbnailHeight)
               : requestedHeight;
}

PelPixHandle CardClipProvider::GetThumbnail(const std::string& itemPath, const std::string&,
                                            const any_regular_t&, std::uint32_t width,
                                            std::uint32_t height, ProviderRequest* request) {
    if (itemPath.empty() || IsRequestAborted(request))
        return nullptr;
    const std::uint32_t thumbnailHeight = GetMaximumThumbnailHeight(height);
    const std::u16string item = Utf8ToUtf16(itemPath);
    if (!IsEssence(item))
        return RenderThumbnail(itemPath, width, thumbnailHeight);  // a file beside the clips
    if (const std::u16string picture = ClipPicture(item); !picture.empty()) {
        if (PelPixHandle thumbnail = RenderThumbnail(Utf16ToUtf8(picture), width, thumbnailHeight))
            return thumbnail;
    }
    return RenderCameraCardPicture(width, thumbnailHeight);
}

std::u16string CardClipProvider::ClipPicture(const std::u16string&) {
    return {};
}

bool CardClipProvider::ShouldCheckFilter() {
    return false;
}

bool CardClipProvider::IsSelectable() {
    return true;
}

}  // namespace Tessel
