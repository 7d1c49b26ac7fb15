#include <tessel/framework/ProviderHost.h>

#include <algorithm>
#include <mutex>
#include <optional>

#include <nlohmann/json.hpp>

#include <tessel/foundation/JsonNesting.h>
#include <tessel/foundation/Messaging.h>
#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/media/DirectoryChangeMonitor.h>
#include <tessel/media/ImageResources.h>

namespace Tessel {

const ImmutableString ProviderHost::sProviderHostStation("Tessel.providerhoststation");
std::u16string ProviderHost::sBestProvider;

namespace {

constexpr const char* kFavoritesWrapperKey = "SerializerWrappedObject";

// The favorites' load state. The mutex orders the loads and the saves of the list, so the
// preference always ends up holding the latest list however many threads change it.
struct FavoritesState {
    std::mutex mutex;
    std::atomic<bool> loaded{false};
    std::optional<ProviderHost::FavoritesLoadProblem> problem;
    // The stored value could be neither read nor copied aside: saving would destroy it.
    bool mustNotSave = false;
};

struct HostState {
    ProviderHost::ProviderList providers;
    FavoritesState favorites;
    std::atomic<std::int32_t> initialized{0};
    // Requests may be started from any thread while the main thread shuts down.
    std::mutex executorMutex;
    std::shared_ptr<Executor> lowPriority;
    std::shared_ptr<Executor> highPriority;
};

HostState& State() {
    static HostState state;
    return state;
}

template <class Msg>
void SendToHostStation() {
    Messaging::Broadcast<Msg>(ProviderHost::sProviderHostStation, std::make_shared<const Msg>());
}

std::shared_ptr<Executor> MakeExecutor(const char* key) {
    const auto workers = static_cast<int>(Settings::GetInt(key, -1));
    return std::make_shared<Executor>(key, workers);
}

constexpr const char* kFavoritesNotWellFormed = "JSON not well-formed";
// How many "-N" variants of a set-aside preference name are tried.
constexpr int kMaxSetAsideAttempts = 1000;

// A preference name beside the favorites that nothing holds yet.
std::optional<std::string> FreeSetAsideKey() {
    const std::vector<std::string> keys = Preferences::Keys();
    const std::string base =
        std::string(kFavoritesPreference) + ".unreadable-" + Preferences::SetAsideTimestamp();
    for (int attempt = 1; attempt <= kMaxSetAsideAttempts; ++attempt) {
        std::string key = attempt == 1 ? base : base + "-" + std::to_string(attempt);
        if (std::find(keys.begin(), keys.end(), key) == keys.end())
            return key;
    }
    return std::nullopt;
}

// The stored list, or std::nullopt when TEXT is not of the favorites' shape. A list with
// anything but strings in it is refused whole: saving only its strings would lose the rest.
std::optional<std::list<std::u16string>> ParseFavorites(const std::string& text) {
    if (text.empty())
        return std::list<std::u16string>();
    if (!detail::JsonNestingWithin(text, detail::kMaxJsonTextDepth))
        return std::nullopt;
    const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object())
        return std::nullopt;
    const auto member = parsed.find(kFavoritesWrapperKey);
    if (member == parsed.end() || !member->is_array())
        return std::nullopt;
    std::list<std::u16string> paths;
    for (const auto& entry : *member) {
        if (!entry.is_string())
            return std::nullopt;
        paths.push_back(Utf8ToUtf16(entry.get<std::string>()));
    }
    return paths;
}

// With the favorites mutex held.
std::optional<std::string> LoadFavoritesLocked(FavoritesState& favorites,
                                               ProviderWrapper* wrapper) {
    favorites.problem.reset();
    favorites.mustNotSave = false;
    const any_regular_t stored = Preferences::GetValue(kFavoritesPreference);
    std::optional<std::list<std::u16string>> paths;
    if (const auto* wide = stored.get_if<std::u16string>()) {
        paths = ParseFavorites(Utf16ToUtf8(*wide));
    } else if (const auto* narrow = stored.get_if<std::string>()) {
        paths = ParseFavorites(*narrow);
    } else if (stored.empty()) {
        // Absent, unless the key is there with a value of a type this build does not know.
        const std::vector<std::string> keys = Preferences::Keys();
        if (std::find(keys.begin(), keys.end(), kFavoritesPreference) == keys.end()) {
            paths.emplace();
        }
    }
    favorites.loaded = true;
    if (paths) {
        wrapper->AddProviderManagedPaths(*paths);
        return std::nullopt;
    }

    ProviderHost::FavoritesLoadProblem problem{kFavoritesNotWellFormed, {}};
    const std::optional<std::string> setAsideKey =
        stored.empty() ? std::nullopt : FreeSetAsideKey();
    if (setAsideKey) {
        Preferences::SetValue(*setAsideKey, stored);
        Preferences::RemoveValue(kFavoritesPreference);
        if (auto error = Preferences::Save()) {
            Trace::Write("Favorites", "cannot save the unreadable favorites aside: " + *error);
        }
        problem.setAsidePreference = *setAsideKey;
        Trace::Write("Favorites", std::string(kFavoritesNotWellFormed) +
                                      "; the stored value was moved to the preference " +
                                      *setAsideKey);
    } else {
        favorites.mustNotSave = true;
        Trace::Write("Favorites", std::string(kFavoritesNotWellFormed) +
                                      "; the stored value stays and the favorites are not saved");
    }
    favorites.problem = std::move(problem);
    return std::string(kFavoritesNotWellFormed);
}

// Loads the stored list once since Initialize, when a favorites provider is registered.
void EnsureFavoritesLoaded(FavoritesState& favorites, ProviderWrapper* wrapper) {
    if (favorites.loaded || !wrapper)
        return;
    std::lock_guard lock(favorites.mutex);
    if (!favorites.loaded)
        LoadFavoritesLocked(favorites, wrapper);
}

void SaveFavorites(const std::list<std::u16string>& favorites) {
    nlohmann::json paths = nlohmann::json::array();
    for (const auto& path : favorites)
        paths.push_back(Utf16ToUtf8(path));
    nlohmann::json wrapped = {{kFavoritesWrapperKey, paths}};
    Preferences::SetValue(
        kFavoritesPreference,
        Utf8ToUtf16(wrapped.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)));
    if (auto error = Preferences::Save())
        Trace::Write("Favorites", "cannot save: " + *error);
}

}  // namespace

