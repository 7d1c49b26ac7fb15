#include <tessel/providers/cards/ProviderCanonXFHEVC.h>

#include <algorithm>

#include <tessel/foundation/Localizer.h>
#include <tessel/providers/cards/ProviderCanonXF.h>

namespace Tessel {

using namespace CardWalk;

namespace {

// The top folders, found as existence tests find them.
constexpr std::u16string_view kClipsFolder = u"XFVC";
constexpr std::u16string_view kPhotoFolder = u"DCIM";
// Written beside them by the same cameras, compared exactly.
constexpr std::u16string_view kPrintOrderFolder = u"MISC";
constexpr std::u16string_view kSettingsFolder = u"CANONMSC";
constexpr std::u16string_view kEssenceExtension = u".mp4";

// A photo folder of the DCF rules: three digits, then five characters.
bool IsDCFFolder(const std::u16string& leaf) {
    return leaf.size() == 8 && std::all_of(leaf.begin(), leaf.begin() + 3,
                                           [](char16_t c) { return c >= u'0' && c <= u'9'; });
}

// The folders of a card root that keep clips (the XFVC groups, else the DCIM photo folders) and
// the entries beside them.
struct CardFolders {
    bool xfvcForm = false;
    std::vector<std::u16string> clipFolders;
    std::vector<CardClipProvider::Entry> others;
    bool extra = false;
};

CardFolders FindClipFolders(const FolderEntries& root, const AbortPredicate& abort) {
    CardFolders card;
    const std::u16string xfvc = FindFolder(root, kClipsFolder);
    const std::u16string dcim = xfvc.empty() ? FindFolder(root, kPhotoFolder) : std::u16string();
    card.xfvcForm = !xfvc.empty();
    for (CardClipProvider::Entry& entry : InWalkOrder(root)) {
        if (entry.path == xfvc || entry.path == dcim)
            continue;
        const std::u16string leaf = Leaf(entry.path);
        card.extra = card.extra || (leaf != kPhotoFolder && leaf != kPrintOrderFolder);
        card.others.push_back(std::move(entry));
    }
    const std::u16string top = card.xfvcForm ? xfvc : dcim;
    if (top.empty())
        return card;
    for (CardClipProvider::Entry& entry : InWalkOrder(ReadFolder(top, abort))) {
        const std::u16string leaf = Leaf(entry.path);
        if (entry.folder && (card.xfvcForm ? IsCanonClipGroup(leaf) : IsDCFFolder(leaf))) {
            card.clipFolders.push_back(std::move(entry.path));
            continue;
        }
        card.extra = card.extra || card.xfvcForm || leaf != kSettingsFolder;
        card.others.push_back(std::move(entry));
    }
    return card;
}

// The clips of the clip folders of CARD, and what else the folders hold.
void FindClips(const CardFolders& card, CardClipProvider::Listing& listing,
               const AbortPredicate& abort) {
    for (const std::u16string& folder : card.clipFolders) {
        const FolderEntries entries = ReadFolder(folder, abort);
        FindFlatCanonClips(entries.files, kEssenceExtension, true, listing.clips, listing.others);
        AddOthers({{}, entries.folders}, listing.others, [](const auto&) { return false; });
    }
}

}  // namespace

bool ProviderCanonXFHEVC::CardTest(DirectoryContents& contents, bool& extra,
                                   const AbortPredicate& abort) {
    const std::optional<FolderEntries> root =
        ReadCardRoot(contents, {kClipsFolder, kPhotoFolder}, abort);
    if (!root)
        return false;
    const CardFolders card = FindClipFolders(*root, abort);
    if (card.clipFolders.empty())
        return false;
    Listing found;
    FindClips(card, found, abort);
    extra = card.extra || !found.others.empty();
    return card.xfvcForm || !found.clips.empty();
}

CardClipProvider::Listing ProviderCanonXFHEVC::ListCard(const std::u16string& root,
                                                        const AbortPredicate& abort) {
    CardFolders card = FindClipFolders(ReadFolder(root, abort), abort);
    Listing listing;
    listing.others = std::move(card.others);
    FindClips(card, listing, abort);
    return listing;
}

void ProviderCanonXFHEVC::FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                         const Clip& clip) {
    CanonClipRecord xml;
    if (!clip.metadataFiles.empty() && ReadCanonClipRecord(clip.metadataFiles.front(), xml))
        FillCanonClipValues(record, fields, xml);
}

std::string ProviderCanonXFHEVC::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderCanonXFHEVC";
}

std::string ProviderCanonXFHEVC::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/CanonXFHEVCUIString=Canon XF-HEVC");
}

}  // namespace Tessel
