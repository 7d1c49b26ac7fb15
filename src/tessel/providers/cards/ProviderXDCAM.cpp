#include <tessel/providers/cards/ProviderXDCAM.h>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <set>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/providers/cards/CardFieldLists.h>
#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/SonyClipMetadata.h>
#include <tessel/providers/cards/XMLUtils.h>
#include <tessel/thumbnails/FileIconThumbnail.h>
#include <tessel/thumbnails/RenderThumbnail.h>

namespace Tessel {

using CardPathUtils::JoinPath;

namespace {

namespace X = XMLUtils;

constexpr int kCleanDiscScore = 100;
constexpr int kDiscWithExtraContentsScore = 40;
// Thumbnails are drawn no higher than this.
constexpr std::int32_t kLargestThumbnailHeight = 16;

// The disc's fixed names, compared exactly.
constexpr std::u16string_view kPROAVFolder = u"PROAV";
constexpr std::u16string_view kClipRootFolder = u"CLPR";
constexpr std::u16string_view kIndexFile = u"INDEX.XML";
constexpr std::u16string_view kIndexBackupFile = u"INDEX.BUP";
constexpr std::u16string_view kDiscMetaFile = u"DISCMETA.XML";
constexpr std::u16string_view kDiscInfoFile = u"DISCINFO.XML";
constexpr std::u16string_view kDiscInfoBackupFile = u"DISCINFO.BUP";
constexpr std::u16string_view kEditListFolder = u"EDTR";
constexpr std::u16string_view kUserDataFolder = u"USERDATA";
constexpr std::u16string_view kGeneralFolder = u"General";
constexpr std::u16string_view kClipFolder = u"Clip";
constexpr std::u16string_view kSubFolder = u"Sub";
constexpr std::u16string_view kEditFolder = u"Edit";
constexpr std::u16string_view kMediaProfileFile = u"MEDIAPRO.XML";
constexpr std::u16string_view kAliasFile = u"ALIAS.XML";
constexpr std::u16string_view kVideoEssenceSuffix = u"V01.MXF";
constexpr std::u16string_view kAudioEssenceSuffix = u"A01.MXF";
constexpr std::u16string_view kEssenceExtension = u".MXF";

// A row of a layout's recognition table: a required name sets its bit, a tolerated one
// (bit kTolerated) nothing.
struct LayoutName {
    std::u16string_view name;
    int bit;
};
constexpr int kTolerated = -1;
constexpr unsigned kAllRequiredNames = 0xF;
constexpr std::array<LayoutName, 6> kPROAVLayout = {{{kClipRootFolder, 0},
                                                     {kIndexFile, 1},
                                                     {kDiscMetaFile, 2},
                                                     {kDiscInfoFile, 3},
                                                     {kDiscInfoBackupFile, kTolerated},
                                                     {kIndexBackupFile, kTolerated}}};
constexpr std::array<LayoutName, 6> kRootLayout = {{{kClipFolder, 0},
                                                    {kSubFolder, 1},
                                                    {kMediaProfileFile, 2},
                                                    {kDiscMetaFile, 3},
                                                    {kGeneralFolder, kTolerated},
                                                    {kAliasFile, kTolerated}}};
// A layout with no more entries than these cannot hold its required names and more.
constexpr std::size_t kFewestPROAVEntries = 3;
constexpr std::size_t kFewestRootEntries = 5;
// The root layout's own names besides its table: its index and its edit lists.
constexpr std::array<std::u16string_view, 2> kRootStructure = {kIndexFile, kEditFolder};

std::u16string Leaf(const std::u16string& path) {
    return Path::GetFilePart(std::u16string_view(path));
}

std::u16string Upper(std::u16string_view text) {
    std::u16string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Platform::UpperCaseCodeUnit);
    return upper;
}

// The files (hidden ones left out) and sub-folders of FOLDER.
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

// Files and folders as one list in walk order (NTFS order: upper-cased code units, ordinal).
std::vector<std::u16string> InWalkOrder(const std::vector<std::u16string>& files,
                                        const std::vector<Directory>& folders) {
    std::vector<std::u16string> entries(files);
    for (const Directory& folder : folders)
        entries.push_back(folder.GetFullPath());
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& a, const auto& b) { return Upper(Leaf(a)) < Upper(Leaf(b)); });
    return entries;
}

