#include <tessel/providers/cards/ProviderAVCHD.h>

#include <algorithm>
#include <array>
#include <optional>

#include <fmt/format.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/media/ImageResources.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/providers/cards/AVCHDMetadata.h>
#include <tessel/providers/cards/AVCHDUtils.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/thumbnails/Artwork.h>
#include <tessel/thumbnails/RenderThumbnail.h>

namespace Tessel {

using AVCHDUtils::FolderIndex;
using AVCHDUtils::Layout;
using CardPathUtils::JoinPath;

namespace {

const std::string_view kTraceCategory = Trace::DeclareCategory("ProviderAVCHD");
constexpr int kCleanCardScore = 100;
constexpr int kCardWithForeignFilesScore = 40;
constexpr std::uint32_t kLargestThumbnailHeight = 16;

constexpr std::u16string_view kOuterFolder = u"AVCHD";
constexpr std::u16string_view kLayoutRoot = u"BDMV";
constexpr std::u16string_view kStreamFolder = u"STREAM";
constexpr std::u16string_view kClipInfoFolder = u"CLIPINF";
constexpr std::u16string_view kPlaylistFolder = u"PLAYLIST";
constexpr std::u16string_view kBackupFolder = u"BACKUP";
constexpr std::u16string_view kIndexFile = u"index.bdmv";
constexpr std::u16string_view kShortIndexFile = u"index.bdm";
constexpr std::u16string_view kMovieObjectFile = u"MovieObject.bdmv";
constexpr std::u16string_view kShortMovieObjectFile = u"MOVIEOBJ.BDM";
constexpr std::u16string_view kSidecarExtension = u".xmp";

// The fields the camera's own files give (AVCHDShotValues).
constexpr std::array<const char*, 15> kCameraFields = {"duration",
                                                       "startTimecode",
                                                       "videoFrameRate",
                                                       "videoFrameSize",
                                                       "audioChannelType",
                                                       "audioSampleRate",
                                                       "shotDate",
                                                       "shotName",
                                                       "Make",
                                                       "Model",
                                                       "good",
                                                       "creator",
                                                       "SerialNumber",
                                                       "shotLocation",
                                                       "identifier"};

std::u16string Leaf(std::u16string_view path) {
    return Path::GetFilePart(path);
}

// The sub-folder NAME among FOLDERS, as an existence test finds it: the exact name first, then
// any letter case.
std::optional<std::u16string> FindListedFolder(const std::vector<Directory>& folders,
                                               std::u16string_view name) {
    const auto byName = [&](bool exact) -> std::optional<std::u16string> {
        for (const Directory& folder : folders) {
            const std::u16string leaf = Leaf(folder.GetFullPath());
            if (exact ? leaf == name : EqualsIgnoringCase(leaf, name))
                return folder.GetFullPath();
        }
        return std::nullopt;
    };
    if (auto found = byName(true))
        return found;
    return byName(false);
}

// The layout root test of the folder BDMV; FOREIGN is set when STREAM holds other files than
// stream files.
bool LayoutRootTest(const std::u16string& bdmv, bool& foreign) {
    FolderIndex root(bdmv);
    if (!root.FindFolder(kStreamFolder) || !root.FindFolder(kClipInfoFolder) ||
        !root.FindFolder(kPlaylistFolder) ||
        !(root.FindFile(kIndexFile) || root.FindFile(kShortIndexFile)) ||
        !(root.FindFile(kMovieObjectFile) || root.FindFile(kShortMovieObjectFile)))
        return false;
    FolderIndex stream(*root.FindFolder(kStreamFolder));
    const std::vector<std::u16string>& files = stream.VisibleFiles();
    foreign = !std::all_of(files.begin(), files.end(), [](const std::u16string& file) {
        return AVCHDUtils::IsStreamFileName(Leaf(file));
    });
    return true;
}

// The layout root of the folder FOLDER: its BDMV, else its AVCHD/BDMV; empty when neither.
std::u16string LayoutRootOf(const std::u16string& folder) {
    for (const std::u16string_view outer : {std::u16string_view(), kOuterFolder}) {
        std::u16string parent = folder;
        if (!outer.empty()) {
            const auto name = Path::FindExistingName(std::u16string_view(folder), outer);
            if (!name)
                break;
            parent = JoinPath(folder, *name);
        }
        const auto name = Path::FindExistingName(std::u16string_view(parent), kLayoutRoot);
        if (name && Path::DirectoryExists(std::u16string_view(JoinPath(parent, *name))))
            return JoinPath(parent, *name);
    }
    return {};
}

AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

// The name of an item: its stream file's name up to the first '.'.
std::u16string ItemName(std::u16string_view leaf) {
    return std::u16string(leaf.substr(0, leaf.find(u'.')));
}

std::u16string Title(std::u16string_view path) {
    std::u16string leaf = Leaf(path);
    if (const std::size_t dot = leaf.rfind(u'.'); dot != std::u16string::npos)
        leaf.resize(dot);
    return leaf;
}

// The files that belong to the item NAME, in the order of its ExtraPath.
std::vector<std::u16string> RelatedFiles(Layout& layout, const std::u16string& name) {
    std::vector<std::u16string> files;
    FolderIndex& stream = layout.Stream();
    if (stream.FindFirstFile(name, {u".MTS", u".M2TS"})) {
        // The clip file rule, answered from the folders the layout has read: the name and the
        // folders STREAM and BDMV are known to be right.
        std::vector<std::u16string> clips;
        if (layout.HasFolder(kPlaylistFolder) && layout.HasFolder(kClipInfoFolder))
            layout.ShotClips(name, stream, clips);
        for (const std::u16string& clipFile : clips) {
            const std::u16string clip = Title(clipFile);
            if (auto info = layout.ClipInfo().FindFirstFile(clip, {u".clpi", u".CLP", u".CPI"}))
                files.push_back(std::move(*info));
            if (auto sidecar = stream.FindFile(clip + std::u16string(kSidecarExtension)))
                files.push_back(std::move(*sidecar));
            if (clip != name)
                files.push_back(clipFile);
        }
    }
    for (const std::u16string_view extension : {u".mpls", u".mpl"}) {
        for (const std::u16string& playlist : layout.Playlists().VisibleFiles()) {
            if (Path::GetExtensionLower(std::u16string_view(playlist)) == extension)
                files.push_back(playlist);
        }
    }
    FolderIndex& root = layout.Root();
    for (const auto& [longName, shortName] : {std::pair{kMovieObjectFile, kShortMovieObjectFile},
                                              std::pair{kIndexFile, kShortIndexFile}}) {
        std::optional<std::u16string> file = root.FindFile(longName);
        if (!file)
            file = root.FindFile(shortName);
        if (file)
            files.push_back(std::move(*file));
    }
    for (const std::u16string_view folder :
         {kBackupFolder, kStreamFolder, kPlaylistFolder, kClipInfoFolder}) {
        if (auto found = root.FindFolder(folder))
            files.push_back(std::move(*found));
    }
    return files;
}

// The camera's values of the shot whose head is the stream file STREAM_FILE, first named as a
// shot head by the playlist PLAYLIST.
class CameraValues {
public:
    explicit CameraValues(Layout& layout) : mLayout(layout) {}

