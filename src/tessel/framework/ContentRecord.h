// The shared vocabulary of every listing: item records keyed by item path, field keys,
// reserved list paths, provider identification, and the typed values records carry.
//
// Records exist in two shapes. The host side (ContentMap / PropertyMap) uses UTF-16
// strings; the provider side (SDKContentMap / SDKPropertyMap) uses UTF-8. Both are
// ordered maps, so a listing iterates in the order of its item paths (UTF-16 code units
// on the host side) and a record in the order of its field names.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/platform/Export.h>

namespace Tessel {

using PropertyMap = std::map<std::u16string, any_regular_t>;
using ContentMap = std::map<std::u16string, PropertyMap>;
using SDKPropertyMap = std::map<std::string, any_regular_t>;
using SDKContentMap = std::map<std::string, SDKPropertyMap>;

// Field sets: the names of the fields a caller wants.
using FieldSet = std::set<std::u16string>;
using SDKFieldSet = std::set<std::string>;

// Field keys, wide and C-string twins with identical text.
TESSEL_API extern const std::u16string kNameField;
TESSEL_API extern const char* const kSDKNameField;
TESSEL_API extern const std::u16string kPathField;
TESSEL_API extern const char* const kSDKPathField;
TESSEL_API extern const std::u16string kExtraPathField;
TESSEL_API extern const char* const kSDKExtraPathField;
TESSEL_API extern const std::u16string kDirectoryFlagField;
TESSEL_API extern const char* const kSDKDirectoryFlagField;
TESSEL_API extern const std::u16string kCreationDateField;
TESSEL_API extern const char* const kSDKCreationDateField;
TESSEL_API extern const std::u16string kBundleField;
TESSEL_API extern const char* const kSDKBundleField;
TESSEL_API extern const std::u16string kStateField;
TESSEL_API extern const char* const kSDKStateField;

// UTF-8 strings as strings of unsigned 8-bit code units.
using UTF8String = std::basic_string<std::uint8_t>;

// List paths: virtual containers served by one provider each. Each ends with a colon so
// it can never be mistaken for a file-system path.
TESSEL_API extern const std::u16string kVolumeListPath;
TESSEL_API extern const UTF8String kVolumeListPathUTF8;
TESSEL_API extern const char* const kSDKVolumeListPath;
TESSEL_API extern const std::u16string kNetworkVolumeListPath;
TESSEL_API extern const UTF8String kNetworkVolumeListPathUTF8;
TESSEL_API extern const char* const kSDKNetworkVolumeListPath;
TESSEL_API extern const std::u16string kFavoritesListPath;
TESSEL_API extern const UTF8String kFavoritesListPathUTF8;
TESSEL_API extern const char* const kSDKFavoritesListPath;
TESSEL_API extern const std::u16string kCloudSyncListPath;
TESSEL_API extern const UTF8String kCloudSyncListPathUTF8;
TESSEL_API extern const char* const kSDKCloudSyncListPath;
TESSEL_API extern const std::u16string kFRServerListPath;
TESSEL_API extern const UTF8String kFRServerListPathUTF8;
TESSEL_API extern const char* const kSDKFRServerListPath;
TESSEL_API extern const std::u16string kFramecastListPath;
TESSEL_API extern const UTF8String kFramecastListPathUTF8;
TESSEL_API extern const char* const kSDKFramecastListPath;

// Every provider identifies itself as kProviderIDPrefix followed by its class name.
TESSEL_API extern const char* const kProviderIDPrefix;
TESSEL_API extern const std::string kProviderDirectoryID;

// Which icon a view should draw for an item.
enum class IconType : std::int32_t {
    None = 0,
    Folder,
    Drive,
    RemovableDrive,
    OpticalDrive,
    NetworkShare,
    CloudFolder,
    Card,
    Video,
    Audio,
    Image,
    Sequence,
    Project,
    Bin,
    Document,
    File,
};

// Result codes of completion messages.
using ResultCode = std::uint32_t;
inline constexpr ResultCode kResultSuccess = 0;
inline constexpr ResultCode kResultNothingFound = 0xA00F0001;
inline constexpr ResultCode kResultAborted = 0xA00F0007;

// The second path a host passes with a thumbnail request for an item: the item's
// "ExtraPath" value when it is a string, the first element when it is a list (empty for an
// empty list), and empty when the item has none.
TESSEL_API std::u16string GetThumbnailExtraPath(const PropertyMap& record);

}  // namespace Tessel