// True when FILES and FOLDERS hold every name TABLE requires, which WalkLayout needs to
// succeed: a folder without them (a folder of a hundred thousand frames) is refused before
// its entries are put in walk order. Leaves are compared in place.
template <std::size_t N>
bool HasRequiredNames(const std::vector<std::u16string>& files,
                      const std::vector<Directory>& folders,
                      const std::array<LayoutName, N>& table) {
    unsigned mask = 0;
    const auto note = [&](std::u16string_view leaf) {
        for (const LayoutName& row : table) {
            if (row.bit != kTolerated && row.name == leaf)
                mask |= 1u << row.bit;
        }
    };
    for (const std::u16string& file : files)
        note(CardFileNames::LeafOf(file));
    for (const Directory& folder : folders)
        note(CardFileNames::LeafOf(folder.GetFullPath()));
    return mask == kAllRequiredNames;
}

// Walks ENTRIES against a layout's table. An entry outside the table raises EXTRA; the walk
// ends at the first such entry met once every required name has been seen.
template <std::size_t N>
bool WalkLayout(const std::vector<std::u16string>& entries, std::size_t fewest,
                const std::array<LayoutName, N>& table, bool& extra) {
    if (entries.size() <= fewest)
        return false;
    unsigned mask = 0;
    for (const std::u16string& entry : entries) {
        const std::u16string name = Leaf(entry);
        const auto known = std::find_if(table.begin(), table.end(),
                                        [&](const LayoutName& row) { return row.name == name; });
        if (known == table.end()) {
            extra = true;
            if (mask == kAllRequiredNames)
                break;
        } else if (known->bit != kTolerated) {
            mask |= 1u << known->bit;
        }
    }
    return mask == kAllRequiredNames;
}

// The PROAV folder of a disc root whose entries are FILES and FOLDERS: found as an existence
// test finds it, whatever the letter case.
std::optional<std::u16string> FindPROAV(const std::vector<std::u16string>& files,
                                        const std::vector<Directory>& folders) {
    const std::u16string wanted(kPROAVFolder);
    for (const Directory& folder : folders) {
        if (Upper(Leaf(folder.GetFullPath())) == wanted)
            return folder.GetFullPath();
    }
    for (const std::u16string& file : files) {
        // Upper-casing keeps the length: most names are ruled out without a copy.
        if (CardFileNames::LeafOf(file).size() == wanted.size() && Upper(Leaf(file)) == wanted)
            return file;
    }
    return std::nullopt;
}

bool ReadClipTable(xercesc::DOMDocument* document, std::vector<XDCAMClipTableEntry>& clips) {
    const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
    if (!root || !root->hasChildNodes())
        return false;
    const xercesc::DOMElement* table = X::FindChildElement(root, u"clipTable");
    for (auto* clip = X::FindChildElement(table, u"clip"); clip;
         clip = X::FindNextSiblingElement(clip, u"clip")) {
        XDCAMClipTableEntry& entry = clips.emplace_back();
        X::GetAttributeString(clip, u"clipId", entry.clipID);
        X::GetAttributeString(clip, u"file", entry.file);
        X::GetAttributeString(
            X::FindChildElement(X::FindChildElement(clip, u"video"), u"subStream"), u"file",
            entry.subStream);
        X::GetAttributeString(X::FindChildElement(clip, u"rtmeta"), u"file", entry.rtmeta);
        for (auto* meta = X::FindChildElement(clip, u"meta"); meta;
             meta = X::FindNextSiblingElement(meta, u"meta"))
            X::GetAttributeString(meta, u"file", entry.meta.emplace_back());
        for (auto* audio = X::FindChildElement(clip, u"audio"); audio;
             audio = X::FindNextSiblingElement(audio, u"audio"))
            X::GetAttributeString(audio, u"file", entry.audio.emplace_back());
    }
    return true;
}

