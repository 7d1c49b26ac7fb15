#include <tessel/providers/cards/ProviderP2.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include <fmt/format.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/providers/cards/CardFieldLists.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/XMLUtils.h>
#include <tessel/thumbnails/RenderThumbnail.h>

namespace Tessel {

using CardPathUtils::JoinPath;

namespace {

namespace X = XMLUtils;

const std::string_view kTraceCategory = Trace::DeclareCategory("ProviderP2");
constexpr int kCleanCardScore = 100;
constexpr int kCardWithExtraContentsScore = 40;

// The card's fixed names, compared exactly.
constexpr std::u16string_view kContentsFolder = u"CONTENTS";
constexpr std::u16string_view kClipFolder = u"CLIP";
constexpr std::u16string_view kVideoFolder = u"VIDEO";
constexpr std::u16string_view kAudioFolder = u"AUDIO";
constexpr std::u16string_view kIconFolder = u"ICON";
constexpr std::u16string_view kProxyFolder = u"PROXY";
constexpr std::u16string_view kVoiceFolder = u"VOICE";
constexpr std::u16string_view kAVClipFolder = u"AVCLIP";
constexpr std::u16string_view kLastClipFile = u"LASTCLIP.TXT";
constexpr std::u16string_view kDesktopFolder = u"Desktop";
constexpr std::u16string_view kDSStoreFile = u".DS_Store";
constexpr std::u16string_view kMXFExtension = u".MXF";
constexpr std::u16string_view kBitmapExtension = u".BMP";

// The five folders a card must have, each a bit of the contents test's mask.
constexpr std::array<std::u16string_view, 5> kRequiredFolders = {
    kAudioFolder, kClipFolder, kIconFolder, kProxyFolder, kVideoFolder};
constexpr unsigned kAllRequiredFolders = 0x1F;
// Every folder of the P2 structure under CONTENTS; others are extra contents.
constexpr std::array<std::u16string_view, 6> kP2Folders = {
    kAudioFolder, kClipFolder, kIconFolder, kProxyFolder, kVideoFolder, kVoiceFolder};

std::u16string Leaf(const std::u16string& path) {
    return Path::GetFilePart(std::u16string_view(path));
}

std::u16string Upper(std::u16string_view text) {
    std::u16string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Platform::UpperCaseCodeUnit);
    return upper;
}

std::u16string Stem(const std::u16string& path) {
    std::u16string leaf = Leaf(path);
    if (const std::size_t dot = leaf.rfind(u'.'); dot != std::u16string::npos && dot > 0)
        leaf.resize(dot);
    return leaf;
}

bool HasXMLExtension(const std::u16string& path) {
    return Path::GetExtensionLower(std::u16string_view(path)) == u".xml";
}

bool ReadRecord(xercesc::XercesDOMParser& parser, const std::u16string& xmlPath,
                P2ClipRecord& record);

// Ranking a card reads every clip file (the missing-media check) and listing it straight after
// reads them all again, as does the shot completion of the card beside it. So the records of
// the last few CLIP folders read are kept, each with its file's size and modification time;
// a read parses only the files that are new or changed since. A file rewritten with the same
// size within the same microsecond would be missed, which no camera or copy does.
class ClipFolderCache {
public:
    struct Clip {
        std::uint64_t size = 0;
        std::int64_t writeTime = 0;
        std::optional<P2ClipRecord> record;  // none: the file is unreadable
    };
    using Clips = std::map<std::u16string, Clip>;

    // The clips kept for FOLDER (handed over: a concurrent read of it parses again).
    Clips Take(const std::u16string& folder) {
        const std::lock_guard<std::mutex> lock(mMutex);
        for (auto it = mFolders.begin(); it != mFolders.end(); ++it) {
            if (it->first == folder) {
                Clips clips = std::move(it->second);
                mFolders.erase(it);
                return clips;
            }
        }
        return {};
    }

