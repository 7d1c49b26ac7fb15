#include <tessel/providers/cards/ProviderCanonXF.h>

#include <algorithm>
#include <map>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/XMLUtils.h>

namespace Tessel {

using namespace CardWalk;
using CardPathUtils::JoinPath;

namespace {

namespace X = XMLUtils;

// The card's fixed names, compared exactly (the top folder found as an existence test finds it).
constexpr std::u16string_view kContentsFolder = u"CONTENTS";
constexpr std::u16string_view kGroupPrefix = u"CLIPS";
constexpr std::u16string_view kIndexFile = u"INDEX.MIF";
constexpr std::u16string_view kPieceExtension = u".MXF";
constexpr std::u16string_view kXMLExtension = u".XML";

bool ReadFromDocument(xercesc::DOMDocument* document, CanonClipRecord& record) {
    const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
    if (!root)
        return false;
    X::GetChildUInt(root, u"Duration", record.duration);
    X::GetChildString(root, u"FrameRate", record.frameRate);
    X::GetChildString(root, u"StartTimecode", record.startTimecode);
    X::GetChildString(root, u"CreationDate", record.creationDate);
    const xercesc::DOMElement* device = X::FindChildElement(root, u"Device");
    X::GetChildString(device, u"Manufacturer", record.manufacturer);
    X::GetChildString(device, u"ModelName", record.modelName);
    X::GetChildString(device, u"SerialNumber", record.serialNumber);
    const xercesc::DOMElement* memo = X::FindChildElement(root, u"UserMemo");
    X::GetChildString(memo, u"Title", record.title);
    X::GetChildString(memo, u"Creator", record.creator);
    X::GetChildString(memo, u"Location", record.location);
    X::GetChildString(memo, u"Description", record.description);
    X::GetChildBoolOrFalse(root, u"OKMark", record.good);
    return true;
}

// The number of a piece of clip NAME: 12 for <NAME>12.MXF; 0 when LEAF is no piece of it.
int PieceNumber(const std::u16string& leaf, const std::u16string& name) {
    const std::u16string upper = Upper(leaf), prefix = Upper(name);
    if (upper.size() != prefix.size() + 2 + kPieceExtension.size() || !upper.starts_with(prefix) ||
        !upper.ends_with(kPieceExtension))
        return 0;
    const char16_t tens = upper[prefix.size()], ones = upper[prefix.size() + 1];
    if (tens < u'0' || tens > u'9' || ones < u'0' || ones > u'9')
        return 0;
    return (tens - u'0') * 10 + (ones - u'0');
}

// A clip kept in clip folders: its pieces by number (the first found of a number kept) and its
// other files.
struct FolderClip {
    std::u16string name;
    std::map<int, std::u16string> pieces;
    std::vector<std::u16string> otherFiles;
};

bool RunsFromFirstPiece(const std::map<int, std::u16string>& pieces) {
    int expected = 1;
    for (const auto& piece : pieces) {
        if (piece.first != expected++)
            return false;
    }
    return true;
}

// Adds the pieces of its clip that each card it is offered holds; stops once they run from the
// first piece without a gap.
class PieceFinder final : public DirVisitor {
public:
    explicit PieceFinder(FolderClip* clip) : mClip(clip) {}

