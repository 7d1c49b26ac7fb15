#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <list>
#include <numeric>
#include <optional>
#include <type_traits>
#include <unordered_map>

#include <fmt/format.h>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/platform/ShellLinks.h>
#include <tessel/providers/filesystem/ProjectLockFile.h>
#include <tessel/thumbnails/FileIconThumbnail.h>

namespace Tessel {

namespace {

const std::string_view kDisplayNameSetting = Settings::DeclareKey(kSettingUseFileSystemDisplayName);

namespace P = Platform;

const std::string_view kTraceCategory = Trace::DeclareCategory("WinProviderDirectory");
constexpr const char* kLabelPrefix = "$$$/Pelimar/Provider/WinDirectory/Column/";
constexpr const char* kProjectExtension = ".plproj";

// The bits of the column table.
enum Column : unsigned {
    kName,
    kPath,
    kExtraPath,
    kFilePath,
    kArchive,
    kCompressed,
    kDevice,
    kDirectory,
    kEncrypted,
    kHidden,
    kNormalFile,
    kNotContentIndexed,
    kOffline,
    kReadOnly,
    kReparsePoint,
    kSparseFile,
    kSystem,
    kTemporary,
    kAlternativeFileName,
    kCreationDate,
    kLastAccessDate,
    kLastWriteDate,
    kSize,
    kMediaStart,
    kTapeName,
    kDescription,
    kScene,
    kShot,
    kLogComment,
    kProjectLocked,
    kColumnCount,
};
static_assert(kColumnCount == kWinDirectoryColumnCount);
static_assert(kColumnCount <= 32, "a listing's field set is one 32-bit word");

// The column table. Each row names its column, and the rows must stand in the order of the
// columns, since a row's position is its column's bit: checked below when compiled. A key is
// named by the address of its constant, which the compiler knows even of the exported keys.
struct ColumnRow {
    Column column;
    const char* const* key;
    const char* labelId;
    const char* englishLabel;
};

using W = WinProviderDirectory;
constexpr ColumnRow kColumnRows[] = {
    {kName, &kSDKNameField, "Name", "Name"},
    {kPath, &kSDKPathField, "ActualPath", "UNC Path"},
    {kExtraPath, &kSDKExtraPathField, "ExtraPath", "Additional UNC Path"},
    {kFilePath, &W::kFilePathField, "DisplayFilePath", "File Path"},
    {kArchive, &W::kArchiveField, "Archive", "Archive"},
    {kCompressed, &W::kCompressedField, "Compressed", "Compressed"},
    {kDevice, &W::kDeviceField, "Device", "Device"},
    {kDirectory, &kSDKDirectoryFlagField, "Directory", "Directory"},
    {kEncrypted, &W::kEncryptedField, "Encrypted", "Encrypted"},
    {kHidden, &W::kHiddenField, "Hidden", "Hidden"},
    {kNormalFile, &W::kNormalFileField, "NormalFile", "Normal File"},
    {kNotContentIndexed, &W::kNotContentIndexedField, "NotContentIndexed", "Not Content Indexed"},
    {kOffline, &W::kOfflineField, "Offline", "Offline"},
    {kReadOnly, &W::kReadOnlyField, "ReadOnly", "Read-Only"},
    {kReparsePoint, &W::kReparsePointField, "ReparsePoint", "Reparse Point"},
    {kSparseFile, &W::kSparseFileField, "SparseFile", "Sparse File"},
    {kSystem, &W::kSystemField, "System", "System"},
    {kTemporary, &W::kTemporaryField, "Temporary", "Temporary"},
    {kAlternativeFileName, &W::kAlternativeFileNameField, "AlternativeFileName",
     "Alternative File Name"},
    {kCreationDate, &kSDKCreationDateField, "CreationDate", "Date Created"},
    {kLastAccessDate, &W::kLastAccessDateField, "LastAccessDate", "Date Last Accessed"},
    {kLastWriteDate, &W::kLastWriteDateField, "LastWriteDate", "Date Last Written"},
    {kSize, &W::kSizeField, "Size", "Size"},
    {kMediaStart, &W::kMediaStartField, "MediaStart", "Media Start"},
    {kTapeName, &W::kTapeNameField, "TapeName", "Tape Name"},
    {kDescription, &W::kDescriptionField, "Description", "Description"},
    {kScene, &W::kSceneField, "Scene", "Scene"},
    {kShot, &W::kShotField, "Shot", "Shot"},
    {kLogComment, &W::kLogCommentField, "LogComment", "Log Comment"},
    {kProjectLocked, &W::kProjectLockedField, "ProjectLocked", "Project Locked"},
};
static_assert(std::size(kColumnRows) == kColumnCount, "one row per column");
static_assert(
    [] {
        for (std::size_t i = 0; i < std::size(kColumnRows); ++i) {
            if (kColumnRows[i].column != i)
                return false;
        }
        return true;
    }(),
    "each row stands at its column's bit");

using ColumnSet = std::uint32_t;

constexpr ColumnSet Bit(Column column) {
    return ColumnSet{1} << column;
}

// The attribute columns: the attribute bit each tests and what it shows when set.
struct AttributeColumn {
    Column column;
    std::uint32_t attribute;
    const char16_t* text;
};

constexpr AttributeColumn kAttributeColumns[] = {
    {kArchive, P::kFileAttributeArchive, u"A"},
    {kCompressed, P::kFileAttributeCompressed, u"C"},
    {kDevice, P::kFileAttributeDevice, u"Device"},
    {kDirectory, P::kFileAttributeDirectory, u"D"},
    {kEncrypted, P::kFileAttributeEncrypted, u"Encrypted"},
    {kHidden, P::kFileAttributeHidden, u"H"},
    {kNormalFile, P::kFileAttributeNormal, u"Normal"},
    {kNotContentIndexed, P::kFileAttributeNotContentIndexed, u"Not Content Indexed"},
    {kOffline, P::kFileAttributeOffline, u"Offline"},
    {kReadOnly, P::kFileAttributeReadOnly, u"R"},
    {kReparsePoint, P::kFileAttributeReparsePoint, u"Reparse Point"},
    {kSparseFile, P::kFileAttributeSparseFile, u"Sparse File"},
    {kSystem, P::kFileAttributeSystem, u"S"},
    {kTemporary, P::kFileAttributeTemporary, u"Temporary"},
};

constexpr bool kWindowsRecords = Path::kNativePathStyle == Path::PathStyle::Windows;

// The attribute columns that need an entry's attributes. On POSIX they cost a stat per entry,
// so only the columns that can show something ask: Directory and Reparse Point come from the
// directory read itself, Hidden, System and Device are never set on a listed entry, and
// Temporary, Offline and Not Content Indexed never on POSIX. Windows has all of them (Archive
// to Temporary) in the find record.
constexpr ColumnSet kStatAttributeColumns =
    kWindowsRecords ? ((Bit(kTemporary) << 1) - Bit(kArchive))
                    : Bit(kArchive) | Bit(kCompressed) | Bit(kEncrypted) | Bit(kNormalFile) |
                          Bit(kReadOnly) | Bit(kSparseFile);
constexpr ColumnSet kDateColumns = Bit(kCreationDate) | Bit(kLastAccessDate) | Bit(kLastWriteDate);

// The metadata columns and the XMP fields each reads. Media Start and Tape Name read two: the
// clip's own value, then the alternative that tools write when a clip was re-timed or
// re-captured (xmpDM:altTimecode, xmpDM:altTapeName), which replaces it when not empty.
struct MetadataColumn {
    Column column;
    const char* field;
    const char* alternative;  // nullptr: one value only
};

constexpr MetadataColumn kMetadataColumns[] = {
    {kMediaStart, "startTimecode", "altTimecode"},
    {kTapeName, "tapeName", "altTapeName"},
    {kDescription, "description", nullptr},
    {kScene, "scene", nullptr},
    {kShot, "shotName", nullptr},
    {kLogComment, "logComment", nullptr},
};

constexpr ColumnSet kMetadataColumnSet = [] {
    ColumnSet set = 0;
    for (const MetadataColumn& metadata : kMetadataColumns)
        set |= Bit(metadata.column);
    return set;
}();

// Progress is reported once per this many records.
constexpr std::size_t kProgressInterval = 4096;

// The display-name switch with the settings change count it was read at: bit 0 holds the
// value, the bits above the count plus one (0: never read). One atomic word, so that two
// listings racing to refresh it store consistent pairs.
std::atomic<std::uint64_t> gDisplayNameSwitch{0};

bool UseFileSystemDisplayName() {
    const std::uint64_t count = Settings::ChangeCount();
    const std::uint64_t cached = gDisplayNameSwitch.load(std::memory_order_relaxed);
    if ((cached >> 1) == count + 1)
        return (cached & 1) != 0;
    // The count is read before the value: a change in between leaves an older count
    // beside the newer value, which only costs one more read next time.
    const bool on = Settings::GetBool(kDisplayNameSetting, false);
    gDisplayNameSwitch.store(((count + 1) << 1) | (on ? 1 : 0), std::memory_order_relaxed);
    return on;
}

// The column keys as std::string, and the columns in the order of their keys, so that a
// record is filled front to back.
struct ColumnKeys {
    std::array<std::string, kWinDirectoryColumnCount> keys;
    std::array<std::u16string, kWinDirectoryColumnCount> wideKeys;  // the host's form
    std::array<Column, kWinDirectoryColumnCount> keyOrder;
};

const ColumnKeys& GetColumnKeys() {
    static const ColumnKeys columnKeys = [] {
        ColumnKeys made;
        for (std::size_t i = 0; i < kWinDirectoryColumnCount; ++i) {
            made.keys[i] = WinDirectoryColumns()[i].key;
            made.wideKeys[i] = Utf8ToUtf16(made.keys[i]);
            made.keyOrder[i] = static_cast<Column>(i);
        }
        std::sort(made.keyOrder.begin(), made.keyOrder.end(),
                  [&](Column a, Column b) { return made.keys[a] < made.keys[b]; });
        return made;
    }();
    return columnKeys;
}

// ASCII text (dates) as UTF-16, without a general conversion.
std::u16string Widen(std::string_view ascii) {
    return std::u16string(ascii.begin(), ascii.end());
}

// Names and paths as the host's strings. They are nearly always ASCII, which widens unit for
// unit; the general conversion (with its escapes for bytes that are not UTF-8) does the rest.
std::u16string ToHostString(std::string_view utf8) {
    const bool ascii = std::all_of(utf8.begin(), utf8.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return ascii ? Widen(utf8) : Utf8ToUtf16(utf8);
}

// The date columns' text. Formatting a local time is costly next to everything else a record
// takes, and the entries of one folder often share their second (they were copied or made
// together), so the text of the last second is kept and only the milliseconds change.
class DateFormatter {
public:
    std::u16string Format(std::int64_t microsecondsSinceEpoch) {
        constexpr std::int64_t kPerSecond = 1000000;
        constexpr std::int64_t kLimit = std::numeric_limits<std::int64_t>::max() / kPerSecond - 1;
        std::int64_t second = microsecondsSinceEpoch / kPerSecond;
        if (microsecondsSinceEpoch % kPerSecond < 0)
            --second;  // floor, so times before 1970 keep a positive millisecond part
        if (second > kLimit || second < -kLimit)
            return {};  // hundreds of thousands of years away: no date to show
        if (second != mSecond || !mKnown) {
            // "YYYY-MM-DD HH:MM:SS.000" without its milliseconds; empty when not convertible.
            std::string whole = P::FormatLocalTime(second * kPerSecond);
            mPrefix =
                Widen(std::string_view(whole).substr(0, whole.empty() ? 0 : whole.size() - 3));
            mSecond = second;
            mKnown = true;
        }
        if (mPrefix.empty())
            return {};
        const auto milliseconds =
            static_cast<int>((microsecondsSinceEpoch - second * kPerSecond) / 1000);
        std::u16string text;
        text.reserve(mPrefix.size() + 3);
        text.append(mPrefix);
        text.push_back(static_cast<char16_t>(u'0' + milliseconds / 100));
        text.push_back(static_cast<char16_t>(u'0' + milliseconds / 10 % 10));
        text.push_back(static_cast<char16_t>(u'0' + milliseconds % 10));
        return text;
    }

private:
    bool mKnown = false;
    std::int64_t mSecond = 0;
    std::u16string mPrefix;
};

// What one listing needs to fill each record.
struct ListingPlan {
    ColumnSet columns = 0;
    bool displayNames = false;
    std::string prefix;  // the folder path with its separator, the start of every item path
    // The XMP fields the metadata columns asked for read, and their reader.
    XMPFieldSet metadataFields;
    std::optional<XMPValueReader> metadataReader;
    // The folder's XMP sidecars by the lower-cased name of the media they describe.
    std::unordered_map<std::string, std::string> sidecars;
    DateFormatter creationDates, accessDates, writeDates;
};

// An entry's name as UTF-8. POSIX names are bytes already and are used in place; names of
// other systems are converted into STORAGE, which the caller has made large enough that it
// never moves. A Windows name longer than any file system allows (260 units) is taken as
// empty, and its entry is still recorded.
// The longest name a Windows file system gives an entry, in UTF-16 units.
constexpr std::size_t kLongestName = 260;

template <class NativeName>
std::string_view Utf8Name(const NativeName& name, std::vector<std::string>& storage) {
    if constexpr (std::is_same_v<NativeName, std::string>) {
        return name;
    } else {
        if (name.size() > kLongestName)
            return storage.emplace_back();
        return storage.emplace_back(Path::FromNativeUtf8(name));
    }
}

// An entry's name in UTF-16, as the walk order compares it.
template <class NativeName>
std::u16string Utf16Name(const NativeName& name) {
    if constexpr (std::is_same_v<NativeName, std::string>) {
        return ToHostString(name);
    } else {
        return Path::FromNative(name);
    }
}

// The 8.3 short name of a find record as the host's string; "" when there is none.
std::u16string ShortNameText(const P::NativeString& shortName) {
    return shortName.size() > kLongestName ? std::u16string() : Path::FromNative(shortName);
}

// The key of the sidecar of the file NAME (and of a sidecar named NAME): its name without the
// extension, lower-cased, as sidecars are matched on Windows.
std::string SidecarKey(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    return AsciiLower(name.substr(0, dot == 0 ? name.size() : dot));
}

XMPFieldSet MetadataFieldsOf(ColumnSet columns) {
    SDKFieldSet names;
    for (const MetadataColumn& metadata : kMetadataColumns) {
        if (columns & Bit(metadata.column)) {
            names.insert(metadata.field);
            if (metadata.alternative)
                names.insert(metadata.alternative);
        }
    }
    return ParseFields(names);
}

// The XMP values of one listed entry, read with its sidecar from the folder's names.
SDKPropertyMap ReadMetadata(const P::DetailedEntry& entry, std::string_view name,
                            const std::string& itemPath, ListingPlan& plan) {
    const bool inFolder = itemPath.size() == plan.prefix.size() + name.size() &&
                          itemPath.compare(0, plan.prefix.size(), plan.prefix) == 0;
    if (!inFolder)
        return MakeValue(itemPath, plan.metadataFields);  // a shell link's target, elsewhere
    if (entry.kind != P::EntryKind::File)
        return {};
    const auto sidecar = plan.sidecars.find(SidecarKey(name));
    return plan.metadataReader->Read(
        itemPath, sidecar == plan.sidecars.end() ? std::string() : plan.prefix + sidecar->second);
}

std::u16string MetadataText(const SDKPropertyMap& values, const char* field) {
    if (field == nullptr)
        return {};
    const auto found = values.find(field);
    const std::u16string* text =
        found == values.end() ? nullptr : found->second.get_if<std::u16string>();
    return text ? *text : std::u16string();
}

// Fills RECORD, a record of the provider (SDKPropertyMap) or of the host (PropertyMap).
template <class Record>
void FillRecord(Record& record, const P::DetailedEntry& entry, std::string_view name,
                const std::string& itemPath, ListingPlan& plan) {
    const ColumnKeys& columnKeys = GetColumnKeys();
    std::uint32_t attributes = entry.attributes;
    if (entry.kind == P::EntryKind::Directory)
        attributes |= P::kFileAttributeDirectory;
    if (entry.isLink)
        attributes |= P::kFileAttributeReparsePoint;
    std::u16string widePath;
    if (plan.columns & (Bit(kPath) | Bit(kFilePath)))
        widePath = ToHostString(itemPath);
    std::optional<SDKPropertyMap> metadata;  // read at the first metadata column

    for (const Column column : columnKeys.keyOrder) {
        if ((plan.columns & Bit(column)) == 0)
            continue;
        any_regular_t value;
        switch (column) {
            case kName: {
                // The file part of the item path is the entry's name.
                std::u16string wide = ToHostString(name);
                value = plan.displayNames ? ToDisplayUtf16(wide) : std::move(wide);
                break;
            }
            case kPath:
                value = std::move(widePath);  // its last use: "02" sorts before "Path"
                break;
            case kExtraPath:
                value = std::u16string();
                break;
            case kAlternativeFileName:
                value = ShortNameText(entry.shortName);
                break;
            case kFilePath:
                if constexpr (Path::kNativePathStyle == Path::PathStyle::Posix) {
                    value = widePath;  // POSIX paths show as they are
                } else {
                    value = Path::ToDisplayFilePath(Path::kNativePathStyle, widePath);
                }
                break;
            case kCreationDate:
                value = entry.detailsKnown && entry.creationTime
                            ? plan.creationDates.Format(*entry.creationTime)
                            : std::u16string();
                break;
            case kLastAccessDate:
                value = entry.detailsKnown ? plan.accessDates.Format(entry.lastAccessTime)
                                           : std::u16string();
                break;
            case kLastWriteDate:
                value = entry.detailsKnown ? plan.writeDates.Format(entry.lastWriteTime)
                                           : std::u16string();
                break;
            case kSize:
                if (entry.detailsKnown) {
                    // The find record's size as it is; on POSIX folders and links show 0, as
                    // a Windows find record has it for them.
                    const bool noData =
                        !kWindowsRecords && (entry.isLink || entry.kind == P::EntryKind::Directory);
                    value = Provider::ByteSize_t(noData ? 0 : entry.size);
                }
                break;
            case kProjectLocked: {
                std::u16string holder;
                if (name.ends_with(kProjectExtension)) {
                    if (const auto lock = ReadProjectLockFile(itemPath)) {
                        holder = ToHostString(lock->holder);
                    }
                }
                value = std::move(holder);
                break;
            }
            case kMediaStart:
            case kTapeName:
            case kDescription:
            case kScene:
            case kShot:
            case kLogComment:
                if (!metadata)
                    metadata = ReadMetadata(entry, name, itemPath, plan);
                for (const MetadataColumn& metadataColumn : kMetadataColumns) {
                    if (metadataColumn.column != column)
                        continue;
                    std::u16string alternative =
                        MetadataText(*metadata, metadataColumn.alternative);
                    value = alternative.empty() ? MetadataText(*metadata, metadataColumn.field)
                                                : std::move(alternative);
                }
                break;
            default:
                for (const AttributeColumn& attribute : kAttributeColumns) {
                    if (attribute.column == column) {
                        value = std::u16string((attributes & attribute.attribute) ? attribute.text
                                                                                  : u"");
                        break;
                    }
                }
                break;
        }
        if (!value.empty()) {
            if constexpr (std::is_same_v<Record, PropertyMap>)
                record.emplace_hint(record.end(), columnKeys.wideKeys[column], std::move(value));
            else
                record.emplace_hint(record.end(), columnKeys.keys[column], std::move(value));
        }
    }
}

}  // namespace

const std::array<WinDirectoryColumn, kWinDirectoryColumnCount>& WinDirectoryColumns() {
    static const std::array<WinDirectoryColumn, kWinDirectoryColumnCount> columns = [] {
        std::array<WinDirectoryColumn, kWinDirectoryColumnCount> made{};
        for (std::size_t i = 0; i < made.size(); ++i) {
            const ColumnRow& row = kColumnRows[i];
            made[i] = {*row.key, row.labelId, row.englishLabel};
        }
        return made;
    }();
    return columns;
}

WinProviderDirectory::WinProviderDirectory() = default;
WinProviderDirectory::~WinProviderDirectory() = default;

bool WinProviderDirectory::IsValidDirectoryPath(const std::string& path) {
    return Path::IsValidDirectoryPath(std::string_view(path));
}

bool WinProviderDirectory::IsListedEntry(const P::DirectoryEntry& entry) {
    if (entry.hidden || entry.device)
        return false;
    // A link is listed whatever it points at (a dangling or looping link included), as
    // Windows lists a reparse point itself.
    return entry.kind != P::EntryKind::Other || entry.isLink;
}

SDKContentMap WinProviderDirectory::GetContent(const std::string& path, const any_regular_t&,
                                               const SDKFieldSet& fields,
                                               ProviderRequest* request) {
    return ListFolder<SDKContentMap>(path, fields, request);
}

std::optional<ContentMap> WinProviderDirectory::GetHostContent(const std::u16string& path,
                                                               const any_regular_t&,
                                                               const FieldSet& fields,
                                                               ProviderRequest* request) {
    SDKFieldSet narrowFields;
    for (const auto& field : fields)
        narrowFields.insert(Utf16ToUtf8(field));
    return ListFolder<ContentMap>(Utf16ToUtf8(path), narrowFields, request);
}

template <class Listing>
Listing WinProviderDirectory::ListFolder(const std::string& path, const SDKFieldSet& fields,
                                         ProviderRequest* request) {
    if (!IsValidDirectoryPath(path))
        return {};
    const TraceTimer timer;
    const std::uint64_t statsBefore = P::EntryStatCount();

    ListingPlan plan;
    const auto& columns = WinDirectoryColumns();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (fields.count(columns[i].key) != 0)
            plan.columns |= Bit(static_cast<Column>(i));
    }
    if (plan.columns & Bit(kName))
        plan.displayNames = UseFileSystemDisplayName();
    plan.prefix = Path::AddTrailingSeparator(std::string_view(path));