    void Keep(const std::u16string& folder, Clips clips) {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::erase_if(mFolders, [&](const auto& kept) { return kept.first == folder; });
        mFolders.emplace_front(folder, std::move(clips));
        if (mFolders.size() > kFoldersKept)
            mFolders.pop_back();
    }

private:
    static constexpr std::size_t kFoldersKept = 4;
    std::mutex mMutex;
    std::list<std::pair<std::u16string, Clips>> mFolders;  // most recent first
};

ClipFolderCache& TheClipFolderCache() {
    static ClipFolderCache cache;
    return cache;
}

// The records of the clip XML files (".xml", any case) of a CLIP folder, in walk order, hidden
// files and unreadable clips left out.
std::vector<P2ClipRecord> ReadClipFolder(const std::u16string& clipFolder,
                                         const AbortPredicate& abort) {
    std::vector<Platform::DetailedEntry> entries;
    if (!Platform::ReadDirectoryWithDetails(
             Path::ToNative(clipFolder),
             Platform::kDetailSize | Platform::kDetailTimes | Platform::kDetailHidden, entries,
             abort)
             .IsOk())
        return {};
    ClipFolderCache::Clips kept = TheClipFolderCache().Take(clipFolder);
    ClipFolderCache::Clips clips;
    std::vector<P2ClipRecord> records;
    X::OwnedXMLParser parser;
    for (const Platform::DetailedEntry& entry : entries) {
        if (abort())
            return {};
        if (entry.kind != Platform::EntryKind::File || entry.hidden)
            continue;
        std::u16string path = JoinPath(clipFolder, Path::FromNative(entry.name));
        if (!HasXMLExtension(path))
            continue;
        ClipFolderCache::Clip clip{entry.size, entry.lastWriteTime, std::nullopt};
        const auto known = kept.find(path);
        if (entry.detailsKnown && known != kept.end() && known->second.size == clip.size &&
            known->second.writeTime == clip.writeTime) {
            clip.record = std::move(known->second.record);
        } else {
            if (!parser)
                parser = X::NewXMLParser();
            P2ClipRecord record;
            if (parser && ReadRecord(*parser, path, record))
                clip.record = std::move(record);
        }
        if (clip.record)
            records.push_back(*clip.record);
        if (entry.detailsKnown)
            clips.emplace(std::move(path), std::move(clip));
    }
    TheClipFolderCache().Keep(clipFolder, std::move(clips));
    return records;
}

// The name a clip's files carry: its ClipName, or its XML file's name without extension.
std::u16string ClipFileName(const P2ClipRecord& record) {
    return record.clipName.empty() ? Stem(record.xmlPath) : record.clipName;
}

// The card root of a clip XML file: CARD/CONTENTS/CLIP/<clip>.XML.
std::u16string CardRootOf(const std::u16string& xmlPath) {
    return Path::GetParent(Path::GetParent(Path::GetParent(std::u16string_view(xmlPath))));
}

bool ReadFromDocument(xercesc::DOMDocument* document, P2ClipRecord& record) {
    const xercesc::DOMElement* clip =
        X::FindChildElement(document->getDocumentElement(), u"ClipContent");
    X::GetChildString(clip, u"GlobalClipID", record.globalClipID);
    X::GetChildString(clip, u"ClipName", record.clipName);
    const xercesc::DOMElement* relation = X::FindChildElement(clip, u"Relation");
    X::GetChildString(relation, u"GlobalShotID", record.globalShotID);
    X::GetChildString(clip, u"EditUnit", record.editUnit);
    const xercesc::DOMElement* connection = X::FindChildElement(relation, u"Connection");
    const xercesc::DOMElement* top = X::FindChildElement(connection, u"Top");
    const xercesc::DOMElement* next = X::FindChildElement(connection, u"Next");
    const xercesc::DOMElement* previous = X::FindChildElement(connection, u"Previous");
    X::GetChildString(top, u"GlobalClipID", record.topClipID);
    X::GetChildString(next, u"GlobalClipID", record.nextClipID);
    X::GetChildString(next, u"ClipName", record.nextClipName);
    X::GetChildString(previous, u"GlobalClipID", record.previousClipID);
    X::GetChildString(previous, u"ClipName", record.previousClipName);
    X::GetChildUInt(relation, u"OffsetInShot", record.offsetInShot);
    X::GetChildUInt(clip, u"Duration", record.duration);
    const xercesc::DOMElement* essence = X::FindChildElement(clip, u"EssenceList");
    const xercesc::DOMElement* video = X::FindChildElement(essence, u"Video");
    X::GetAttributeBool(X::FindChildElement(video, u"FrameRate"), u"DropFrameFlag",
                        record.dropFrame);
    X::GetChildString(video, u"FrameRate", record.frameRate);
    X::GetChildString(video, u"StartTimecode", record.startTimecode);
    record.hasVideo = video != nullptr;
    for (auto* audio = X::FindChildElement(essence, u"Audio"); audio;
         audio = X::FindNextSiblingElement(audio, u"Audio"))
        ++record.audioChannels;
    return true;
}

// Reads XMLPATH with PARSER, which may have read other files before.
bool ReadRecord(xercesc::XercesDOMParser& parser, const std::u16string& xmlPath,
                P2ClipRecord& record) {
    record = P2ClipRecord();
    record.xmlPath = xmlPath;
    xercesc::DOMDocument* document = nullptr;
    return X::ParseXMLDocument(parser, xmlPath, document) && ReadFromDocument(document, record);
}

// A piece of a shot, and whether it lies on the card being listed.
struct Piece {
    P2ClipRecord record;
    bool onThisCard = false;
};

// Pieces of one shot, as indices into the collection.
using ShotTable = std::map<std::u16string, std::vector<std::size_t>>;

// The shot a clip belongs to: its shot ID, or the clip alone when it has none.
std::u16string ShotKey(const P2ClipRecord& record) {
    if (!record.globalShotID.empty())
        return record.globalShotID;
    return u"clip:" + (record.globalClipID.empty() ? record.xmlPath : record.globalClipID);
}

// A shot is complete when its chain has a start and every link it names is present.
bool IsComplete(const std::vector<Piece>& pieces, const std::vector<std::size_t>& shot) {
    std::set<std::u16string> ids;
    for (std::size_t index : shot)
        ids.insert(pieces[index].record.globalClipID);
    bool hasStart = false;
    for (std::size_t index : shot) {
        const P2ClipRecord& record = pieces[index].record;
        hasStart = hasStart || record.previousClipID.empty();
        for (const std::u16string* link :
             {&record.topClipID, &record.previousClipID, &record.nextClipID}) {
            if (!link->empty() && ids.count(*link) == 0)
                return false;
        }
    }
    return hasStart;
}

bool AllComplete(const std::vector<Piece>& pieces, const ShotTable& shots) {
    return std::all_of(shots.begin(), shots.end(),
                       [&](const auto& shot) { return IsComplete(pieces, shot.second); });
}

// Looks for CONTENTS/<folder>/<name> in each folder it is offered; stops at the first hit.
class P2FileFinder final : public DirVisitor {
public:
    P2FileFinder(std::u16string* result, const std::u16string* wantedName,
                 std::u16string_view folder)
        : mResult(result), mWantedName(wantedName), mFolder(folder) {}