    bool Visit(const Directory& card) override {
        const FolderEntries contents =
            ReadFolder(JoinPath(card.GetFullPath(), kContentsFolder), {});
        for (const Directory& group : contents.folders) {
            if (!IsCanonClipGroup(Leaf(group.GetFullPath())))
                continue;
            for (const std::u16string& file :
                 ReadFolder(JoinPath(group.GetFullPath(), mClip->name), {}).files) {
                if (const int number = PieceNumber(Leaf(file), mClip->name))
                    mClip->pieces.emplace(number, file);
            }
        }
        return !RunsFromFirstPiece(mClip->pieces);
    }

private:
    FolderClip* mClip;
};

CardClipProvider::Clip MakeClip(FolderClip& folderClip, const std::u16string& cardRoot) {
    CardClipProvider::Clip clip{folderClip.name, {}, {}, {}};
    clip.itemPath = folderClip.pieces.empty() ? folderClip.otherFiles.front()
                                              : folderClip.pieces.begin()->second;
    if (!folderClip.pieces.empty() && !RunsFromFirstPiece(folderClip.pieces)) {
        PieceFinder finder(&folderClip);
        CardPathUtils::VisitSiblingDirectories(Utf16ToUtf8(cardRoot), finder);
    }
    for (const auto& piece : folderClip.pieces)
        clip.files.push_back(piece.second);
    const std::u16string xml = Upper(folderClip.name + std::u16string(kXMLExtension));
    for (const std::u16string& file : folderClip.otherFiles) {
        clip.files.push_back(file);
        if (Upper(Leaf(file)) == xml)
            clip.metadataFiles.push_back(file);
    }
    return clip;
}

}  // namespace

bool IsCanonClipGroup(const std::u16string& leaf) {
    return leaf.size() == kGroupPrefix.size() + 3 && leaf.starts_with(kGroupPrefix) &&
           std::all_of(leaf.begin() + kGroupPrefix.size(), leaf.end(),
                       [](char16_t c) { return c >= u'0' && c <= u'9'; });
}

void FindFlatCanonClips(const std::vector<std::u16string>& files, std::u16string_view essence,
                        bool xmlRequired, std::vector<CardClipProvider::Clip>& clips,
                        std::vector<CardClipProvider::Entry>& others) {
    const auto hasLeaf = [&](const std::u16string& upperLeaf) {
        return std::any_of(files.begin(), files.end(),
                           [&](const auto& file) { return Upper(Leaf(file)) == upperLeaf; });
    };
    std::vector<CardClipProvider::Clip> found;
    for (const std::u16string& file : files) {
        const std::u16string leaf = Leaf(file);
        if (!HasExtension(leaf, essence))
            continue;
        std::u16string name = leaf.substr(0, leaf.size() - essence.size());
        if (!xmlRequired || hasLeaf(Upper(name + std::u16string(kXMLExtension))))
            found.push_back({std::move(name), file, {}, {}});
    }
    for (const std::u16string& file : files) {
        const std::u16string leaf = Upper(Leaf(file));
        CardClipProvider::Clip* owner = nullptr;
        for (CardClipProvider::Clip& clip : found) {
            if (leaf.starts_with(Upper(clip.name)) &&
                (!owner || clip.name.size() > owner->name.size()))
                owner = &clip;
        }
        if (!owner) {
            others.push_back({file, false});
            continue;
        }
        owner->files.push_back(file);
        if (leaf == Upper(owner->name + std::u16string(kXMLExtension)))
            owner->metadataFiles.push_back(file);
    }
    std::move(found.begin(), found.end(), std::back_inserter(clips));
}

bool ReadCanonClipRecord(const std::u16string& xmlPath, CanonClipRecord& record) {
    record = CanonClipRecord();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLDocument(*parser, xmlPath, document) &&
           ReadFromDocument(document, record);
}

bool ReadCanonClipRecordFromBytes(const std::string& bytes, const std::u16string& xmlPath,
                                  CanonClipRecord& record) {
    record = CanonClipRecord();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLBytes(*parser, bytes, xmlPath, document) &&
           ReadFromDocument(document, record);
}

void FillCanonClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                         const CanonClipRecord& clip) {
    const auto set = [&](const char* field, const std::u16string& value, bool replace) {
        if (value.empty() || !fields.count(field))
            return;
        if (replace || !record.count(field))
            record[field] = value;
    };
    const std::string start = Utf16ToUtf8(clip.startTimecode);
    const auto rate =
        ParseFrameRate(Utf16ToUtf8(clip.frameRate), start.find(';') != std::string::npos);
    if (start.find_first_not_of(" \t") != std::string::npos)
        set("startTimecode", Utf8ToUtf16(NormalizeTimecode(start, rate && rate->dropFrame)), true);
    if (rate && clip.duration > 0)
        set("duration", Utf8ToUtf16(FormatTimecode(clip.duration, *rate)), true);
    set("videoFrameRate", clip.frameRate, false);
    set("CreateDate", Utf8ToUtf16(DisplayXMPDate(Utf16ToUtf8(clip.creationDate))), false);
    set("Make", clip.manufacturer, false);
    set("Model", clip.modelName, false);
    set("SerialNumber", clip.serialNumber, false);
    set("title", clip.title, false);
    set("creator", clip.creator, false);
    set("shotLocation", clip.location, false);
    set("description", clip.description, false);
    if (clip.good && fields.count("good") && !record.count("good"))
        record["good"] = true;
}