    // Hidden entries are skipped whatever is asked, so the DOS hidden bit is always wanted;
    // everything else costs a stat per entry and is asked only for the columns that show it.
    P::EntryDetails details = P::kDetailHidden;
    if (plan.columns & kStatAttributeColumns)
        details |= P::kDetailAttributes;
    if (plan.columns & Bit(kSize))
        details |= P::kDetailSize;
    if (plan.columns & kDateColumns)
        details |= P::kDetailTimes;
    if (plan.columns & Bit(kAlternativeFileName))
        details |= P::kDetailShortName;

    const P::NativeString nativePath = Path::ToNative(std::string_view(path));
    bool readAborted = false;
    std::vector<P::DetailedEntry> entries;
    const Status read = P::ReadDirectoryWithDetails(nativePath, details, entries, [&] {
        readAborted = readAborted || IsRequestAborted(request);
        return readAborted;
    });
    if (!read.IsOk()) {
        if (Trace::IsEnabled(kTraceCategory))
            Trace::Write(kTraceCategory, ToDisplayUtf8(read.Message()));
        NotifyGetContentUnavailable(Utf8ToUtf16(path));
        return {};
    }

    // The entries in walk order: NTFS order, in which Windows reads a folder.
    struct Listed {
        std::string_view name;
        const P::DetailedEntry* entry;
    };
    std::vector<Listed> listed;
    std::vector<std::string> convertedNames;
    listed.reserve(entries.size());
    convertedNames.reserve(std::is_same_v<P::NativeString, std::string> ? 0 : entries.size());
    bool anyShellLink = false;
    for (const P::DetailedEntry& entry : entries) {
        if (!IsListedEntry(entry))
            continue;
        listed.push_back({Utf8Name(entry.name, convertedNames), &entry});
        anyShellLink =
            anyShellLink || (entry.kind == P::EntryKind::File && P::IsShellLinkName(entry.name));
    }
    // The walk order decides only which of the items that share a path is kept, and only a
    // shell link's target can share one: without links the order of the read will do.
    std::vector<std::size_t> walkOrder;
    if (anyShellLink) {
        std::vector<std::u16string> sortNames;
        sortNames.reserve(listed.size());
        for (const Listed& item : listed)
            sortNames.push_back(Utf16Name(item.entry->name));
        walkOrder = NtfsOrderOf(sortNames);
    } else {
        // Every item path is the folder's prefix and a name of its own, and the records go
        // into the map in path order: sorted by name now, the items are made in that order.
        std::sort(listed.begin(), listed.end(),
                  [](const Listed& a, const Listed& b) { return a.name < b.name; });
        walkOrder.resize(listed.size());
        std::iota(walkOrder.begin(), walkOrder.end(), std::size_t{0});
    }

