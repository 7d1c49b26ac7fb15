#include <tessel/providers/filesystem/ProviderFavorites.h>

#include <list>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/filesystem/ListIconThumbnail.h>

namespace Tessel {

namespace {

constexpr const char* kNameLabel = "$$$/Pelimar/Provider/Favorites/Column/Name=Name";
constexpr const char* kPathLabel = "$$$/Pelimar/Provider/Favorites/Column/Path=Path";
constexpr const char* kRemoveLabel =
    "$$$/Provider/Favorites/RemoveFromFavorites=Remove from Favorites";

// The selected paths in the form favorites are kept in, so they compare equal to them.
std::list<std::u16string> ToFavorites(const SelectedPaths& paths) {
    std::list<std::u16string> wide;
    for (const auto& path : paths)
        wide.push_back(NormalizeFavoritePath(Utf8ToUtf16(path)));
    return wide;
}

}  // namespace

SDKContentMap ProviderFavorites::GetContent(const std::string&, const any_regular_t&,
                                            const SDKFieldSet&, ProviderRequest* request) {
    std::list<std::u16string> favorites;
    GetProviderManagedPaths(favorites);
    SDKContentMap content;
    for (const auto& favorite : favorites) {
        if (IsRequestAborted(request))
            return {};
        SDKPropertyMap& record = content[Utf16ToUtf8(favorite)];
        record[kSDKNameField] = Path::LeafDisplayString(favorite);
        record[kSDKPathField] = favorite;
    }
    return content;
}

SDKFieldSet ProviderFavorites::GetFieldList() {
    return {kSDKNameField, kSDKPathField};
}

std::vector<std::string> ProviderFavorites::GetDefaultFieldList() {
    return {kSDKNameField, kSDKPathField};
}

std::map<std::u16string, std::u16string> ProviderFavorites::GetFieldLabelList() {
    return {{kNameField, LocalizeUtf16(kNameLabel)}, {kPathField, LocalizeUtf16(kPathLabel)}};
}

int ProviderFavorites::CanProvideFor(const std::string& path, const any_regular_t&,
                                     DirectoryContents&, const AbortPredicate&) {
    return path == kSDKFavoritesListPath ? 100 : 0;
}

std::string ProviderFavorites::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderFavorites";
}

std::string ProviderFavorites::GetUIString() {
    return Localize("$$$/Farreach/Libraries/Tessel/FavoritesUIString=Favorites");
}

std::uint32_t ProviderFavorites::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return ListItemIconHeight(requestedHeight);
}

PelPixHandle ProviderFavorites::GetThumbnail(const std::string& itemPath, const std::string&,
                                             const any_regular_t&, std::uint32_t width,
                                             std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderListItemIcon(itemPath, width, height);
}

bool ProviderFavorites::ShouldCheckFilter() {
    return false;
}
bool ProviderFavorites::IsSelectable() {
    return true;
}

void ProviderFavorites::PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                               const SelectedStates& states) {
    if (paths.empty())
        return;
    bool enabled = false;
    OnMenuItemIDStatus(kRemoveFromFavoritesID, paths, states, enabled);
    menu.Append(MenuEntry::Command(kRemoveFromFavoritesID, LocalizeUtf16(kRemoveLabel), enabled));
}

bool ProviderFavorites::OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                                     const SelectedStates&) {
    if (id != kRemoveFromFavoritesID)
        return false;
    ProviderHost::ModifyFavorites(ToFavorites(paths), FavoriteOperation::Remove);
    return true;
}

bool ProviderFavorites::OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                                           const SelectedStates&, bool& enabled) {
    if (id != kRemoveFromFavoritesID)
        return false;
    std::list<std::u16string> favorites;
    GetProviderManagedPaths(favorites);
    enabled = false;
    for (const auto& path : ToFavorites(paths)) {
        if (std::find(favorites.begin(), favorites.end(), path) != favorites.end()) {
            enabled = true;
            break;
        }
    }
    return true;
}

}  // namespace Tessel
