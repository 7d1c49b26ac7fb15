#include <tessel/framework/ProviderHost.h>

#include <algorithm>
#include <mutex>

#include <nlohmann/json.hpp>

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

struct HostState {
    ProviderHost::ProviderList providers;
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

void SaveFavorites(const std::list<std::u16string>& favorites) {
    nlohmann::json paths = nlohmann::json::array();
    for (const auto& path : favorites) paths.push_back(Utf16ToUtf8(path));
    nlohmann::json wrapped = {{kFavoritesWrapperKey, paths}};
    Preferences::SetValue(kFavoritesPreference,
                          Utf8ToUtf16(wrapped.dump(-1, ' ', false,
                                                   nlohmann::json::error_handler_t::replace)));
    if (auto error = Preferences::Save()) Trace::Write("Favorites", "cannot save: " + *error);
}

}  // namespace

void ProviderHost::Initialize() {
    HostState& state = State();
    std::int32_t expected = 0;
    if (!state.initialized.compare_exchange_strong(expected, 1)) return;

    ImageResources::Setup();
    RegisterBuiltInProviders();
    {
        std::lock_guard lock(state.executorMutex);
        if (!state.lowPriority) state.lowPriority = MakeExecutor(kSettingContentLowPriorityThreads);
        if (!state.highPriority) {
            state.highPriority = MakeExecutor(kSettingContentHighPriorityThreads);
        }
    }
    Messaging::RegisterStation(sProviderHostStation);
    MainThread::Post([] {
        if (IsInitialized()) LoadFavorites();
    });
}

void ProviderHost::Shutdown() {
    HostState& state = State();
    std::int32_t expected = 1;
    if (!state.initialized.compare_exchange_strong(expected, 0)) return;

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
    for (auto& wrapper : state.providers) wrapper.reset();
    state.providers.clear();
    // Watches the providers started end with them, and the notification thread is joined.
    MF::DirectoryChangeMonitor::StopAll();
    ImageResources::Release();
}

bool ProviderHost::IsInitialized() { return State().initialized.load() == 1; }

void ProviderHost::RegisterProvider(std::unique_ptr<ProviderWrapper> wrapper) {
    if (wrapper) State().providers.push_back(std::move(wrapper));
}

const ProviderHost::ProviderList& ProviderHost::GetAllProviders() { return State().providers; }

std::vector<ProviderWrapper*> ProviderHost::GetProviderList(const std::u16string& path,
                                                            const any_regular_t& state) {
    return SelectProviders(path, state, nullptr, {}, false);
}

std::vector<ProviderWrapper*> ProviderHost::SelectProviders(const std::u16string& path,
                                                            const any_regular_t& state,
                                                            ProviderRequest* request,
                                                            const AbortPredicate& abort,
                                                            bool firstMatchOnly,
                                                            std::vector<int>* scores) {
    if (scores) scores->clear();
    if (path.empty()) return {};
    DirectoryContents contents(path);
    std::vector<std::pair<int, ProviderWrapper*>> matches;
    for (const auto& wrapper : State().providers) {
        if (request && request->GetAbort()) return {};
        if (!wrapper) return {};
        const int score = wrapper->CanProvideFor(path, state, contents, abort);
        if (score <= 0) continue;
        matches.emplace_back(score, wrapper.get());
        if (firstMatchOnly) break;
    }
    std::stable_sort(matches.begin(), matches.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<ProviderWrapper*> result;
    result.reserve(matches.size());
    for (const auto& match : matches) {
        result.push_back(match.second);
        if (scores) scores->push_back(match.first);
    }
    return result;
}

bool ProviderHost::HasProvider(const std::u16string& path, const any_regular_t& state,
                               bool excludeProjectBased) {
    DirectoryContents contents(path);
    for (const auto& wrapper : State().providers) {
        if (!wrapper) break;
        if (excludeProjectBased && wrapper->IsProjectBasedProvider()) continue;
        // Any non-zero answer counts here, negative ones included, unlike selection.
        if (wrapper->CanProvideFor(path, state, contents, {}) != 0) return true;
    }
    return false;
}

bool ProviderHost::HasProjectBasedProvider(const std::u16string& path, const any_regular_t& state) {
    DirectoryContents contents(path);
    for (const auto& wrapper : State().providers) {
        if (!wrapper) break;
        if (!wrapper->IsProjectBasedProvider()) continue;
        if (wrapper->CanProvideFor(path, state, contents, {}) != 0) return true;
    }
    return false;
}

ProviderWrapper* ProviderHost::FirstProviderFor(const std::u16string& path) {
    DirectoryContents contents(path);
    for (const auto& wrapper : State().providers) {
        if (!wrapper) break;
        if (wrapper->CanProvideFor(path, any_regular_t(), contents, {}) != 0) return wrapper.get();
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
    if (ProviderWrapper* wrapper = FirstProviderFor(path)) wrapper->Login();
}

bool ProviderHost::IsDefaultDirectoryAssetProvider(const std::u16string& identification) {
    for (const auto& wrapper : State().providers) {
        if (!wrapper) return false;
        if (wrapper->GetIdentification() == identification) {
            return wrapper->IsDefaultDirectoryAssetProvider();
        }
    }
    return false;
}

ProviderWrapper* ProviderHost::FindProvider(const std::u16string& identification) {
    for (const auto& wrapper : State().providers) {
        if (wrapper && wrapper->GetIdentification() == identification) return wrapper.get();
    }
    return nullptr;
}

std::list<std::u16string> ProviderHost::GetFavorites() {
    std::list<std::u16string> favorites;
    if (ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath)) {
        wrapper->GetProviderManagedPaths(favorites);
    }
    return favorites;
}

void ProviderHost::ModifyFavorites(const std::list<std::u16string>& paths,
                                   FavoriteOperation operation) {
    ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath);
    if (!wrapper) return;
    if (operation == FavoriteOperation::Add) {
        wrapper->AddProviderManagedPaths(paths);
    } else if (operation == FavoriteOperation::Remove) {
        wrapper->RemoveProviderManagedPaths(paths);
    }
    SendToHostStation<FavoritesChangedMessage>();
    std::list<std::u16string> favorites;
    wrapper->GetProviderManagedPaths(favorites);
    SaveFavorites(favorites);
}

std::optional<std::string> ProviderHost::LoadFavorites() {
    ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath);
    if (!wrapper) return std::nullopt;
    const any_regular_t stored = Preferences::GetValue(kFavoritesPreference);
    std::string text;
    if (const auto* wide = stored.get_if<std::u16string>()) {
        text = Utf16ToUtf8(*wide);
    } else if (const auto* narrow = stored.get_if<std::string>()) {
        text = *narrow;
    } else if (stored.empty()) {
        return std::nullopt;
    }
    const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object() || !parsed.contains(kFavoritesWrapperKey) ||
        !parsed[kFavoritesWrapperKey].is_array()) {
        Trace::Write("Favorites", "JSON not well-formed");
        return std::string("JSON not well-formed");
    }
    std::list<std::u16string> paths;
    for (const auto& entry : parsed[kFavoritesWrapperKey]) {
        if (entry.is_string()) paths.push_back(Utf8ToUtf16(entry.get<std::string>()));
    }
    wrapper->AddProviderManagedPaths(paths);
    return std::nullopt;
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

void RequestForceUpdate() { SendToHostStation<RequestForceUpdateMessage>(); }

}  // namespace Tessel