    SDKPropertyMap Of(const std::u16string& streamFile, const std::u16string& playlistPath) {
        const std::u16string clip = Title(streamFile);
        auto parsed = mPlaylists.find(playlistPath);
        if (parsed == mPlaylists.end()) {
            const std::string& bytes = mLayout.PlaylistBytes(playlistPath);
            AVCHDPlaylistInfo info;
            if (!ReadAVCHDPlaylistInfo(AsBytes(bytes), info))
                info = AVCHDPlaylistInfo();
            parsed = mPlaylists.emplace(playlistPath, std::move(info)).first;
        }
        const AVCHDPlaylistInfo& playlist = parsed->second;
        std::size_t head = 0;
        while (head < playlist.items.size() &&
               (playlist.items[head].clip != clip ||
                playlist.items[head].connection == AVCHDUtils::kSeamlessConnection))
            ++head;
        AVCHDClipInfo info;
        bool haveInfo = false;
        if (auto path = mLayout.ClipInfo().FindFirstFile(clip, {u".clpi", u".CLP", u".CPI"})) {
            const std::string bytes = AVCHDUtils::ReadCardFile(*path);
            haveInfo = ReadAVCHDClipInfo(AsBytes(bytes), info);
        }
        return AVCHDShotValues(&playlist, head, haveInfo ? &info : nullptr);
    }

private:
    static std::span<const std::uint8_t> AsBytes(const std::string& bytes) {
        return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
    }