void ProviderHost::Initialize() {
    HostState& state = State();
    std::int32_t expected = 0;
    if (!state.initialized.compare_exchange_strong(expected, 1))
        return;

    ImageResources::Setup();
    RegisterBuiltInProviders();
    {
        std::lock_guard lock(state.executorMutex);
        if (!state.lowPriority)
            state.lowPriority = MakeExecutor(kSettingContentLowPriorityThreads);
        if (!state.highPriority) {
            state.highPriority = MakeExecutor(kSettingContentHighPriorityThreads);
        }
    }
    Messaging::RegisterStation(sProviderHostStation);
    {
        std::lock_guard lock(state.favorites.mutex);
        state.favorites.loaded = false;
        state.favorites.problem.reset();
        state.favorites.mustNotSave = false;
    }
    MainThread::Post([] {
        if (!IsInitialized())
            return;
        EnsureFavoritesLoaded(State().favorites, FirstProviderFor(kFavoritesListPath));
    });
}

void ProviderHost::Shutdown() {
    HostState& state = State();
    std::int32_t expected = 1;
    if (!state.initialized.compare_exchange_strong(expected, 0))
        return;

    Messaging::DisposeStation(sProviderHostStation);
    for (std::shared_ptr<Executor>* slot : {&state.lowPriority, &state.highPriority}) {
        std::shared_ptr<Executor> executor;
        {
            std::lock_guard lock(state.executorMutex);
            executor = std::move(*slot);
            slot->reset();
        }
        if (executor) {
            executor->Stop();
            executor->Wait();
        }
    }
    // Destroyed in registration order.
    for (auto& wrapper : state.providers)
        wrapper.reset();
    state.providers.clear();
    // Watches the providers started end with them, and the notification thread is joined.
    MF::DirectoryChangeMonitor::StopAll();
    ImageResources::Release();
}