bool ReadDiscMeta(xercesc::DOMDocument* document, XDCAMDiscMeta& disc) {
    const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
    if (!root)
        return false;
    X::GetAttributeString(root, u"lastUpdate", disc.lastUpdate);
    return true;
}

// One clip of the listing: its name and its files in walk order.
struct Clip {
    std::u16string name;
    std::vector<std::u16string> files;
};

// An entry listed as itself.
struct OtherEntry {
    std::u16string path;
    bool folder = false;
};

// What a disc holds, sorted into clips and the rest.
struct DiscListing {
    std::vector<Clip> clips;
    std::vector<OtherEntry> others;
    std::u16string discMetaPath;
};

void AddOthers(const FolderEntries& entries, DiscListing& listing,
               const std::function<bool(const std::u16string&)>& isStructure) {
    for (const Directory& folder : entries.folders) {
        const std::u16string name = Leaf(folder.GetFullPath());
        if (!name.starts_with(u'.') &&
            (name == kGeneralFolder || !isStructure(folder.GetFullPath())))
            listing.others.push_back({folder.GetFullPath(), true});
    }
    for (const std::u16string& file : entries.files) {
        if (!isStructure(file))
            listing.others.push_back({file, false});
    }
}

// Gives each file of FILES to the clip whose name begins its name (the longest such name);
// the rest are listed as themselves.
void AssignFiles(const std::vector<std::u16string>& files, DiscListing& listing) {
    for (const std::u16string& file : files) {
        const std::u16string name = Upper(Leaf(file));
        Clip* owner = nullptr;
        for (Clip& clip : listing.clips) {
            if (name.starts_with(Upper(clip.name)) &&
                (!owner || clip.name.size() > owner->name.size()))
                owner = &clip;
        }
        if (owner)
            owner->files.push_back(file);
        else
            listing.others.push_back({file, false});
    }
}

DiscListing ListPROAVDisc(const std::u16string& root, const std::u16string& proav,
                          const FolderEntries& rootEntries, const AbortPredicate& abort) {
    DiscListing listing;
    listing.discMetaPath = JoinPath(proav, kDiscMetaFile);
    std::vector<XDCAMClipTableEntry> table;
    if (!ReadXDCAMClipTable(JoinPath(proav, kIndexFile), table))
        table.clear();
    std::set<std::u16string> known;
    for (const std::u16string& file : XDCAMKnownFiles(root, table))
        known.insert(Upper(file));
    known.insert(Upper(JoinPath(root, kPROAVFolder, kClipRootFolder)));
    const auto isKnown = [&](const std::u16string& path) { return known.count(Upper(path)) > 0; };
    AddOthers(rootEntries, listing, [&](const std::u16string& path) { return path == proav; });
    AddOthers(ReadFolder(proav, abort), listing, isKnown);
    const FolderEntries clipFolders = ReadFolder(JoinPath(proav, kClipRootFolder), abort);
    for (const std::u16string& file : clipFolders.files)
        listing.others.push_back({file, false});
    for (const Directory& folder : clipFolders.folders) {
        const std::u16string name = Leaf(folder.GetFullPath());
        if (name.starts_with(u'.'))
            continue;
        FolderEntries clipEntries = ReadFolder(folder.GetFullPath(), abort);
        if (clipEntries.files.empty()) {
            listing.others.push_back({folder.GetFullPath(), true});
            continue;
        }
        listing.clips.push_back({name, std::move(clipEntries.files)});
        AddOthers({{}, clipEntries.folders}, listing, [](const auto&) { return false; });
    }
    return listing;
}