bool ProviderCanonXF::CardTest(DirectoryContents& contents, bool& extra,
                               const AbortPredicate& abort) {
    const std::optional<FolderEntries> root = ReadCardRoot(contents, {kContentsFolder}, abort);
    if (!root)
        return false;
    const std::u16string contentsFolder = FindFolder(*root, kContentsFolder);
    extra = root->files.size() + root->folders.size() > 1;
    const FolderEntries groups = ReadFolder(contentsFolder, abort);
    bool anyGroup = false;
    for (const Directory& group : groups.folders) {
        const bool isGroup = IsCanonClipGroup(Leaf(group.GetFullPath()));
        anyGroup = anyGroup || isGroup;
        extra = extra || !isGroup;
    }
    extra = extra || !groups.files.empty();
    return anyGroup;
}

CardClipProvider::Listing ProviderCanonXF::ListCard(const std::u16string& root,
                                                    const AbortPredicate& abort) {
    Listing listing;
    const FolderEntries rootEntries = ReadFolder(root, abort);
    const std::u16string contents = FindFolder(rootEntries, kContentsFolder);
    AddOthers(rootEntries, listing.others, [&](const std::u16string& leaf) {
        return !contents.empty() && leaf == Leaf(contents);
    });
    if (contents.empty())
        return listing;
    const FolderEntries groups = ReadFolder(contents, abort);
    AddOthers(groups, listing.others, IsCanonClipGroup);
    const auto none = [](const std::u16string&) { return false; };

    std::vector<FolderClip> folderClips;
    for (const Directory& group : groups.folders) {
        if (!IsCanonClipGroup(Leaf(group.GetFullPath())))
            continue;
        FolderEntries entries = ReadFolder(group.GetFullPath(), abort);
        std::erase_if(entries.files, [](const auto& file) { return Leaf(file) == kIndexFile; });
        FindFlatCanonClips(entries.files, u".mxf", false, listing.clips, listing.others);
        for (const Directory& folder : entries.folders) {
            const FolderEntries clipEntries = ReadFolder(folder.GetFullPath(), abort);
            AddOthers({{}, clipEntries.folders}, listing.others, none);
            if (clipEntries.files.empty()) {
                listing.others.push_back({folder.GetFullPath(), true});
                continue;
            }
            const std::u16string name = Leaf(folder.GetFullPath());
            auto clip = std::find_if(folderClips.begin(), folderClips.end(),
                                     [&](const FolderClip& known) { return known.name == name; });
            if (clip == folderClips.end())
                clip = folderClips.insert(folderClips.end(), FolderClip{name, {}, {}});
            for (const std::u16string& file : clipEntries.files) {
                if (const int number = PieceNumber(Leaf(file), name))
                    clip->pieces.emplace(number, file);
                else
                    clip->otherFiles.push_back(file);
            }
        }
    }
    for (FolderClip& clip : folderClips) {
        if (abort())
            break;
        listing.clips.push_back(MakeClip(clip, root));
    }
    return listing;
}

void ProviderCanonXF::FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                     const Clip& clip) {
    CanonClipRecord xml;
    if (!clip.metadataFiles.empty() && ReadCanonClipRecord(clip.metadataFiles.front(), xml))
        FillCanonClipValues(record, fields, xml);
}

std::string ProviderCanonXF::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderCanonXF";
}

std::string ProviderCanonXF::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/CanonXFUIString=Canon XF");
}

}  // namespace Tessel
