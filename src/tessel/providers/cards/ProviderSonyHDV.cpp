#include <tessel/providers/cards/ProviderSonyHDV.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>

#include <fmt/format.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/providers/cards/CardFieldLists.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/thumbnails/FileIconThumbnail.h>
#include <tessel/thumbnails/RenderThumbnail.h>

namespace Tessel {

using CardPathUtils::JoinPath;

namespace {

constexpr int kCleanCardScore = 100;
constexpr int kCardWithExtraContentsScore = 40;
constexpr std::uint32_t kLargestIconSize = 256;

constexpr std::u16string_view kVideoFolder = u"VIDEO";
constexpr std::u16string_view kRecordingFolder = u"HVR";
constexpr std::u16string_view kTracksFile = u"TRACKS.DAT";
// '#' stands for one decimal digit; every other character is itself.
constexpr std::u16string_view kNamePattern = u"##_####_####-##-##_######.";
constexpr std::size_t kStemLength = kNamePattern.size() - 1;
constexpr std::size_t kShortestNameLength = kNamePattern.size() + 1;
// The extensions in the order they are compared: recordings first, then the sidecars.
constexpr std::array<std::u16string_view, 3> kRecordingExtensions = {u"M2T", u"AVI", u"DV"};
constexpr std::array<std::u16string_view, 2> kSidecarExtensions = {u"IDX", u"XMP"};
// The suffix that numbers a recording's parts.
constexpr const char* kPartSuffixFormat = "-{:02d}";
constexpr int kLastPart = 99;

std::u16string Leaf(const std::u16string& path) {
    return Path::GetFilePart(std::u16string_view(path));
}

std::u16string Upper(std::u16string_view text) {
    std::u16string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Platform::UpperCaseCodeUnit);
    return upper;
}

bool IsDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// The sub-folder of FOLDERS named NAME, found as an existence test finds it, any letter case.
std::optional<std::u16string> FindFolder(const std::vector<Directory>& folders,
                                         std::u16string_view name) {
    for (const Directory& folder : folders) {
        if (Upper(Leaf(folder.GetFullPath())) == name)
            return folder.GetFullPath();
    }
    return std::nullopt;
}

// The recording folder under a card root whose sub-folders are FOLDERS, if it has one.
std::optional<std::u16string> FindRecordingFolder(const std::vector<Directory>& folders) {
    const std::optional<std::u16string> video = FindFolder(folders, kVideoFolder);
    if (!video)
        return std::nullopt;
    const std::optional<std::u16string> name = Path::FindExistingName(*video, kRecordingFolder);
    if (!name)
        return std::nullopt;
    std::u16string folder = JoinPath(*video, *name);
    if (!Path::DirectoryExists(std::u16string_view(folder)))
        return std::nullopt;
    return folder;
}

struct FolderEntries {
    std::vector<std::u16string> files;
    std::vector<Directory> folders;
};

FolderEntries ReadFolder(const std::u16string& folder, const AbortPredicate& abort) {
    FolderEntries entries;
    Directory(folder)
        .GetContainedFileAndDirectoryPaths(entries.files, entries.folders, abort)
        .Ignore();
    Path::RemoveHiddenFiles(entries.files);
    return entries;
}

// One recording of the listing and the files that go with it.
struct Recording {
    std::u16string stem;
    std::u16string file;                // the recording file
    std::vector<std::u16string> files;  // the recording file first, then the rest, in order
};

// An entry listed as itself.
struct OtherEntry {
    std::u16string path;
    bool folder = false;
};

AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

// Folds the files of the recording folder into recordings; what belongs to none is OTHERS.
std::vector<Recording> FoldRecordings(const std::vector<std::u16string>& files,
                                      std::vector<OtherEntry>& others) {
    std::map<std::u16string, const std::u16string*> byName;  // name -> path
    std::optional<std::u16string> tracks;
    for (const std::u16string& file : files) {
        byName.emplace(Leaf(file), &file);
        if (Upper(Leaf(file)) == kTracksFile)
            tracks = file;
    }
    std::set<std::u16string> used;
    const auto take = [&](const std::u16string& name, std::vector<std::u16string>& into) {
        const auto found = byName.find(name);
        if (found == byName.end() || used.count(name))
            return false;
        used.insert(name);
        into.push_back(*found->second);
        return true;
    };
    // A file set: a name stem's recording file and its sidecars.
    const auto takeSet = [&](const std::u16string& stem, std::vector<std::u16string>& into) {
        bool recording = false;
        for (std::u16string_view extension : kRecordingExtensions)
            recording = take(stem + u'.' + std::u16string(extension), into) || recording;
        if (recording) {
            for (std::u16string_view extension : kSidecarExtensions)
                take(stem + u'.' + std::u16string(extension), into);
        }
        return recording;
    };
    std::vector<Recording> recordings;
    for (const std::u16string& file : files) {
        const std::u16string name = Leaf(file);
        if (used.count(name) || !IsSonyHDVRecordingName(name, false))
            continue;
        Recording& recording = recordings.emplace_back();
        recording.stem = name.substr(0, kStemLength);
        takeSet(recording.stem, recording.files);
        recording.file = recording.files.front();
        for (int part = 1; part <= kLastPart; ++part) {
            const std::u16string partStem =
                recording.stem + Utf8ToUtf16(fmt::format(kPartSuffixFormat, part));
            if (!takeSet(partStem, recording.files))
                break;
        }
        if (tracks)
            recording.files.push_back(*tracks);
    }
    for (const std::u16string& file : files) {
        const std::u16string name = Leaf(file);
        if (!used.count(name) && !(tracks && file == *tracks && !recordings.empty()))
            others.push_back({file, false});
    }
    return recordings;
}

void AddOthers(const FolderEntries& entries, const std::u16string& structure,
               std::vector<OtherEntry>& others) {
    for (const Directory& folder : entries.folders) {
        const std::u16string& path = folder.GetFullPath();
        if (path != structure && !Leaf(path).starts_with(u'.'))
            others.push_back({path, true});
    }
    for (const std::u16string& file : entries.files)
        others.push_back({file, false});
}

}  // namespace