    bool Visit(const Directory& folder) override {
        std::u16string candidate =
            JoinPath(folder.GetFullPath(), kContentsFolder, mFolder, *mWantedName);
        if (!Path::FileExists(std::u16string_view(candidate)))
            return true;
        *mResult = std::move(candidate);
        return false;
    }

private:
    std::u16string* mResult;
    const std::u16string* mWantedName;
    std::u16string_view mFolder;
};

// Reads the clip files of each card it is offered and adds the pieces of the caller's shots;
// stops once every shot is complete.
class ShotCompletingDirVisitor final : public DirVisitor {
public:
    ShotCompletingDirVisitor(std::vector<Piece>* pieces, ShotTable* shots)
        : mPieces(pieces), mShots(shots) {}

    bool Visit(const Directory& folder) override {
        const std::u16string clipFolder =
            JoinPath(folder.GetFullPath(), kContentsFolder, kClipFolder);
        if (!Path::DirectoryExists(std::u16string_view(clipFolder)))
            return true;
        for (P2ClipRecord& record : ReadClipFolder(clipFolder, NeverAbort())) {
            const auto shot = mShots->find(ShotKey(record));
            if (shot == mShots->end() || record.globalClipID.empty())
                continue;
            // A card copied twice must not add its pieces twice.
            const bool known = std::any_of(shot->second.begin(), shot->second.end(), [&](auto i) {
                return (*mPieces)[i].record.globalClipID == record.globalClipID;
            });
            if (known)
                continue;
            shot->second.push_back(mPieces->size());
            mPieces->push_back({std::move(record), false});
        }
        return !AllComplete(*mPieces, *mShots);
    }

private:
    std::vector<Piece>* mPieces;
    ShotTable* mShots;
};

// The contents test of a card's CONTENTS folder; EXTRA is raised by foreign entries.
bool ContentsTest(const std::u16string& contentsPath, bool& extra, const AbortPredicate& abort);

// Whether media the clips of CONTENTS need is missing. A clip needs its video essence,
// VIDEO/<clip>.MXF, when its XML lists video, and one AUDIO/<clip>NN.MXF per audio channel
// it lists (NN from 00), named after the clip's ClipName (else its XML file's name). Names
// are matched case-insensitively, as Windows finds them; proxies, icons and voice memos are
// optional. Unreadable clip files need nothing: they are not listed either.
bool IsMediaMissing(const std::u16string& contentsPath, const AbortPredicate& abort) {
    const auto upperNames = [&](std::u16string_view folder) {
        std::vector<std::u16string> files;
        std::vector<Directory> folders;
        Directory(JoinPath(contentsPath, folder))
            .GetContainedFileAndDirectoryPaths(files, folders, abort)
            .Ignore();
        std::set<std::u16string> names;
        for (const std::u16string& file : files)
            names.insert(Upper(Leaf(file)));
        return names;
    };
    const std::set<std::u16string> video = upperNames(kVideoFolder);
    const std::set<std::u16string> audio = upperNames(kAudioFolder);
    const std::vector<P2ClipRecord> records =
        ReadClipFolder(JoinPath(contentsPath, kClipFolder), abort);
    if (abort())
        return true;
    for (const P2ClipRecord& record : records) {
        const std::u16string name = Upper(ClipFileName(record));
        if (record.hasVideo && video.count(name + std::u16string(kMXFExtension)) == 0)
            return true;
        for (std::uint32_t channel = 0; channel < record.audioChannels; ++channel) {
            const std::u16string suffix = Utf8ToUtf16(fmt::format("{:02d}", channel));
            if (audio.count(name + suffix + std::u16string(kMXFExtension)) == 0)
                return true;
        }
    }
    return false;
}

bool ContentsTest(const std::u16string& contentsPath, bool& extra, const AbortPredicate& abort) {
    const Directory contents(contentsPath);
    if (!contents.Exists())
        return false;
    std::vector<std::u16string> files;
    std::vector<Directory> folders;
    contents.GetContainedFileAndDirectoryPaths(files, folders, abort).Ignore();
    Path::RemoveHiddenFiles(files);
    if (folders.size() <= 4)
        return false;
    unsigned mask = 0;
    for (const Directory& folder : folders) {
        const std::u16string name = Leaf(folder.GetFullPath());
        const auto known = std::find(kRequiredFolders.begin(), kRequiredFolders.end(), name);
        if (known != kRequiredFolders.end())
            mask |= 1u << (known - kRequiredFolders.begin());
        else if (name != kAVClipFolder)
            extra = true;
        // Folders after the last required one are not examined.
        if (mask == kAllRequiredFolders)
            break;
    }
    if (mask != kAllRequiredFolders)
        return false;
    if (!extra) {
        if (files.size() == 1)
            extra = Leaf(files.front()) != kDSStoreFile;
        else if (files.size() > 1)
            extra = true;
    }
    if (!Settings::GetBool(kSettingP2EnableMissingMediaCheck, true))
        return true;
    return !IsMediaMissing(contentsPath, abort);
}

// An entry shown by the extra-contents item.
struct ExtraEntry {
    std::u16string path;
    bool folder = false;
};

// What lies on the card beside the P2 structure, in walk order (see ProviderP2.h).
std::vector<ExtraEntry> ExtraEntries(const std::u16string& cardRoot,
                                     const std::set<std::u16string>& upperClipNames,
                                     const std::function<bool()>& aborted) {
    std::vector<ExtraEntry> entries;
    const auto read = [&](const std::u16string& folder, auto&& keepFolder, auto&& keepFile) {
        std::vector<std::u16string> files;
        std::vector<Directory> folders;
        Directory(folder).GetContainedFileAndDirectoryPaths(files, folders, aborted).Ignore();
        Path::RemoveHiddenFiles(files);
        for (const Directory& sub : folders) {
            const std::u16string name = Leaf(sub.GetFullPath());
            if (!name.starts_with(u'.') && keepFolder(name))
                entries.push_back({sub.GetFullPath(), true});
        }
        for (std::u16string& file : files) {
            if (keepFile(Leaf(file)))
                entries.push_back({std::move(file), false});
        }
    };
    read(
        cardRoot, [](const std::u16string& name) { return name != kContentsFolder; },
        [](const std::u16string& name) { return name != kLastClipFile; });
    const std::u16string contents = JoinPath(cardRoot, kContentsFolder);
    read(
        contents,
        [](const std::u16string& name) {
            return std::find(kP2Folders.begin(), kP2Folders.end(), name) == kP2Folders.end();
        },
        [](const std::u16string& name) { return name != kDSStoreFile; });
    // Files of the P2 folders belong to the clip whose name begins theirs.
    for (std::u16string_view folder : kP2Folders) {
        read(
            JoinPath(contents, folder), [](const std::u16string&) { return true; },
            [&](const std::u16string& name) {
                const std::u16string upper = Upper(name);
                return std::none_of(
                    upperClipNames.begin(), upperClipNames.end(),
                    [&](const std::u16string& clip) { return upper.starts_with(clip); });
            });
    }
    return entries;
}

bool IsExtraContentsPath(const std::string& path) {
    return Path::GetFilePart(std::string_view(path)) == kP2ExtraContentsName &&
           !Path::DirectoryExists(std::string_view(path));
}

// The duration of a shot's pieces, as a timecode at the clips' rate; empty when the rate
// or edit unit cannot be read.
std::string ShotDuration(const std::vector<const P2ClipRecord*>& pieces) {
    const P2ClipRecord& first = *pieces.front();
    const std::string editUnit = Utf16ToUtf8(first.editUnit);
    std::optional<FrameRate> rate = ParseFrameRate(Utf16ToUtf8(first.frameRate), first.dropFrame);
    if (!rate)
        rate = ParseFrameRate(editUnit, first.dropFrame);
    if (!rate || editUnit.empty())
        return {};
    std::uint64_t total = 0;
    for (const P2ClipRecord* piece : pieces) {
        if (piece->editUnit != first.editUnit)
            return {};
        total += piece->duration;
    }
    const auto frames = DurationFrames(std::to_string(total), editUnit, *rate);
    return frames ? FormatTimecode(*frames, *rate) : std::string();
}

void FillShotRecord(SDKPropertyMap& record, const std::vector<const P2ClipRecord*>& pieces,
                    const std::string& key, const SDKFieldSet& fields, XMPValueReader& reader,
                    const XMPFieldSet& metadataFields) {
    const P2ClipRecord& top = *pieces.front();
    if (fields.count(kSDKNameField))
        record[kSDKNameField] = ClipFileName(top);
    if (fields.count(kSDKPathField))
        record[kSDKPathField] = Utf8ToUtf16(key);
    // The thumbnail request carries the first entry: the top clip.
    any_regular_t::array_t xmlPaths;
    for (const P2ClipRecord* piece : pieces)
        xmlPaths.emplace_back(piece->xmlPath);
    record[kSDKExtraPathField] = any_regular_t(std::move(xmlPaths));
    if (metadataFields.none())
        return;
    for (auto& [name, value] : reader.Read(Utf16ToUtf8(top.xmlPath), std::string()))
        record[name] = std::move(value);
    if (fields.count("startTimecode")) {
        record.erase("startTimecode");
        if (std::string start = P2DisplayStartTimecode(top); !start.empty())
            record["startTimecode"] = Utf8ToUtf16(start);
    }
    if (fields.count("duration")) {
        if (std::string duration = ShotDuration(pieces); !duration.empty())
            record["duration"] = Utf8ToUtf16(duration);
    }
}

// The request's abort as a predicate that, once it has seen the abort, keeps answering true
// (asking the request consumes its flag).
AbortPredicate StickyAbort(ProviderRequest* request) {
    return [request, seen = false]() mutable {
        seen = seen || IsRequestAborted(request);
        return seen;
    };
}

SDKContentMap ListExtraContents(const std::string& path, const SDKFieldSet& fields,
                                ProviderRequest* request) {
    const std::u16string cardRoot = Path::GetParent(std::u16string_view(Utf8ToUtf16(path)));
    std::set<std::u16string> clipNames;
    const AbortPredicate aborted = StickyAbort(request);
    for (const P2ClipRecord& record :
         ReadClipFolder(JoinPath(cardRoot, kContentsFolder, kClipFolder), aborted))
        clipNames.insert(Upper(ClipFileName(record)));
    SDKContentMap content;
    const std::vector<ExtraEntry> entries = ExtraEntries(cardRoot, clipNames, aborted);
    if (aborted())
        return {};
    for (const ExtraEntry& entry : entries) {
        SDKPropertyMap& record = content[Utf16ToUtf8(entry.path)];
        CardFieldLists::FillEntryRecord(record, entry.path, entry.folder, fields);
        if (!entry.folder)
            record[kSDKExtraPathField] = std::string(kP2NonP2FileMarker);
    }
    return content;
}

}  // namespace