    Layout& mLayout;
    std::map<std::u16string, AVCHDPlaylistInfo> mPlaylists;
};

}  // namespace

int ProviderAVCHD::CanProvideFor(const std::string& path, const any_regular_t&,
                                 DirectoryContents& contents, const AbortPredicate& abort) {
    if (path.empty() || !contents.PathIsValid() || !contents.IsDirectory())
        return 0;
    const std::vector<Directory>& folders = contents.GetDirectoryList(abort);
    bool foreign = false;
    bool claimed = false;
    if (const auto bdmv = FindListedFolder(folders, kLayoutRoot))
        claimed = LayoutRootTest(*bdmv, foreign);
    if (!claimed) {
        foreign = false;
        const auto outer = FindListedFolder(folders, kOuterFolder);
        const auto bdmv = outer ? FolderIndex(*outer).FindFolder(kLayoutRoot) : std::nullopt;
        if (bdmv && LayoutRootTest(*bdmv, foreign)) {
            // AVCHD must be the folder's only entry, dot files at the start of the walk aside.
            const std::vector<std::u16string>& files = contents.GetFileList(abort);
            const auto leadingDotFiles =
                std::find_if(files.begin(), files.end(),
                             [](auto& file) { return !Leaf(file).starts_with(u'.'); }) -
                files.begin();
            claimed = folders.size() + files.size() - static_cast<std::size_t>(leadingDotFiles) < 2;
        }
    }
    if (!claimed)
        return 0;
    return foreign ? kCardWithForeignFilesScore : kCleanCardScore;
}

SDKContentMap ProviderAVCHD::GetContent(const std::string& path, const any_regular_t&,
                                        const SDKFieldSet& fields, ProviderRequest* request) {
    const TraceTimer timer;
    SDKContentMap content;
    const std::u16string folder = Path::StripTrailingSeparator(Utf8ToUtf16(path));
    const std::u16string root = path.empty() ? std::u16string() : LayoutRootOf(folder);
    const AbortPredicate aborted = StickyAbort(request);
    if (!root.empty()) {
        Layout layout(root);
        // Each head's stream file, with the first playlist that names it.
        std::map<std::u16string, std::u16string> heads;
        for (const std::u16string& playlist : layout.Playlists().VisibleFiles()) {
            const std::u16string extension = Path::GetExtensionLower(std::u16string_view(playlist));
            if (extension != u".mpls" && extension != u".mpl")
                continue;
            std::vector<std::u16string> streams;
            layout.ShotHeadClips(playlist, streams);
            for (std::u16string& stream : streams)
                heads.emplace(std::move(stream), playlist);
        }

        const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
        const bool cameraFields =
            std::any_of(kCameraFields.begin(), kCameraFields.end(),
                        [&](const char* field) { return fields.count(field); });
        XMPValueReader reader(metadataFields);
        CameraValues camera(layout);
        std::u16string previous;
        for (const auto& [stream, playlist] : heads) {  // in order of path
            if (aborted()) {
                content.clear();
                break;
            }
            const std::u16string leaf = Leaf(stream);
            const std::u16string name = ItemName(leaf);
            if (!AVCHDUtils::IsStreamFileName(leaf) || name == previous)
                continue;
            previous = name;
            const std::string streamPath = Utf16ToUtf8(stream);
            SDKPropertyMap record;
            if (metadataFields.any()) {
                const auto sidecar =
                    layout.Stream().FindFile(name + std::u16string(kSidecarExtension));
                record = reader.Read(streamPath, sidecar ? Utf16ToUtf8(*sidecar) : std::string());
            }
            if (cameraFields) {
                for (auto& [field, value] : camera.Of(stream, playlist)) {
                    if (fields.count(field))
                        record.emplace(field, std::move(value));
                }
            }
            record[kSDKNameField] = name;
            record[kSDKPathField] = streamPath;
            if (fields.count(kSDKExtraPathField)) {
                any_regular_t::array_t related;
                for (const std::u16string& file : RelatedFiles(layout, name))
                    related.emplace_back(Utf16ToUtf8(file));
                record[kSDKExtraPathField] = any_regular_t(std::move(related));
            }
            content[Utf16ToUtf8(leaf)] = std::move(record);
        }
    }
    if (Trace::IsEnabled(kTraceCategory)) {
        Trace::Write(kTraceCategory, fmt::format("GetContents took {} ms for path: {}",
                                                 static_cast<long long>(timer.Milliseconds()),
                                                 ToDisplayUtf8(path)));
    }
    return content;
}

SDKFieldSet ProviderAVCHD::GetFieldList() {
    return GetXMPFieldNames();
}

std::vector<std::string> ProviderAVCHD::GetDefaultFieldList() {
    return {kSDKNameField, kSDKPathField, "shotDate", "Make", "Model", "startTimecode"};
}

std::map<std::u16string, std::u16string> ProviderAVCHD::GetFieldLabelList() {
    std::map<std::u16string, std::u16string> labels;
    for (const char* field :
         {"Name", "videoFrameRate", "videoFrameSize", "audioChannelType", "audioSampleRate",
          "shotDate", "startTimecode", "Make", "Model", "SerialNumber", "good", "shotName",
          "shotLocation", "creator", "identifier", "Path"}) {
        if (const auto bit = FindXMPField(field))
            labels.emplace(Utf8ToUtf16(field), GetXMPFieldTitle(*bit));
    }
    return labels;
}

std::string ProviderAVCHD::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderAVCHD";
}

std::string ProviderAVCHD::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/AVCHDUIString=AVCHD");
}

std::uint32_t ProviderAVCHD::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return std::min(requestedHeight, kLargestThumbnailHeight);
}

PelPixHandle ProviderAVCHD::GetThumbnail(const std::string&, const std::string&,
                                         const any_regular_t&, std::uint32_t width,
                                         std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    const std::optional<ImageResource> picture =
        ImageResources::FindById(Artwork::kCameraCardResourceId);
    if (!picture)
        return nullptr;
    return RenderThumbnail(std::vector<std::uint8_t>(picture->bytes.begin(), picture->bytes.end()),
                           width, GetMaximumThumbnailHeight(height));
}

bool ProviderAVCHD::ShouldCheckFilter() {
    return false;
}

bool ProviderAVCHD::IsSelectable() {
    return true;
}

}  // namespace Tessel