    // The metadata columns find each file's sidecar among the names read, not on disk.
    if (plan.columns & kMetadataColumnSet) {
        plan.metadataFields = MetadataFieldsOf(plan.columns);
        plan.metadataReader.emplace(plan.metadataFields);
        for (const Listed& item : listed) {
            if (item.entry->kind == P::EntryKind::File &&
                Path::GetExtensionLower(item.name) == ".xmp")
                plan.sidecars.emplace(SidecarKey(item.name), std::string(item.name));
        }
    }

    // Each entry's item path, in walk order: its own path, or a shell link's target.
    struct Item {
        std::string path;
        std::string targetName;  // the leaf of a shell link's target
        const Listed* listed;
    };
    std::vector<Item> items;
    items.reserve(listed.size());
    bool abortedWhileListing = false;
    for (const std::size_t position : walkOrder) {
        // An abort during the read already ended it; the entries it got are all recorded.
        if (!readAborted && IsRequestAborted(request)) {
            abortedWhileListing = true;
            break;
        }
        const Listed& entry = listed[position];
        Item& item = items.emplace_back();
        item.listed = &entry;
        if (entry.entry->kind == P::EntryKind::File && P::IsShellLinkName(entry.entry->name)) {
            P::NativeString link = nativePath;
            if (link.back() != P::kNativeSeparator)
                link.push_back(P::kNativeSeparator);
            link.append(entry.entry->name);
            if (const auto target = P::ReadShellLinkTarget(link)) {
                item.path = Path::FromNativeUtf8(*target);
                item.targetName = Path::GetFilePart(std::string_view(item.path));
            }
        }
        if (item.path.empty()) {
            item.path.reserve(plan.prefix.size() + entry.name.size());
            item.path.append(plan.prefix).append(entry.name);
        }
    }
    // Records go into the map in key order, each at its end. Of the items that share a path
    // the one latest in walk order is kept, as if each had replaced the one before.
    if (anyShellLink) {
        std::stable_sort(items.begin(), items.end(),
                         [](const Item& a, const Item& b) { return a.path < b.path; });
    }