bool ReadP2ClipRecordFromBytes(const std::string& bytes, const std::u16string& xmlPath,
                               P2ClipRecord& record) {
    record = P2ClipRecord();
    record.xmlPath = xmlPath;
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLBytes(*parser, bytes, xmlPath, document) &&
           ReadFromDocument(document, record);
}

bool ReadP2ClipRecord(const std::u16string& xmlPath, P2ClipRecord& record) {
    X::OwnedXMLParser parser = X::NewXMLParser();
    record = P2ClipRecord();
    record.xmlPath = xmlPath;
    return parser && ReadRecord(*parser, xmlPath, record);
}

std::string P2DisplayStartTimecode(const P2ClipRecord& record) {
    const std::string start = Utf16ToUtf8(record.startTimecode);
    if (start.find_first_not_of(" \t") == std::string::npos)
        return {};
    // The camera counts frames of 50p and 59.94p in pairs, as its display shows them.
    const auto rate = ParseFrameRate(Utf16ToUtf8(record.frameRate), record.dropFrame);
    return NormalizeTimecode(start, rate && rate->dropFrame);
}

bool ProviderP2::CardTest(DirectoryContents& contents, bool& extraContents,
                          const AbortPredicate& abort) {
    extraContents = false;
    const std::vector<Directory>& folders = contents.GetDirectoryList(abort);
    if (folders.empty())
        return false;
    const std::vector<std::u16string>& files = contents.GetFileList(abort);
    bool sawContents = false, sawDesktop = false;
    std::u16string contentsPath;
    for (const Directory& folder : folders) {
        const std::u16string name = Leaf(folder.GetFullPath());
        if (name == kContentsFolder) {
            sawContents = true;
            contentsPath = folder.GetFullPath();
        } else if (name == kDesktopFolder) {
            sawDesktop = true;
        } else if (!name.starts_with(u'.')) {
            extraContents = true;
        }
        if (sawContents && sawDesktop)
            break;
    }
    if (!sawContents)
        return false;
    if (!files.empty()) {
        const bool lastClip = std::any_of(files.begin(), files.end(), [](const auto& file) {
            return Leaf(file) == kLastClipFile;
        });
        extraContents = !lastClip || files.size() > 1;
    }
    bool contentsExtra = false;
    if (!ContentsTest(contentsPath, contentsExtra, abort))
        return false;
    extraContents = extraContents || contentsExtra;
    return true;
}