bool ProviderHost::IsInitialized() {
    return State().initialized.load() == 1;
}

void ProviderHost::RegisterProvider(std::unique_ptr<ProviderWrapper> wrapper) {
    if (wrapper)
        State().providers.push_back(std::move(wrapper));
}

const ProviderHost::ProviderList& ProviderHost::GetAllProviders() {
    return State().providers;
}

std::vector<ProviderWrapper*> ProviderHost::GetProviderList(const std::u16string& path,
                                                            const any_regular_t& state) {
    return SelectProviders(path, state, nullptr, NeverAbort(), false);
}

std::vector<ProviderWrapper*> ProviderHost::SelectProviders(
    const std::u16string& path, const any_regular_t& state, ProviderRequest* request,
    const AbortPredicate& abort, bool firstMatchOnly, std::vector<int>* scores) {
    if (scores)
        scores->clear();
    if (path.empty())
        return {};
    DirectoryContents contents(path);
    std::vector<std::pair<int, ProviderWrapper*>> matches;
    for (const auto& wrapper : State().providers) {
        if (request && request->GetAbort())
            return {};
        if (!wrapper)
            return {};
        const int score = wrapper->CanProvideFor(path, state, contents, abort);
        if (score <= 0)
            continue;
        matches.emplace_back(score, wrapper.get());
        if (firstMatchOnly)
            break;
    }
    std::stable_sort(matches.begin(), matches.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<ProviderWrapper*> result;
    result.reserve(matches.size());
    for (const auto& match : matches) {
        result.push_back(match.second);
        if (scores)
            scores->push_back(match.first);
    }
    return result;
}

bool ProviderHost::HasProvider(const std::u16string& path, const any_regular_t& state,
                               bool excludeProjectBased) {
    DirectoryContents contents(path);
    for (const auto& wrapper : State().providers) {
        if (!wrapper)
            break;
        if (excludeProjectBased && wrapper->IsProjectBasedProvider())
            continue;
        // Any non-zero answer counts here, negative ones included, unlike selection.
        if (wrapper->CanProvideFor(path, state, contents, NeverAbort()) != 0)
            return true;
    }
    return false;
}

bool ProviderHost::HasProjectBasedProvider(const std::u16string& path, const any_regular_t& state) {
    DirectoryContents contents(path);
    for (const auto& wrapper : State().providers) {
        if (!wrapper)
            break;
        if (!wrapper->IsProjectBasedProvider())
            continue;
        if (wrapper->CanProvideFor(path, state, contents, NeverAbort()) != 0)
            return true;
    }
    return false;
}

ProviderWrapper* ProviderHost::FirstProviderFor(const std::u16string& path) {
    DirectoryContents contents(path);
    for (const auto& wrapper : State().providers) {
        if (!wrapper)
            break;
        if (wrapper->CanProvideFor(path, any_regular_t(), contents, NeverAbort()) != 0)
            return wrapper.get();
    }
    return nullptr;
}

bool ProviderHost::HasCloudStorageProvider(const std::u16string& path) {
    ProviderWrapper* wrapper = FirstProviderFor(path);
    return wrapper && wrapper->IsCloudStorageProvider();
}

bool ProviderHost::IsUserLoggedInToCloudStorage(const std::u16string& path) {
    ProviderWrapper* wrapper = FirstProviderFor(path);
    return wrapper && wrapper->IsUserLoggedIn();
}

void ProviderHost::LoginToCloudStorage(const std::u16string& path) {
    if (ProviderWrapper* wrapper = FirstProviderFor(path))
        wrapper->Login();
}

bool ProviderHost::IsDefaultDirectoryAssetProvider(const std::u16string& identification) {
    for (const auto& wrapper : State().providers) {
        if (!wrapper)
            return false;
        if (wrapper->GetIdentification() == identification) {
            return wrapper->IsDefaultDirectoryAssetProvider();
        }
    }
    return false;
}

ProviderWrapper* ProviderHost::FindProvider(const std::u16string& identification) {
    for (const auto& wrapper : State().providers) {
        if (wrapper && wrapper->GetIdentification() == identification)
            return wrapper.get();
    }
    return nullptr;
}

std::list<std::u16string> ProviderHost::GetFavorites() {
    std::list<std::u16string> favorites;
    if (ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath)) {
        EnsureFavoritesLoaded(State().favorites, wrapper);
        wrapper->GetProviderManagedPaths(favorites);
    }
    return favorites;
}