    Listing content;
    std::u16string widePath;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!readAborted && !abortedWhileListing && IsRequestAborted(request))
            break;
        if (i % kProgressInterval == 0) {
            if (widePath.empty())
                widePath = Utf8ToUtf16(path);
            NotifyGetContentProgress(widePath, static_cast<double>(i) / items.size());
        }
        if (anyShellLink && i + 1 < items.size() && items[i + 1].path == items[i].path)
            continue;
        Item& item = items[i];
        const std::string_view name =
            item.targetName.empty() ? item.listed->name : std::string_view(item.targetName);
        if constexpr (std::is_same_v<Listing, ContentMap>) {
            auto added =
                content.emplace_hint(content.end(), ToHostString(item.path), PropertyMap());
            FillRecord(added->second, *item.listed->entry, name, item.path, plan);
        } else {
            auto added =
                content.emplace_hint(content.end(), std::move(item.path), SDKPropertyMap());
            FillRecord(added->second, *item.listed->entry, name, added->first, plan);
        }
    }

    // A folder removed, unmounted or made unreadable while it was read gives no listing: the
    // entries read may be incomplete.
    if (!Path::DirectoryExists(std::string_view(path)) || !P::HasReadAccess(nativePath)) {
        NotifyGetContentUnavailable(Utf8ToUtf16(path));
        return {};
    }
    if (Trace::IsEnabled(kTraceCategory)) {
        Trace::Write(
            kTraceCategory,
            fmt::format("GetContent took {:.1f} ms for path: {} ({} items, {} entry stats)",
                        timer.Milliseconds(), ToDisplayUtf8(path), content.size(),
                        P::EntryStatCount() - statsBefore));
    }
    return content;
}

