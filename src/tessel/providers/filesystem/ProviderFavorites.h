// The favorites list: the virtual container "favorites:" holding the folders the user
// marked as favorites. The list is this provider's set of managed paths (the base
// Provider's, so sorted, without duplicates, and safe to change from any thread); it is
// changed through ProviderHost::ModifyFavorites and read with ProviderHost::GetFavorites.
//
// The list survives restarts in the preference "be.prefs.mediabrowser.favorites"
// (kFavoritesPreference), saved on every change and loaded when the host starts. Its value
// is compact JSON text holding one object whose member "SerializerWrappedObject" is the
// array of the favorite paths as UTF-8 strings, in list order:
//     {"SerializerWrappedObject":["/home/me/Media","/media/card"]}
// Paths that are not valid Unicode are stored escaped, and a stored value of another shape
// is reported as "JSON not well-formed" and kept aside, never overwritten (both in
// ProviderHost::LoadFavorites). Favorites are kept normalised (NormalizeFavoritePath).
#pragma once

#include <cstdint>

#include <tessel/framework/CapabilityInterfaces.h>
#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API ProviderFavorites : public Provider, public MenuProviderInterface {
public:
    // The command of the "Remove from Favorites" entry. The file directory provider's
    // "Add to Favorites" is 31012; the two are a pair, and both providers carry out 31013.
    static constexpr std::int32_t kRemoveFromFavoritesID = 31013;

    // One record per favorite, keyed by its path: Name (the folder's leaf for display) and
    // Path. An abort observed during the listing empties it.
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    // 100 for exactly "favorites:", otherwise 0.
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override;
    std::string GetUIString() override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    // The folder's icon; null when the request has been aborted.
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;

    // Adds "Remove from Favorites" when something is selected, enabled when at least one
    // selected path is a favorite.
    void PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                const SelectedStates& states) override;
    // kRemoveFromFavoritesID removes the selected paths through ProviderHost::ModifyFavorites
    // (which announces and saves the change).
    bool OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                      const SelectedStates& states) override;
    bool OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                            const SelectedStates& states, bool& enabled) override;
};

}  // namespace Tessel