void ProviderHost::ModifyFavorites(const std::list<std::u16string>& paths,
                                   FavoriteOperation operation) {
    ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath);
    if (!wrapper)
        return;
    FavoritesState& state = State().favorites;
    {
        std::lock_guard lock(state.mutex);
        if (!state.loaded)
            LoadFavoritesLocked(state, wrapper);
        if (operation == FavoriteOperation::Add) {
            wrapper->AddProviderManagedPaths(paths);
        } else if (operation == FavoriteOperation::Remove) {
            wrapper->RemoveProviderManagedPaths(paths);
        }
    }
    // Not under the lock: on the main thread the listeners run now and may read the list.
    SendToHostStation<FavoritesChangedMessage>();
    // The list is read and stored under the lock, so the last save holds the latest list.
    std::lock_guard lock(state.mutex);
    if (state.mustNotSave) {
        Trace::Write("Favorites", "not saved: the stored favorites could not be kept aside");
        return;
    }
    std::list<std::u16string> favorites;
    wrapper->GetProviderManagedPaths(favorites);
    SaveFavorites(favorites);
}

std::optional<std::string> ProviderHost::LoadFavorites() {
    ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath);
    if (!wrapper)
        return std::nullopt;
    FavoritesState& state = State().favorites;
    std::lock_guard lock(state.mutex);
    return LoadFavoritesLocked(state, wrapper);
}

std::optional<ProviderHost::FavoritesLoadProblem> ProviderHost::GetFavoritesLoadProblem() {
    FavoritesState& state = State().favorites;
    std::lock_guard lock(state.mutex);
    return state.problem;
}

std::shared_ptr<Executor> ProviderHost::GetProviderExecutor() {
    std::lock_guard lock(State().executorMutex);
    return State().lowPriority;
}

std::shared_ptr<Executor> ProviderHost::GetHighPriorityProviderExecutor() {
    std::lock_guard lock(State().executorMutex);
    return State().highPriority;
}

ClassRef<ProviderListRequest> ProviderHost::RequestProviderList(const std::u16string& path,
                                                                const any_regular_t& state,
                                                                const ImmutableString& station) {
    ClassRef<ProviderListRequest> request = ProviderListRequest::CreateClassRef();
    request->Initialize(station, nullptr);
    request->SetRequestParams(path, state);
    request->Start();
    return request;
}

ClassRef<ProviderDefaultContentRequest> ProviderHost::RequestDefaultProviderContent(
    std::shared_ptr<DefaultContentRequestData> data, const ImmutableString& station) {
    ClassRef<ProviderDefaultContentRequest> request =
        ProviderDefaultContentRequest::CreateClassRef();
    request->Initialize(station, nullptr);
    request->SetRequestParams(std::move(data));
    request->Start();
    return request;
}

ClassRef<HasPossibleDirectoryContentRequest> ProviderHost::RequestHasPossibleDirectoryContent(
    std::shared_ptr<HasPossibleDirectoryContentRequestData> data, const ImmutableString& station) {
    ClassRef<HasPossibleDirectoryContentRequest> request =
        HasPossibleDirectoryContentRequest::CreateClassRef();
    request->Initialize(station, nullptr);
    request->SetRequestParams(std::move(data));
    request->Start();
    return request;
}

void RequestForceUpdate() {
    SendToHostStation<RequestForceUpdateMessage>();
}

}  // namespace Tessel