DiscListing ListRootDisc(const std::u16string& root, const FolderEntries& rootEntries,
                         const AbortPredicate& abort) {
    DiscListing listing;
    listing.discMetaPath = JoinPath(root, kDiscMetaFile);
    AddOthers(rootEntries, listing, [&](const std::u16string& path) {
        const std::u16string name = Leaf(path);
        return std::any_of(kRootLayout.begin(), kRootLayout.end(),
                           [&](const LayoutName& row) { return row.name == name; }) ||
               std::find(kRootStructure.begin(), kRootStructure.end(), name) !=
                   kRootStructure.end();
    });
    const FolderEntries clipEntries = ReadFolder(JoinPath(root, kClipFolder), abort);
    // A clip is named by its metadata file (<clip>M01.XML) or its essence (<clip>.MXF).
    for (const std::u16string& file : clipEntries.files) {
        const std::u16string leaf = Leaf(file);
        std::u16string name = SonyClipNameOfMetadata(leaf);
        if (name.empty() &&
            Upper(Path::GetExtensionLower(std::u16string_view(leaf))) == kEssenceExtension)
            name = leaf.substr(0, leaf.size() - kEssenceExtension.size());
        const bool known = std::any_of(listing.clips.begin(), listing.clips.end(),
                                       [&](const Clip& clip) { return clip.name == name; });
        if (!name.empty() && !known)
            listing.clips.push_back({name, {}});
    }
    AssignFiles(clipEntries.files, listing);
    AddOthers({{}, clipEntries.folders}, listing, [](const auto&) { return false; });
    const FolderEntries subEntries = ReadFolder(JoinPath(root, kSubFolder), abort);
    AssignFiles(subEntries.files, listing);
    AddOthers({{}, subEntries.folders}, listing, [](const auto&) { return false; });
    std::erase_if(listing.clips, [](const Clip& clip) { return clip.files.empty(); });
    return listing;
}

// The clip's video essence, by the names the layouts give it; empty when it has none.
std::u16string EssenceOf(const Clip& clip) {
    for (std::u16string_view suffix :
         {kVideoEssenceSuffix, kAudioEssenceSuffix, kEssenceExtension}) {
        for (const std::u16string& file : clip.files) {
            if (Upper(Leaf(file)).ends_with(suffix))
                return file;
        }
    }
    return {};
}

// The request's abort as a predicate that, once it has seen the abort, keeps answering true
// (asking the request consumes its flag).
AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

void SetIfAbsent(SDKPropertyMap& record, const SDKFieldSet& fields, const char* field,
                 const std::string& value) {
    if (!value.empty() && fields.count(field) && !record.count(field))
        record[field] = Utf8ToUtf16(value);
}

// The fields exempi leaves out, from the clip's own metadata and the disc's.
void FillFromClipMetadata(SDKPropertyMap& record, const SDKFieldSet& fields,
                          const SonyClipMetadata& clip, const XDCAMDiscMeta& disc) {
    if (fields.count("startTimecode")) {
        record.erase("startTimecode");
        SetIfAbsent(record, fields, "startTimecode", SonyDisplayStartTimecode(clip));
    }
    if (fields.count("ModifyDate")) {
        const std::u16string& lastUpdate =
            disc.lastUpdate.empty() ? clip.lastUpdate : disc.lastUpdate;
        if (!lastUpdate.empty()) {
            record.erase("ModifyDate");
            SetIfAbsent(record, fields, "ModifyDate", DisplayXMPDate(Utf16ToUtf8(lastUpdate)));
        }
    }
    const std::string formatFps = Utf16ToUtf8(clip.formatFps);
    if (const auto rate = ParseFrameRate(formatFps); rate && clip.duration > 0)
        SetIfAbsent(record, fields, "duration", FormatTimecode(clip.duration, *rate));
    SetIfAbsent(record, fields, "videoFrameRate", formatFps);
    if (clip.width > 0 && clip.height > 0)
        SetIfAbsent(record, fields, "videoFrameSize",
                    std::to_string(clip.width) + " x " + std::to_string(clip.height));
    SetIfAbsent(record, fields, "videoCompressor", Utf16ToUtf8(clip.videoCodec));
    SetIfAbsent(record, fields, "CreateDate", DisplayXMPDate(Utf16ToUtf8(clip.creationDate)));
    SetIfAbsent(record, fields, "Make", Utf16ToUtf8(clip.manufacturer));
    SetIfAbsent(record, fields, "Model", Utf16ToUtf8(clip.modelName));
    SetIfAbsent(record, fields, "SerialNumber", Utf16ToUtf8(clip.serialNumber));
}