bool IsSonyHDVRecordingName(std::u16string_view name, bool sidecarsAccepted) {
    if (name.size() < kShortestNameLength)
        return false;
    for (std::size_t i = 0; i < kNamePattern.size(); ++i) {
        const bool matches =
            kNamePattern[i] == u'#' ? IsDigit(name[i]) : name[i] == kNamePattern[i];
        if (!matches)
            return false;
    }
    const std::u16string_view extension = name.substr(kNamePattern.size());
    const auto listed = [&](const auto& extensions) {
        return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
    };
    return listed(kRecordingExtensions) || (sidecarsAccepted && listed(kSidecarExtensions));
}

int ProviderSonyHDV::CanProvideFor(const std::string& path, const any_regular_t&,
                                   DirectoryContents& contents, const AbortPredicate& abort) {
    if (path.empty() || !contents.PathIsValid())
        return 0;
    if (!contents.IsDirectory())
        return 0;
    const std::optional<std::u16string> folder =
        FindRecordingFolder(contents.GetDirectoryList(abort));
    if (!folder)
        return 0;
    const FolderEntries entries = ReadFolder(*folder, abort);
    const std::size_t matches = std::count_if(
        entries.files.begin(), entries.files.end(),
        [](const std::u16string& file) { return IsSonyHDVRecordingName(Leaf(file), true); });
    return matches == entries.files.size() ? kCleanCardScore : kCardWithExtraContentsScore;
}

SDKContentMap ProviderSonyHDV::GetContent(const std::string& path, const any_regular_t&,
                                          const SDKFieldSet& fields, ProviderRequest* request) {
    if (path.empty())
        return {};
    const std::u16string root = Path::StripTrailingSeparator(Utf8ToUtf16(path));
    const AbortPredicate aborted = StickyAbort(request);
    const FolderEntries rootEntries = ReadFolder(root, aborted);
    const std::optional<std::u16string> video = FindFolder(rootEntries.folders, kVideoFolder);
    const std::optional<std::u16string> folder = FindRecordingFolder(rootEntries.folders);
    std::vector<OtherEntry> others;
    AddOthers(rootEntries, video.value_or(std::u16string()), others);
    std::vector<Recording> recordings;
    if (video)
        AddOthers(ReadFolder(*video, aborted), folder.value_or(std::u16string()), others);
    if (folder) {
        const FolderEntries entries = ReadFolder(*folder, aborted);
        recordings = FoldRecordings(entries.files, others);
        AddOthers({{}, entries.folders}, {}, others);
    }
    if (aborted())
        return {};

    const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
    XMPValueReader reader(metadataFields);
    SDKContentMap content;
    for (const Recording& recording : recordings) {
        if (aborted())
            return {};
        SDKPropertyMap& record = content[Utf16ToUtf8(recording.file)];
        if (fields.count(kSDKNameField))
            record[kSDKNameField] = recording.stem;
        if (fields.count(kSDKPathField))
            record[kSDKPathField] = recording.file;
        any_regular_t::array_t files;
        for (const std::u16string& file : recording.files)
            files.emplace_back(file);
        record[kSDKExtraPathField] = any_regular_t(std::move(files));
        if (metadataFields.any()) {
            for (auto& [name, value] : reader.Read(Utf16ToUtf8(recording.file), std::string()))
                record[name] = std::move(value);
        }
    }
    for (const OtherEntry& entry : others) {
        CardFieldLists::FillEntryRecord(content[Utf16ToUtf8(entry.path)], entry.path, entry.folder,
                                        fields);
    }
    return aborted() ? SDKContentMap() : content;
}

std::string ProviderSonyHDV::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderSonyHDV";
}

std::string ProviderSonyHDV::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/SonyHDVUIString=Sony HDV");
}

std::uint32_t ProviderSonyHDV::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return requestedHeight;
}

PelPixHandle ProviderSonyHDV::GetThumbnail(const std::string& itemPath, const std::string&,
                                           const any_regular_t&, std::uint32_t width,
                                           std::uint32_t height, ProviderRequest* request) {
    if (itemPath.empty() || IsRequestAborted(request))
        return nullptr;
    const std::uint32_t thumbnailHeight = GetMaximumThumbnailHeight(height);
    if (!IsSonyHDVRecordingName(Path::GetFilePart(std::u16string_view(Utf8ToUtf16(itemPath))),
                                false))
        return RenderThumbnail(itemPath, width, thumbnailHeight);  // a file beside them
    return RenderFileIconThumbnail(Path::GetParent(std::string_view(itemPath)),
                                   Path::GetFilePart(std::string_view(itemPath)), thumbnailHeight,
                                   kLargestIconSize);
}

bool ProviderSonyHDV::ShouldCheckFilter() {
    return false;
}

bool ProviderSonyHDV::IsSelectable() {
    return true;
}

}  // namespace Tessel
