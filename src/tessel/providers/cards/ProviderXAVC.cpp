#include <tessel/providers/cards/ProviderXAVC.h>

#include <algorithm>
#include <array>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/SonyClipMetadata.h>

namespace Tessel {

using namespace CardWalk;
using CardPathUtils::JoinPath;

namespace {

// The card's top folders, found as existence tests find them.
constexpr std::u16string_view kXDROOTFolder = u"XDROOT";
constexpr std::u16string_view kPrivateFolder = u"PRIVATE";
constexpr std::u16string_view kM4ROOTFolder = u"M4ROOT";
// Written beside the media folders by the same cameras, compared exactly.
constexpr std::u16string_view kPhotoFolder = u"DCIM";
constexpr std::u16string_view kSettingsFolder = u"SONY";
constexpr std::u16string_view kPictureSuffix = u"T01.JPG";

constexpr std::array<LayoutName, 13> kXDROOTTable = {{{u"Clip", 0},
                                                      {u"MEDIAPRO.XML", 1},
                                                      {u"MEDIAPRO.BUP", kTolerated},
                                                      {u"DISCMETA.XML", kTolerated},
                                                      {u"CUEUP.XML", kTolerated},
                                                      {u"CUEUP.BUP", kTolerated},
                                                      {u"Sub", kTolerated},
                                                      {u"Thmbnl", kTolerated},
                                                      {u"Local", kTolerated},
                                                      {u"Take", kTolerated},
                                                      {u"Edit", kTolerated},
                                                      {u"General", kTolerated},
                                                      {u"UserData", kTolerated}}};
constexpr std::array<LayoutName, 7> kM4ROOTTable = {{{u"CLIP", 0},
                                                     {u"MEDIAPRO.XML", 1},
                                                     {u"MEDIAPRO.BUP", kTolerated},
                                                     {u"STATUS.BIN", kTolerated},
                                                     {u"SUB", kTolerated},
                                                     {u"THMBNL", kTolerated},
                                                     {u"GENERAL", kTolerated}}};

// One of the two layouts of a media folder, its names compared exactly.
struct MediaLayout {
    std::span<const LayoutName> table;
    std::u16string_view clipFolder;
    // The folders whose files belong to the clips, the clip folder first.
    std::array<std::u16string_view, 4> clipFileFolders;
    std::u16string_view generalFolder;  // shown: users keep their own files there
    std::u16string_view essenceExtension;
};
constexpr MediaLayout kXDROOTLayout{
    kXDROOTTable, u"Clip", {u"Clip", u"Sub", u"Thmbnl", u"Local"}, u"General", u".mxf"};
constexpr MediaLayout kM4ROOTLayout{
    kM4ROOTTable, u"CLIP", {u"CLIP", u"SUB", u"THMBNL", u""}, u"GENERAL", u".mp4"};

struct MediaFolder {
    std::u16string path;
    const MediaLayout* layout;
};

// The media folders of a card root whose entries are ROOT. Raises EXTRA for entries beside
// them that the cameras do not write there, and adds the entries beside them to OTHERS.
std::vector<MediaFolder> FindMediaFolders(const FolderEntries& root, bool& extra,
                                          std::vector<CardClipProvider::Entry>& others,
                                          const AbortPredicate& abort) {
    std::vector<MediaFolder> media;
    const std::u16string xdroot = FindFolder(root, kXDROOTFolder);
    const std::u16string privateFolder = FindFolder(root, kPrivateFolder);
    if (!xdroot.empty())
        media.push_back({xdroot, &kXDROOTLayout});
    for (CardClipProvider::Entry& entry : InWalkOrder(root)) {
        if (entry.path == xdroot || entry.path == privateFolder)
            continue;
        extra = extra || Leaf(entry.path) != kPhotoFolder;
        others.push_back(std::move(entry));
    }
    if (privateFolder.empty())
        return media;
    const FolderEntries inPrivate = ReadFolder(privateFolder, abort);
    const std::u16string m4root = FindFolder(inPrivate, kM4ROOTFolder);
    const std::u16string privateXDROOT = FindFolder(inPrivate, kXDROOTFolder);
    for (CardClipProvider::Entry& entry : InWalkOrder(inPrivate)) {
        if (entry.path == m4root || entry.path == privateXDROOT)
            continue;
        extra = extra || Leaf(entry.path) != kSettingsFolder;
        others.push_back(std::move(entry));
    }
    if (!m4root.empty())
        media.push_back({m4root, &kM4ROOTLayout});
    if (!privateXDROOT.empty())
        media.push_back({privateXDROOT, &kXDROOTLayout});
    return media;
}

// Gives each of FILES to the clip with the longest name that begins its name.
void AssignFiles(const std::vector<std::u16string>& files,
                 std::vector<CardClipProvider::Clip>& clips,
                 std::vector<CardClipProvider::Entry>& others) {
    for (const std::u16string& file : files) {
        const std::u16string leaf = Upper(Leaf(file));
        CardClipProvider::Clip* owner = nullptr;
        for (CardClipProvider::Clip& clip : clips) {
            if (leaf.starts_with(Upper(clip.name)) &&
                (!owner || clip.name.size() > owner->name.size()))
                owner = &clip;
        }
        if (owner)
            owner->files.push_back(file);
        else
            others.push_back({file, false});
    }
}

void ListMediaFolder(const MediaFolder& media, CardClipProvider::Listing& listing,
                     const AbortPredicate& abort) {
    const MediaLayout& layout = *media.layout;
    AddOthers(ReadFolder(media.path, abort), listing.others, [&](const std::u16string& leaf) {
        return InLayout(layout.table, leaf) && leaf != layout.generalFolder;
    });
    std::vector<CardClipProvider::Clip> clips;
    for (std::u16string_view folderName : layout.clipFileFolders) {
        if (folderName.empty())
            continue;
        const FolderEntries entries = ReadFolder(JoinPath(media.path, folderName), abort);
        // A clip is named by its essence (<clip>.MXF, <clip>.MP4) or its metadata file.
        for (const std::u16string& file : entries.files) {
            const std::u16string leaf = Leaf(file);
            std::u16string name = SonyClipNameOfMetadata(leaf);
            if (name.empty() && HasExtension(leaf, layout.essenceExtension))
                name = leaf.substr(0, leaf.size() - layout.essenceExtension.size());
            if (folderName == layout.clipFolder && !name.empty() &&
                std::none_of(clips.begin(), clips.end(),
                             [&](const auto& clip) { return clip.name == name; }))
                clips.push_back({name, {}, {}, {}});
        }
        AssignFiles(entries.files, clips, listing.others);
        AddOthers({{}, entries.folders}, listing.others, [](const auto&) { return false; });
    }
    for (CardClipProvider::Clip& clip : clips) {
        if (clip.files.empty())
            continue;
        const std::u16string essence = Upper(clip.name + std::u16string(layout.essenceExtension));
        const auto found =
            std::find_if(clip.files.begin(), clip.files.end(),
                         [&](const auto& file) { return Upper(Leaf(file)) == essence; });
        clip.itemPath = found != clip.files.end() ? *found : clip.files.front();
        const std::u16string metadata = SonyClipMetadataPath(
            Path::GetParent(std::u16string_view(clip.files.front())), clip.name);
        if (std::find(clip.files.begin(), clip.files.end(), metadata) != clip.files.end())
            clip.metadataFiles.push_back(metadata);
        listing.clips.push_back(std::move(clip));
    }
}

}  // namespace

bool ProviderXAVC::CardTest(DirectoryContents& contents, bool& extra, const AbortPredicate& abort) {
    const std::optional<FolderEntries> root =
        ReadCardRoot(contents, {kXDROOTFolder, kPrivateFolder}, abort);
    if (!root)
        return false;
    std::vector<Entry> others;
    bool any = false;
    for (const MediaFolder& media : FindMediaFolders(*root, extra, others, abort)) {
        const bool ok = TestLayout(ReadFolder(media.path, abort), media.layout->table, extra);
        extra = extra || !ok;
        any = any || ok;
    }
    return any;
}

CardClipProvider::Listing ProviderXAVC::ListCard(const std::u16string& root,
                                                 const AbortPredicate& abort) {
    Listing listing;
    bool extra = false;
    for (const MediaFolder& media :
         FindMediaFolders(ReadFolder(root, abort), extra, listing.others, abort))
        ListMediaFolder(media, listing, abort);
    return listing;
}

void ProviderXAVC::FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                  const Clip& clip) {
    std::vector<SonyClipMetadata> pieces(1);
    if (clip.metadataFiles.empty() || !ReadSonyClipMetadata(clip.metadataFiles.front(), pieces[0]))
        pieces.clear();
    FillSonyClipValues(record, fields, pieces);
}

std::u16string ProviderXAVC::ClipPicture(const std::u16string& essence) {
    // <media folder>/<clip folder>/<clip>.MXF -> <media folder>/Thmbnl/<clip>T01.JPG
    const std::u16string mediaFolder =
        Path::GetParent(Path::GetParent(std::u16string_view(essence)));
    const std::u16string leaf = Leaf(essence);
    const std::u16string picture =
        leaf.substr(0, leaf.rfind(u'.')) + std::u16string(kPictureSuffix);
    for (const MediaLayout* layout : {&kXDROOTLayout, &kM4ROOTLayout}) {
        const std::u16string folder = JoinPath(mediaFolder, layout->clipFileFolders[2]);
        if (const auto name = Path::FindExistingName(folder, picture)) {
            const std::u16string path = JoinPath(folder, *name);
            if (Path::FileExists(std::u16string_view(path)))
                return path;
        }
    }
    return {};
}

std::string ProviderXAVC::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderXAVC";
}

std::string ProviderXAVC::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/XAVCUIString=XAVC");
}

}  // namespace Tessel