SDKFieldSet WinProviderDirectory::GetFieldList() {
    SDKFieldSet fields;
    for (const WinDirectoryColumn& column : WinDirectoryColumns())
        fields.insert(column.key);
    return fields;
}

std::vector<std::string> WinProviderDirectory::GetDefaultFieldList() {
    return {kSDKNameField, kFilePathField};
}

std::map<std::u16string, std::u16string> WinProviderDirectory::GetFieldLabelList() {
    std::map<std::u16string, std::u16string> labels;
    for (const WinDirectoryColumn& column : WinDirectoryColumns()) {
        labels.emplace(
            Utf8ToUtf16(column.key),
            LocalizeUtf16(std::string(kLabelPrefix) + column.labelId + "=" + column.englishLabel));
    }
    return labels;
}

int WinProviderDirectory::CanProvideFor(const std::string& path, const any_regular_t&,
                                        DirectoryContents&, const AbortPredicate&) {
    return IsValidDirectoryPath(path) && Path::DirectoryExists(std::string_view(path))
               ? kDirectoryScore
               : 0;
}

std::string WinProviderDirectory::GetIdentification() {
    return kProviderDirectoryID;
}

std::string WinProviderDirectory::GetUIString() {
    return Localize(
        "$$$/Pelimar/Libraries/Tessel/WinDirectoryFileDirectoryUIString=File Directory");
}