int ProviderP2::CanProvideFor(const std::string& path, const any_regular_t&,
                              DirectoryContents& contents, const AbortPredicate& abort) {
    // The card's own extra-contents item names no folder on disk; it belongs to the card.
    if (!path.empty() && IsExtraContentsPath(path)) {
        DirectoryContents card(Path::GetParent(std::u16string_view(Utf8ToUtf16(path))));
        bool extra = false;
        return card.IsDirectory() && CardTest(card, extra, abort) ? kCleanCardScore : 0;
    }
    if (path.empty() || !contents.IsDirectory())
        return 0;
    bool extra = false;
    if (!CardTest(contents, extra, abort))
        return 0;
    return extra ? kCardWithExtraContentsScore : kCleanCardScore;
}

SDKContentMap ProviderP2::GetContent(const std::string& path, const any_regular_t&,
                                     const SDKFieldSet& fields, ProviderRequest* request) {
    const TraceTimer timer;
    SDKContentMap content;
    if (IsExtraContentsPath(path)) {
        content = ListExtraContents(path, fields, request);
    } else if (!path.empty()) {
        const std::u16string cardRoot = Path::StripTrailingSeparator(Utf8ToUtf16(path));
        const AbortPredicate aborted = StickyAbort(request);
        std::vector<Piece> pieces;
        ShotTable shots;
        std::set<std::u16string> clipNames;
        // Unreadable clip files are not listed.
        for (P2ClipRecord& record :
             ReadClipFolder(JoinPath(cardRoot, kContentsFolder, kClipFolder), aborted)) {
            clipNames.insert(Upper(ClipFileName(record)));
            shots[ShotKey(record)].push_back(pieces.size());
            pieces.push_back({std::move(record), true});
        }
        if (!AllComplete(pieces, shots)) {
            ShotCompletingDirVisitor visitor(&pieces, &shots);
            CardPathUtils::VisitSiblingDirectories(Utf16ToUtf8(cardRoot), visitor);
        }
        if (aborted())
            return {};

        const XMPFieldSet metadataFields = ParseFields(fields) & XMPBackedFields();
        XMPValueReader reader(metadataFields);
        for (auto& [key, indices] : shots) {
            if (aborted())
                return {};
            std::sort(indices.begin(), indices.end(), [&](std::size_t a, std::size_t b) {
                const P2ClipRecord &x = pieces[a].record, &y = pieces[b].record;
                return x.offsetInShot != y.offsetInShot ? x.offsetInShot < y.offsetInShot
                                                        : x.globalClipID < y.globalClipID;
            });
            std::vector<const P2ClipRecord*> ordered;
            const P2ClipRecord* firstHere = nullptr;
            for (std::size_t index : indices) {
                ordered.push_back(&pieces[index].record);
                if (!firstHere && pieces[index].onThisCard)
                    firstHere = &pieces[index].record;
            }
            const std::string itemPath = Utf16ToUtf8(firstHere->xmlPath);
            FillShotRecord(content[itemPath], ordered, itemPath, fields, reader, metadataFields);
        }
        if (!ExtraEntries(cardRoot, clipNames, aborted).empty()) {
            const std::u16string extraPath = JoinPath(cardRoot, Utf8ToUtf16(kP2ExtraContentsName));
            SDKPropertyMap& record = content[Utf16ToUtf8(extraPath)];
            if (fields.count(kSDKNameField))
                record[kSDKNameField] = Utf8ToUtf16(kP2ExtraContentsName);
            if (fields.count(kSDKPathField))
                record[kSDKPathField] = extraPath;
            record[kSDKDirectoryFlagField] = true;
        }
        if (aborted())
            return {};
    }
    if (Trace::IsEnabled(kTraceCategory)) {
        Trace::Write(kTraceCategory, fmt::format("GetContents took {} ms for path: {}",
                                                 static_cast<long long>(timer.Milliseconds()),
                                                 ToDisplayUtf8(path)));
    }
    return content;
}

