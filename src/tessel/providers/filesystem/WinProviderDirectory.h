// The provider of ordinary folders: it claims folder paths, lists a folder's entries with up
// to thirty columns, gives the file icon as any item's thumbnail, and adds "Add to
// Favorites" to the context menu. It is the general fallback: card and project providers
// win over it by scoring higher than kDirectoryScore for the folders they claim.
//
// Windows: paths are in long-path form ("\\?\C:\Media", "\\?\UNC\server\share"); entries
// with the hidden, system or device attribute are never listed; a shell link (".lnk") whose
// target can be read is listed under its target in long-path form, any other under its own
// name; every column comes from the directory's find record.
//
// On POSIX the Windows behaviour maps as the design's table says: names starting with '.',
// DOS-hidden or system entries (where the file system keeps DOS attributes), FIFOs,
// sockets and device nodes are never listed and never opened; symbolic links are listed
// under their own path as reparse points; there are no short names and no shell links.
// Column values:
// - attribute columns: the letter or word of the column when the attribute is set, else
//   "" (never absent when asked for); Hidden, System and Device are always "" since such
//   entries are not listed, and Temporary, Offline and Not Content Indexed never apply on
//   POSIX;
// - Path: the item path; File Path: the item path as people write it (without the long-path
//   prefix on Windows, unchanged on POSIX); ExtraPath: "" (an entry of a plain folder has no
//   second path);
// - Alternative File Name: the 8.3 short name on Windows, "" when there is none (always on
//   POSIX);
// - dates: local time "2024-03-05 09:07:02.045"; "" when the file system keeps no creation
//   time, or the entry could not be examined;
// - Size: a Provider::ByteSize_t: the find record's size on Windows; on POSIX 0 for folders
//   and links (as a Windows find record has it), absent when the entry could not be examined;
// - Project Locked: for a ".plproj" entry the holder of its lock (see ProjectLockFile.h),
//   otherwise "";
// - the metadata columns (Media Start to Log Comment) are not written.
// Every string value is a std::u16string; Path holds names that are not UTF-8 as the host's
// escapes, so the item path opens the entry after a trip through the host side.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tessel/framework/CapabilityInterfaces.h>
#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel {

// One row of the column table: the field key, and the label id and English text that make
// the label's localization key.
struct WinDirectoryColumn {
    const char* key;
    const char* labelId;
    const char* englishLabel;
};

inline constexpr std::size_t kWinDirectoryColumnCount = 30;

// The column table; a row's position is its bit in a listing's field set.
TESSEL_API const std::array<WinDirectoryColumn, kWinDirectoryColumnCount>& WinDirectoryColumns();

class TESSEL_API WinProviderDirectory : public Provider, public MenuProviderInterface {
public:
    // The field keys of the columns that have no shared key (the others are kSDKNameField,
    // kSDKPathField, kSDKExtraPathField, kSDKDirectoryFlagField and kSDKCreationDateField).
    static constexpr const char* kFilePathField = "02";
    static constexpr const char* kArchiveField = "03";
    static constexpr const char* kCompressedField = "04";
    static constexpr const char* kDeviceField = "05";
    static constexpr const char* kEncryptedField = "07";
    static constexpr const char* kHiddenField = "08";
    static constexpr const char* kNormalFileField = "09";
    static constexpr const char* kNotContentIndexedField = "10";
    static constexpr const char* kOfflineField = "11";
    static constexpr const char* kReadOnlyField = "12";
    static constexpr const char* kReparsePointField = "13";
    static constexpr const char* kSparseFileField = "14";
    static constexpr const char* kSystemField = "15";
    static constexpr const char* kTemporaryField = "16";
    static constexpr const char* kAlternativeFileNameField = "18";
    static constexpr const char* kLastAccessDateField = "20";
    static constexpr const char* kLastWriteDateField = "21";
    static constexpr const char* kSizeField = "26";
    static constexpr const char* kMediaStartField = "27";
    static constexpr const char* kTapeNameField = "28";
    static constexpr const char* kDescriptionField = "29";
    static constexpr const char* kSceneField = "30";
    static constexpr const char* kShotField = "31";
    static constexpr const char* kLogCommentField = "32";
    static constexpr const char* kProjectLockedField = "33";

    static constexpr int kDirectoryScore = 30;
    static constexpr std::int32_t kAddToFavoritesCommand = 31012;
    static constexpr std::int32_t kRemoveFromFavoritesCommand = 31013;
    // File icons come in sizes up to this.
    static constexpr std::uint32_t kLargestThumbnailSize = 256;

    WinProviderDirectory();
    ~WinProviderDirectory() override;

    // The folder's entries keyed by item path, with the requested columns. Records are made
    // in walk order (NTFS order), so where a shell link's target is the path of another
    // entry the later of the two in that order is the record kept. An invalid path gives
    // nothing; a folder that cannot be read, whose read fails part-way, or that vanishes or
    // becomes unreadable while it is listed, gives nothing and is reported through the
    // content-unavailable callback (a caller that must tell why reads the folder itself:
    // Directory::GetContainedFileAndDirectoryPaths answers the reason). An abort keeps the
    // records made so far.
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    // The same records made straight in the host's form.
    std::optional<ContentMap> GetHostContent(const std::u16string& path, const any_regular_t& state,
                                             const FieldSet& fields,
                                             ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override;
    // Name and File Path.
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    // kDirectoryScore for an existing folder whose path passes IsValidDirectoryPath, else 0.
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override;
    std::string GetUIString() override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    // The file icon of the item, square, fitting the box (a side of 0 leaves the choice to
    // the other); null when the request has been aborted.
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;

    // "Add to Favorites" for a non-empty selection, enabled when a selected path is a folder.
    void PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                const SelectedStates& states) override;
    // kAddToFavoritesCommand and kRemoveFromFavoritesCommand change the favorites.
    bool OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                      const SelectedStates& states) override;
    // Knows kAddToFavoritesCommand only.
    bool OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                            const SelectedStates& states, bool& enabled) override;

    // The path test of the platform this runs on (Path::IsValidDirectoryPath).
    static bool IsValidDirectoryPath(const std::string& path);
    // Whether a listing shows ENTRY: never a hidden or device entry (a device that is also a
    // reparse point included); a link whatever it points at; otherwise files and folders.
    static bool IsListedEntry(const Platform::DirectoryEntry& entry);

private:
    // GetContent's listing, in the provider's records (SDKContentMap) or the host's
    // (ContentMap).
    template <class Listing>
    Listing ListFolder(const std::string& path, const SDKFieldSet& fields,
                       ProviderRequest* request);
};

}  // namespace Tessel