std::uint32_t WinProviderDirectory::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return std::min(requestedHeight, kLargestThumbnailSize);
}

PelPixHandle WinProviderDirectory::GetThumbnail(const std::string& itemPath, const std::string&,
                                                const any_regular_t&, std::uint32_t width,
                                                std::uint32_t height, ProviderRequest* request) {
    if (itemPath.empty() || IsRequestAborted(request))
        return nullptr;
    // A square icon has to fit both sides of the box.
    const std::uint32_t size =
        (width && height) ? std::min(width, height) : std::max(width, height);
    std::string filePart = Path::GetFilePart(std::string_view(itemPath));
    // A root has no file part and is its own directory part.
    std::string directoryPart =
        filePart.empty() ? itemPath : Path::GetParent(std::string_view(itemPath));
    return RenderFileIconThumbnail(directoryPart, filePart, size, kLargestThumbnailSize);
}

bool WinProviderDirectory::ShouldCheckFilter() {
    return true;
}
bool WinProviderDirectory::IsSelectable() {
    return true;
}

void WinProviderDirectory::PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                                  const SelectedStates& states) {
    if (paths.empty())
        return;
    MenuEntry entry =
        MenuEntry::Command(kAddToFavoritesCommand,
                           LocalizeUtf16("$$$/Provider/Favorites/AddToFavorites=Add to Favorites"));
    bool enabled = false;
    OnMenuItemIDStatus(kAddToFavoritesCommand, paths, states, enabled);
    entry.enabled = enabled;
    menu.Append(std::move(entry));
}

bool WinProviderDirectory::OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                                        const SelectedStates&) {
    if (id != kAddToFavoritesCommand && id != kRemoveFromFavoritesCommand)
        return false;
    std::list<std::u16string> widePaths;
    for (const std::string& path : paths)
        widePaths.push_back(Utf8ToUtf16(path));
    ProviderHost::ModifyFavorites(widePaths, id == kAddToFavoritesCommand
                                                 ? FavoriteOperation::Add
                                                 : FavoriteOperation::Remove);
    return true;
}

bool WinProviderDirectory::OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                                              const SelectedStates&, bool& enabled) {
    if (id != kAddToFavoritesCommand)
        return false;
    enabled = std::any_of(paths.begin(), paths.end(), [](const std::string& path) {
        return Path::DirectoryExists(std::string_view(path));
    });
    return true;
}

}  // namespace Tessel