std::string ProviderP2::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderP2";
}

std::string ProviderP2::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/PanasonicP2UIString=Panasonic P2");
}

std::uint32_t ProviderP2::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return requestedHeight;
}

PelPixHandle ProviderP2::GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                                      const any_regular_t&, std::uint32_t width,
                                      std::uint32_t height, ProviderRequest* request) {
    if (itemPath.empty() || IsRequestAborted(request) || IsExtraContentsPath(itemPath))
        return nullptr;
    const std::uint32_t thumbnailHeight = GetMaximumThumbnailHeight(height);
    // A file beside the clips is drawn from itself, when it is an image.
    if (extraPath == kP2NonP2FileMarker)
        return RenderThumbnail(itemPath, width, thumbnailHeight);

    const std::u16string item = Utf8ToUtf16(itemPath);
    if (!HasXMLExtension(item))
        return nullptr;
    const std::u16string cardRoot = CardRootOf(item);
    const std::u16string wanted =
        Stem(extraPath.empty() ? item : Utf8ToUtf16(extraPath)) + std::u16string(kBitmapExtension);
    std::u16string found = JoinPath(cardRoot, kContentsFolder, kIconFolder, wanted);
    if (!Path::FileExists(std::u16string_view(found))) {
        found.clear();
        P2FileFinder finder(&found, &wanted, kIconFolder);
        CardPathUtils::VisitSiblingDirectories(Utf16ToUtf8(cardRoot), finder);
    }
    if (found.empty() || IsRequestAborted(request))
        return nullptr;
    return RenderThumbnail(Utf16ToUtf8(found), width, thumbnailHeight);
}

bool ProviderP2::ShouldCheckFilter() {
    return false;
}

bool ProviderP2::IsSelectable() {
    return true;
}

}  // namespace Tessel