void FillClipRecord(SDKPropertyMap& record, const Clip& clip, const std::u16string& itemPath,
                    const SDKFieldSet& fields, XMPValueReader& reader,
                    const XMPFieldSet& metadataFields, const XDCAMDiscMeta& disc) {
    if (fields.count(kSDKNameField))
        record[kSDKNameField] = clip.name;
    if (fields.count(kSDKPathField))
        record[kSDKPathField] = itemPath;
    // The item's own file first: a thumbnail request carries the first entry.
    any_regular_t::array_t files{any_regular_t(itemPath)};
    for (const std::u16string& file : clip.files) {
        if (file != itemPath)
            files.emplace_back(file);
    }
    record[kSDKExtraPathField] = any_regular_t(std::move(files));
    if (metadataFields.none())
        return;
    for (auto& [name, value] : reader.Read(Utf16ToUtf8(itemPath), std::string()))
        record[name] = std::move(value);
    const std::u16string metadataLeaf = clip.name + u"M01.XML";
    SonyClipMetadata metadata;
    for (const std::u16string& file : clip.files) {
        if (Leaf(file) == metadataLeaf && ReadSonyClipMetadata(file, metadata))
            break;
    }
    FillFromClipMetadata(record, fields, metadata, disc);
}

}  // namespace

bool ReadXDCAMClipTable(const std::u16string& indexPath, std::vector<XDCAMClipTableEntry>& clips) {
    clips.clear();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLDocument(*parser, indexPath, document) &&
           ReadClipTable(document, clips);
}

bool ReadXDCAMClipTableFromBytes(const std::string& bytes, const std::u16string& indexPath,
                                 std::vector<XDCAMClipTableEntry>& clips) {
    clips.clear();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLBytes(*parser, bytes, indexPath, document) &&
           ReadClipTable(document, clips);
}

std::vector<std::u16string> XDCAMKnownFiles(const std::u16string& discRoot,
                                            const std::vector<XDCAMClipTableEntry>& clips) {
    std::vector<std::u16string> known{JoinPath(discRoot, kPROAVFolder, kGeneralFolder)};
    for (std::u16string_view name : {kDiscInfoBackupFile, kDiscInfoFile, kIndexBackupFile,
                                     kDiscMetaFile, kIndexFile, kEditListFolder, kUserDataFolder})
        known.push_back(JoinPath(discRoot, kPROAVFolder, name));
    for (const XDCAMClipTableEntry& clip : clips) {
        const std::u16string folder =
            JoinPath(discRoot, kPROAVFolder, kClipRootFolder, clip.clipID);
        const auto add = [&](const std::u16string& file) {
            if (!file.empty())
                known.push_back(JoinPath(folder, file));
        };
        add(clip.file);
        add(clip.subStream);
        add(clip.rtmeta);
        std::for_each(clip.meta.begin(), clip.meta.end(), add);
        std::for_each(clip.audio.begin(), clip.audio.end(), add);
    }
    return known;
}

bool ReadXDCAMDiscMeta(const std::u16string& path, XDCAMDiscMeta& disc) {
    disc = XDCAMDiscMeta();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLDocument(*parser, path, document) && ReadDiscMeta(document, disc);
}

bool ReadXDCAMDiscMetaFromBytes(const std::string& bytes, const std::u16string& path,
                                XDCAMDiscMeta& disc) {
    disc = XDCAMDiscMeta();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLBytes(*parser, bytes, path, document) &&
           ReadDiscMeta(document, disc);
}

bool ProviderXDCAM::DiscTest(DirectoryContents& contents, bool& extraContents,
                             const AbortPredicate& abort) {
    extraContents = false;
    const std::vector<std::u16string>& files = contents.GetFileList(abort);
    const std::vector<Directory>& folders = contents.GetDirectoryList(abort);
    if (const std::optional<std::u16string> proav = FindPROAV(files, folders)) {
        const FolderEntries entries = ReadFolder(*proav, abort);
        if (!HasRequiredNames(entries.files, entries.folders, kPROAVLayout))
            return false;
        return WalkLayout(InWalkOrder(entries.files, entries.folders), kFewestPROAVEntries,
                          kPROAVLayout, extraContents);
    }
    if (!HasRequiredNames(files, folders, kRootLayout))
        return false;
    return WalkLayout(InWalkOrder(files, folders), kFewestRootEntries, kRootLayout, extraContents);
}

