#include <tessel/providers/cards/ProviderRED.h>

#include <algorithm>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/providers/cards/CardFieldLists.h>
#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/thumbnails/Resources.h>

namespace Tessel {

namespace N = CardFileNames;

namespace {

constexpr int kClipFolderScore = 100;
constexpr std::uint32_t kLargestThumbnailHeight = 16;
constexpr std::u16string_view kClipFolderExtension = u".rdc";
constexpr std::u16string_view kSegmentExtension = u".r3d";
constexpr const char* kPicture = "REDVideoThumb.png";

// One clip: its first segment, and the files of its folder.
struct Clip {
    std::u16string segment;
    std::vector<std::u16string> files;
};

std::vector<std::u16string> ReadFiles(const Directory& folder, const AbortPredicate& abort) {
    std::vector<std::u16string> files;
    std::vector<Directory> folders;
    folder.GetContainedFileAndDirectoryPaths(files, folders, abort).Ignore();
    Path::RemoveHiddenFiles(files);
    return files;
}

const std::u16string* FirstSegment(const std::vector<std::u16string>& files) {
    const auto found = std::find_if(files.begin(), files.end(), [](const std::u16string& file) {
        return N::HasExtension(N::LeafOf(file), kSegmentExtension);
    });
    return found == files.end() ? nullptr : &*found;
}

AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

// The files of CLIP's folder that belong to it, its segment left out.
any_regular_t RelatedFiles(const Clip& clip) {
    const std::u16string folder = Path::GetParent(clip.segment);
    const std::u16string_view clipTitle = N::TitleOf(N::LeafOf(folder));
    any_regular_t::array_t related;
    for (const std::u16string& file : clip.files) {
        if (file != clip.segment && N::TitleOf(N::LeafOf(file)).starts_with(clipTitle))
            related.emplace_back(file);
    }
    return any_regular_t(std::move(related));
}

}  // namespace

int ProviderRED::CanProvideFor(const std::string& path, const any_regular_t&,
                               DirectoryContents& contents, const AbortPredicate& abort) {
    if (path.empty() || !contents.PathIsValid() || !contents.IsDirectory())
        return 0;
    for (const Directory& folder : contents.GetDirectoryList(abort)) {
        if (abort())
            return 0;
        if (N::HasExtension(N::LeafOf(folder.GetFullPath()), kClipFolderExtension) &&
            FirstSegment(ReadFiles(folder, abort)))
            return kClipFolderScore;
    }
    return 0;
}

SDKContentMap ProviderRED::GetContent(const std::string& path, const any_regular_t&,
                                      const SDKFieldSet& fields, ProviderRequest* request) {
    if (path.empty())
        return {};
    const AbortPredicate aborted = StickyAbort(request);
    std::vector<std::u16string> reelFiles;
    std::vector<Directory> folders;
    Directory(Utf8ToUtf16(path))
        .GetContainedFileAndDirectoryPaths(reelFiles, folders, aborted)
        .Ignore();
    std::vector<Clip> clips;
    for (const Directory& folder : folders) {
        if (aborted())
            return {};
        Clip clip;
        clip.files = ReadFiles(folder, aborted);
        if (const std::u16string* segment = FirstSegment(clip.files)) {
            clip.segment = *segment;
            clips.push_back(std::move(clip));
        }
    }

    const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
    SDKContentMap content;
    for (const Clip& clip : clips) {
        if (aborted())
            return {};
        const std::string key = Utf16ToUtf8(clip.segment);
        SDKPropertyMap record =
            metadataFields.any() ? MakeValue(key, metadataFields) : SDKPropertyMap();
        record[kSDKNameField] = Path::LeafDisplayString(clip.segment);
        record[kSDKPathField] = clip.segment;
        if (fields.count(kSDKExtraPathField))
            record[kSDKExtraPathField] = RelatedFiles(clip);
        content[key] = std::move(record);
    }
    return aborted() ? SDKContentMap() : content;
}

SDKFieldSet ProviderRED::GetFieldList() {
    return CardFieldLists::FieldListWithRelatedFiles();
}

std::vector<std::string> ProviderRED::GetDefaultFieldList() {
    return CardFieldLists::DefaultFieldList();
}

std::map<std::u16string, std::u16string> ProviderRED::GetFieldLabelList() {
    return CardFieldLists::FieldLabelListWithRelatedFiles();
}

std::string ProviderRED::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderRED";
}

std::string ProviderRED::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/REDUIString=RED");
}

std::uint32_t ProviderRED::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return std::min(requestedHeight, kLargestThumbnailHeight);
}

PelPixHandle ProviderRED::GetThumbnail(const std::string&, const std::string&, const any_regular_t&,
                                       std::uint32_t width, std::uint32_t height,
                                       ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderResourcePicture(kPicture, width, GetMaximumThumbnailHeight(height));
}

bool ProviderRED::ShouldCheckFilter() {
    return false;
}

bool ProviderRED::IsSelectable() {
    return true;
}

}  // namespace Tessel
