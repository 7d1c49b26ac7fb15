// The library's entry point: the static registry of providers. Initialize creates and
// registers the providers in their fixed order, the two request executors and the message
// station, and loads the favorites; Shutdown undoes it. Between the two, the host asks
// which providers can show a path, synchronously or through requests.
//
// Initialize and Shutdown run on the host's main thread. The provider list changes only
// there, so other operations read it from any thread without a lock.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Executor.h>
#include <tessel/foundation/ImmutableString.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/framework/ProviderWrapper.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

enum class FavoriteOperation : std::int32_t { Add = 0, Remove = 1 };

// The preference that holds the favorites.
inline constexpr const char* kFavoritesPreference = "be.prefs.mediabrowser.favorites";

class TESSEL_API ProviderHost {
public:
    using ProviderList = std::vector<std::unique_ptr<ProviderWrapper>>;

    static const ImmutableString sProviderHostStation;  // "Tessel.providerhoststation"
    // Never assigned by the library; a host may set it. An empty provider identification
    // in a default-content request matches it.
    static std::u16string sBestProvider;

    static void Initialize();
    static void Shutdown();
    static bool IsInitialized();

    static void RegisterProvider(std::unique_ptr<ProviderWrapper> wrapper);
    static const ProviderList& GetAllProviders();

    // The providers that can show PATH (score above 0), best first; ties keep
    // registration order.
    static std::vector<ProviderWrapper*> GetProviderList(const std::u16string& path,
                                                         const any_regular_t& state);
    // Provider selection: GetProviderList with a running request (whose abort stops the
    // pass with an empty list) and an optional stop at the first match.
    static std::vector<ProviderWrapper*> SelectProviders(
        const std::u16string& path, const any_regular_t& state, ProviderRequest* request,
        const AbortPredicate& abort, bool firstMatchOnly, std::vector<int>* scores = nullptr);
    // True when any provider answers a non-zero score (negative ones included).
    static bool HasProvider(const std::u16string& path, const any_regular_t& state,
                            bool excludeProjectBased);
    static bool HasProjectBasedProvider(const std::u16string& path, const any_regular_t& state);
    static bool HasCloudStorageProvider(const std::u16string& path);
    static bool IsUserLoggedInToCloudStorage(const std::u16string& path);
    static void LoginToCloudStorage(const std::u16string& path);
    static bool IsDefaultDirectoryAssetProvider(const std::u16string& identification);
    // The wrapper whose identification is ID; null when none.
    static ProviderWrapper* FindProvider(const std::u16string& identification);

    // The favorites may be read and changed from any thread. Both load the stored list
    // first when that has not happened since Initialize, so that an early change cannot
    // replace the stored list with a shorter one. ModifyFavorites normalises the paths
    // (NormalizeFavoritePath) before it adds or removes them, so that two spellings of one
    // folder are one favorite; paths that cannot be favorites are ignored.
    static std::list<std::u16string> GetFavorites();
    static void ModifyFavorites(const std::list<std::u16string>& paths,
                                FavoriteOperation operation);
    // Reads the favorites preference (kFavoritesPreference) into the favorites provider.
    // The stored text is compact JSON, {"SerializerWrappedObject": ["path", ...]}, in list
    // order; an absent or empty value is an empty list. A path is stored as its UTF-8 text
    // when it is valid Unicode. A path that is not (a POSIX name with bytes that are not
    // UTF-8, carried as lone surrogates U+DC80..U+DCFF; any lone surrogate of a Windows
    // name) cannot be written as JSON text, so it is stored escaped instead: U+0000 (which
    // no path holds) followed by the path in UTF-8 with each lone surrogate written as "%u"
    // and four upper-case hex digits and each '%' as "%25". "/media/caf" followed by the
    // byte 0xE9 is stored as U+0000 followed by "/media/caf%uDCE9". Loaded paths are normalised as
    // ModifyFavorites does.
    //
    // A value of any other shape adds nothing and answers kMalformed "JSON not well-formed".
    // Nothing is written then: the value stays in the preferences until the favorites are
    // next saved, and that save first copies it to a free preference
    // kFavoritesPreference + ".unreadable-YYYYMMDD-HHMMSS" (named when loading), so that what
    // the user had is never lost. A value that cannot even be copied (a type this build does
    // not know) stays where it is, and the favorites are not saved until the next
    // Initialize. The host loads once after Initialize, as a task on the main thread.
    static Status LoadFavorites();

    struct FavoritesLoadProblem {
        std::string message;  // "JSON not well-formed"
        // The preference the stored value is copied to when the favorites are saved (and
        // was, once they have been); empty when it cannot be copied and the favorites are
        // not saved.
        std::string setAsidePreference;
    };
    // The problem of the last load since Initialize; none when the stored list was used.
    static std::optional<FavoritesLoadProblem> GetFavoritesLoadProblem();

    static std::shared_ptr<Executor> GetProviderExecutor();
    static std::shared_ptr<Executor> GetHighPriorityProviderExecutor();

    static ClassRef<ProviderListRequest> RequestProviderList(const std::u16string& path,
                                                             const any_regular_t& state,
                                                             const ImmutableString& station);
    static ClassRef<ProviderDefaultContentRequest> RequestDefaultProviderContent(
        std::shared_ptr<DefaultContentRequestData> data, const ImmutableString& station);
    static ClassRef<HasPossibleDirectoryContentRequest> RequestHasPossibleDirectoryContent(
        std::shared_ptr<HasPossibleDirectoryContentRequestData> data,
        const ImmutableString& station);

private:
    static ProviderWrapper* FirstProviderFor(const std::u16string& path);
};

// The form in which favorites are kept and compared: "." and ".." components resolved (never
// above a root), repeated and trailing separators dropped (a root keeps its own); on Windows
// '/' turned into '\', drive and share paths in the long-path form ("\\?\C:\...",
// "\\?\UNC\server\share\...") and the drive letter upper-cased. Paths with a scheme
// ("CLSource://...") stay as they are. Empty for what cannot be a favorite: an empty path,
// or one holding U+0000. Purely textual: nothing is looked up on disk.
TESSEL_API std::u16string NormalizeFavoritePath(Path::PathStyle style, std::u16string_view path);
// By the rules of the platform this runs on.
TESSEL_API std::u16string NormalizeFavoritePath(std::u16string_view path);

// Asks every view to refresh: sends RequestForceUpdateMessage to the host station.
TESSEL_API void RequestForceUpdate();

// Declared here, defined with the providers: creates and registers the library's
// providers in their fixed order.
void RegisterBuiltInProviders();
// Declared here, defined with the card providers' XML support: allows parsing card XML from
// now on (the parser itself is loaded and set up on the first parse), and ends it, releasing
// the parser's process-wide state. Every parse outside the two is refused.
void StartXMLParsing();
void StopXMLParsing();

}  // namespace Tessel