int ProviderXDCAM::CanProvideFor(const std::string& path, const any_regular_t&,
                                 DirectoryContents& contents, const AbortPredicate& abort) {
    if (path.empty() || !contents.PathIsValid() || !contents.IsDirectory())
        return 0;
    bool extra = false;
    if (!DiscTest(contents, extra, abort))
        return 0;
    return extra ? kDiscWithExtraContentsScore : kCleanDiscScore;
}

SDKContentMap ProviderXDCAM::GetContent(const std::string& path, const any_regular_t&,
                                        const SDKFieldSet& fields, ProviderRequest* request) {
    if (path.empty())
        return {};
    const std::u16string root = Path::StripTrailingSeparator(Utf8ToUtf16(path));
    const AbortPredicate aborted = StickyAbort(request);
    const FolderEntries rootEntries = ReadFolder(root, aborted);
    const std::optional<std::u16string> proav = FindPROAV(rootEntries.files, rootEntries.folders);
    const DiscListing listing = proav && Path::DirectoryExists(std::u16string_view(*proav))
                                    ? ListPROAVDisc(root, *proav, rootEntries, aborted)
                                    : ListRootDisc(root, rootEntries, aborted);
    if (aborted())
        return {};

    const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
    XMPValueReader reader(metadataFields);
    XDCAMDiscMeta disc;
    if (metadataFields.any() && !ReadXDCAMDiscMeta(listing.discMetaPath, disc))
        disc = XDCAMDiscMeta();
    SDKContentMap content;
    for (const Clip& clip : listing.clips) {
        if (aborted())
            return {};
        std::u16string itemPath = EssenceOf(clip);
        if (itemPath.empty())
            itemPath = clip.files.front();
        FillClipRecord(content[Utf16ToUtf8(itemPath)], clip, itemPath, fields, reader,
                       metadataFields, disc);
    }
    for (const OtherEntry& entry : listing.others) {
        CardFieldLists::FillEntryRecord(content[Utf16ToUtf8(entry.path)], entry.path, entry.folder,
                                        fields);
    }
    return aborted() ? SDKContentMap() : content;
}

std::string ProviderXDCAM::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderXDCAM";
}

std::string ProviderXDCAM::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/XDCAMHDUIString=XDCAM-HD");
}

std::uint32_t ProviderXDCAM::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    // Compared as a signed number: a request that reads as negative is passed through.
    return static_cast<std::int32_t>(requestedHeight) > kLargestThumbnailHeight
               ? static_cast<std::uint32_t>(kLargestThumbnailHeight)
               : requestedHeight;
}

PelPixHandle ProviderXDCAM::GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                                         const any_regular_t&, std::uint32_t width,
                                         std::uint32_t height, ProviderRequest* request) {
    if (itemPath.empty() || IsRequestAborted(request))
        return nullptr;
    const std::uint32_t thumbnailHeight = GetMaximumThumbnailHeight(height);
    const std::string extension = Path::GetExtensionLower(std::string_view(itemPath));
    if (extension != ".mxf" && extension != ".xml")
        return RenderThumbnail(itemPath, width, thumbnailHeight);  // a file beside the clips
    // A clip: the icon of its essence, which the request names first.
    const std::string& essence =
        Path::GetExtensionLower(std::string_view(extraPath)) == ".mxf" ? extraPath : itemPath;
    return RenderFileIconThumbnail(Path::GetParent(std::string_view(essence)),
                                   Path::GetFilePart(std::string_view(essence)), thumbnailHeight,
                                   kLargestThumbnailHeight);
}

bool ProviderXDCAM::ShouldCheckFilter() {
    return false;
}

bool ProviderXDCAM::IsSelectable() {
    return true;
}

}  // namespace Tessel
