#include <tessel/providers/cards/ProviderXDCAMEX.h>

#include <array>
#include <map>

#include <tessel/foundation/Localizer.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/SonyClipMetadata.h>
#include <tessel/providers/cards/SonyMediaProfile.h>

namespace Tessel {

using namespace CardWalk;
using CardPathUtils::JoinPath;

namespace {

// The card's fixed names, compared exactly (the top folder found as an existence test finds it).
constexpr std::u16string_view kBPAVFolder = u"BPAV";
constexpr std::u16string_view kClipRootFolder = u"CLPR";
constexpr std::u16string_view kTakeRootFolder = u"TAKR";
constexpr std::u16string_view kMediaProfileFile = u"MEDIAPRO.XML";
constexpr std::u16string_view kEssenceExtension = u".MP4";
constexpr std::u16string_view kMetadataSuffix = u"M01.XML";

constexpr std::array<LayoutName, 6> kBPAVLayout = {{{kClipRootFolder, 0},
                                                    {kMediaProfileFile, 1},
                                                    {kTakeRootFolder, kTolerated},
                                                    {u"MEDIAPRO.BUP", kTolerated},
                                                    {u"CUEUP.XML", kTolerated},
                                                    {u"CUEUP.BUP", kTolerated}}};

// A clip folder of CLPR with its files.
struct ClipFolder {
    std::u16string name;
    std::vector<std::u16string> files;
};

// The takes of the media profile: the clips of each, in recording order.
using TakeClips = std::map<std::u16string, std::vector<std::u16string>>;

TakeClips ReadTakes(const std::u16string& bpav) {
    TakeClips takes;
    SonyMediaProfile profile;
    if (!ReadSonyMediaProfile(JoinPath(bpav, kMediaProfileFile), profile))
        return takes;
    for (const SonyMediaMaterial& material : profile.materials) {
        const std::vector<std::u16string> take = SonyMediaFolders(material.uri);
        if (take.size() != 2 || take[0] != kTakeRootFolder)
            continue;
        for (const std::u16string& component : material.components) {
            const std::vector<std::u16string> clip = SonyMediaFolders(component);
            if (clip.size() == 2 && clip[0] == kClipRootFolder)
                takes[take[1]].push_back(clip[1]);
        }
    }
    return takes;
}

CardClipProvider::Clip MakeClip(const std::u16string& name,
                                const std::vector<const ClipFolder*>& pieces) {
    CardClipProvider::Clip clip{name, {}, {}, {}};
    for (const ClipFolder* piece : pieces) {
        const std::u16string essence = Upper(piece->name + std::u16string(kEssenceExtension));
        for (const std::u16string& file : piece->files) {
            clip.files.push_back(file);
            if (clip.itemPath.empty() && Upper(Leaf(file)) == essence)
                clip.itemPath = file;
            if (Leaf(file) == piece->name + std::u16string(kMetadataSuffix))
                clip.metadataFiles.push_back(file);
        }
    }
    if (clip.itemPath.empty())
        clip.itemPath = clip.files.front();
    return clip;
}

}  // namespace

bool ProviderXDCAMEX::CardTest(DirectoryContents& contents, bool& extra,
                               const AbortPredicate& abort) {
    const std::optional<FolderEntries> root = ReadCardRoot(contents, {kBPAVFolder}, abort);
    if (!root)
        return false;
    const std::u16string bpav = FindFolder(*root, kBPAVFolder);
    extra = root->files.size() + root->folders.size() > 1;
    return TestLayout(ReadFolder(bpav, abort), kBPAVLayout, extra);
}

CardClipProvider::Listing ProviderXDCAMEX::ListCard(const std::u16string& root,
                                                    const AbortPredicate& abort) {
    Listing listing;
    const FolderEntries rootEntries = ReadFolder(root, abort);
    const std::u16string bpav = FindFolder(rootEntries, kBPAVFolder);
    AddOthers(rootEntries, listing.others,
              [&](const std::u16string& leaf) { return !bpav.empty() && leaf == Leaf(bpav); });
    if (bpav.empty())
        return listing;
    AddOthers(ReadFolder(bpav, abort), listing.others,
              [](const std::u16string& leaf) { return InLayout(kBPAVLayout, leaf); });
    const auto none = [](const std::u16string&) { return false; };

    std::vector<ClipFolder> clipFolders;
    const FolderEntries clipRoot = ReadFolder(JoinPath(bpav, kClipRootFolder), abort);
    AddOthers({clipRoot.files, {}}, listing.others, none);
    for (const Directory& folder : clipRoot.folders) {
        FolderEntries entries = ReadFolder(folder.GetFullPath(), abort);
        AddOthers({{}, entries.folders}, listing.others, none);
        if (entries.files.empty())
            listing.others.push_back({folder.GetFullPath(), true});
        else
            clipFolders.push_back({Leaf(folder.GetFullPath()), std::move(entries.files)});
    }

    // A take's item stands where its first clip here stands; its other clips join it.
    const TakeClips takes = ReadTakes(bpav);
    std::map<std::u16string, std::u16string> takeOfClip;
    for (const auto& [take, clips] : takes) {
        for (const std::u16string& clip : clips)
            takeOfClip.emplace(clip, take);
    }
    std::map<std::u16string, std::size_t> itemOfTake;
    for (const ClipFolder& folder : clipFolders) {
        const auto take = takeOfClip.find(folder.name);
        if (take == takeOfClip.end()) {
            listing.clips.push_back(MakeClip(folder.name, {&folder}));
            continue;
        }
        if (itemOfTake.count(take->second))
            continue;
        std::vector<const ClipFolder*> pieces;
        for (const std::u16string& clip : takes.at(take->second)) {
            for (const ClipFolder& piece : clipFolders) {
                if (piece.name == clip)
                    pieces.push_back(&piece);
            }
        }
        itemOfTake[take->second] = listing.clips.size();
        listing.clips.push_back(MakeClip(take->second, pieces));
    }

    const FolderEntries takeRoot = ReadFolder(JoinPath(bpav, kTakeRootFolder), abort);
    AddOthers({takeRoot.files, {}}, listing.others, none);
    for (const Directory& folder : takeRoot.folders) {
        const auto item = itemOfTake.find(Leaf(folder.GetFullPath()));
        if (item == itemOfTake.end()) {
            listing.others.push_back({folder.GetFullPath(), true});
            continue;
        }
        const FolderEntries entries = ReadFolder(folder.GetFullPath(), abort);
        std::vector<std::u16string>& files = listing.clips[item->second].files;
        files.insert(files.end(), entries.files.begin(), entries.files.end());
        AddOthers({{}, entries.folders}, listing.others, none);
    }
    return listing;
}

void ProviderXDCAMEX::FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                     const Clip& clip) {
    std::vector<SonyClipMetadata> pieces;
    for (const std::u16string& file : clip.metadataFiles) {
        if (!ReadSonyClipMetadata(file, pieces.emplace_back()))
            pieces.pop_back();
    }
    FillSonyClipValues(record, fields, pieces);
}

std::string ProviderXDCAMEX::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderXDCAMEX";
}

std::string ProviderXDCAMEX::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/XDCAMEXUIString=XDCAM-EX");
}

}  // namespace Tessel
