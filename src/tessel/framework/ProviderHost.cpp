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
    // The stored value could not be read: the next save copies it to
    // problem->setAsidePreference before replacing it.
    bool setAsidePending = false;
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

const std::string_view kFavoritesTrace = Trace::DeclareCategory("Favorites");

// The executors' sizes are read when the host starts.
[[maybe_unused]] const std::string_view kExecutorSettings[] = {
    Settings::DeclareKey(kSettingContentLowPriorityThreads),
    Settings::DeclareKey(kSettingContentHighPriorityThreads)};

std::shared_ptr<Executor> MakeExecutor(const char* key) {
    const auto workers = static_cast<int>(Settings::GetInt(key, -1));
    return std::make_shared<Executor>(key, workers);
}

constexpr const char* kFavoritesNotWellFormed = "JSON not well-formed";
// How many "-N" variants of a set-aside preference name are tried.
constexpr int kMaxSetAsideAttempts = 1000;
// Starts a stored favorite that is written escaped; no path holds U+0000.
constexpr char kEscapedFavoriteMarker = '\0';

bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// The favorite as the stored list holds it (see ProviderHost::LoadFavorites): its UTF-8 text,
// or, when it has lone surrogates that UTF-8 text cannot carry, the escaped form.
std::string EncodeFavorite(std::u16string_view path) {
    std::string escaped(1, kEscapedFavoriteMarker);
    bool needsEscapes = false;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const char16_t unit = path[i];
        if (IsHighSurrogate(unit) && i + 1 < path.size() && IsLowSurrogate(path[i + 1])) {
            escaped += Utf16ToUtf8(path.substr(i, 2));
            ++i;
        } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
            static constexpr char kHex[] = "0123456789ABCDEF";
            escaped += "%u";
            for (int shift = 12; shift >= 0; shift -= 4)
                escaped.push_back(kHex[(unit >> shift) & 0xF]);
            needsEscapes = true;
        } else if (unit == u'%') {
            escaped += "%25";
        } else {
            escaped += Utf16ToUtf8(path.substr(i, 1));
        }
    }
    return needsEscapes ? escaped : Utf16ToUtf8(path);
}

int HexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// The path a stored favorite names; std::nullopt when it is escaped but not as
// EncodeFavorite writes.
std::optional<std::u16string> DecodeFavorite(std::string_view stored) {
    if (stored.empty() || stored.front() != kEscapedFavoriteMarker)
        return Utf8ToUtf16(stored);
    const std::string_view text = stored.substr(1);
    if (!IsValidUtf8(text))
        return std::nullopt;
    std::u16string path;
    std::size_t literal = 0;  // start of the text not yet copied
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%')
            continue;
        path += Utf8ToUtf16(text.substr(literal, i - literal));
        if (text.substr(i + 1, 2) == "25") {
            path.push_back(u'%');
            i += 2;
        } else if (i + 5 < text.size() && text[i + 1] == 'u') {
            int unit = 0;
            for (std::size_t k = i + 2; k < i + 6; ++k) {
                const int digit = HexValue(text[k]);
                if (digit < 0)
                    return std::nullopt;
                unit = unit * 16 + digit;
            }
            // Only what needs an escape is written as one.
            if (!IsHighSurrogate(char16_t(unit)) && !IsLowSurrogate(char16_t(unit)))
                return std::nullopt;
            path.push_back(char16_t(unit));
            i += 5;
        } else {
            return std::nullopt;
        }
        literal = i + 1;
    }
    path += Utf8ToUtf16(text.substr(literal));
    return path;
}

bool IsPreferenceFree(const std::vector<std::string>& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) == keys.end();
}

// Stores in KEY a preference name beside the favorites that nothing holds yet.
Status FindFreeSetAsideKey(std::string& key) {
    const std::vector<std::string> keys = Preferences::Keys();
    const std::string base =
        std::string(kFavoritesPreference) + ".unreadable-" + Preferences::SetAsideTimestamp();
    for (int attempt = 1; attempt <= kMaxSetAsideAttempts; ++attempt) {
        key = attempt == 1 ? base : base + "-" + std::to_string(attempt);
        if (IsPreferenceFree(keys, key))
            return Status::Ok();
    }
    key.clear();
    return {StatusCode::kIOError, "no free preference name to keep the favorites in"};
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
        std::optional<std::u16string> path = DecodeFavorite(entry.get_ref<const std::string&>());
        if (!path)
            return std::nullopt;
        // Entries that can name nothing (an empty path) are dropped.
        if (std::u16string normal = NormalizeFavoritePath(*path); !normal.empty())
            paths.push_back(std::move(normal));
    }
    return paths;
}

std::list<std::u16string> NormalizeFavorites(const std::list<std::u16string>& paths) {
    std::list<std::u16string> normal;
    for (const auto& path : paths) {
        if (std::u16string one = NormalizeFavoritePath(path); !one.empty())
            normal.push_back(std::move(one));
    }
    return normal;
}

// With the favorites mutex held. Changes nothing in the preferences (see LoadFavorites).
Status LoadFavoritesLocked(FavoritesState& favorites, ProviderWrapper* wrapper) {
    favorites.problem.reset();
    favorites.setAsidePending = false;
    favorites.mustNotSave = false;
    const any_regular_t stored = Preferences::GetValue(kFavoritesPreference);
    std::optional<std::list<std::u16string>> paths;
    if (const auto* wide = stored.get_if<std::u16string>()) {
        paths = ParseFavorites(Utf16ToUtf8(*wide));
    } else if (const auto* narrow = stored.get_if<std::string>()) {
        paths = ParseFavorites(*narrow);
    } else if (stored.empty() && IsPreferenceFree(Preferences::Keys(), kFavoritesPreference)) {
        // Absent (rather than there with a value of a type this build does not know).
        paths.emplace();
    }
    favorites.loaded = true;
    if (paths) {
        wrapper->AddProviderManagedPaths(*paths);
        return Status::Ok();
    }

    ProviderHost::FavoritesLoadProblem problem{kFavoritesNotWellFormed, {}};
    if (!stored.empty() && FindFreeSetAsideKey(problem.setAsidePreference).IsOk()) {
        favorites.setAsidePending = true;
        Trace::Write(kFavoritesTrace, std::string(kFavoritesNotWellFormed) +
                                          "; the stored value goes to the preference " +
                                          problem.setAsidePreference + " when the list is saved");
    } else {
        favorites.mustNotSave = true;
        Trace::Write(kFavoritesTrace,
                     std::string(kFavoritesNotWellFormed) +
                         "; the stored value stays and the favorites are not saved");
    }
    favorites.problem = std::move(problem);
    return {StatusCode::kMalformed, kFavoritesNotWellFormed};
}

// Loads the stored list once since Initialize, when a favorites provider is registered.
void EnsureFavoritesLoaded(FavoritesState& favorites, ProviderWrapper* wrapper) {
    if (favorites.loaded || !wrapper)
        return;
    std::lock_guard lock(favorites.mutex);
    if (!favorites.loaded)
        LoadFavoritesLocked(favorites, wrapper).Ignore();  // kept in favorites.problem
}

// With the favorites mutex held: copies a stored value that could not be read to its
// set-aside preference, so that the save about to replace it keeps it.
void KeepUnreadableFavoritesAside(FavoritesState& favorites) {
    if (!favorites.setAsidePending || !favorites.problem)
        return;
    std::string& key = favorites.problem->setAsidePreference;
    if (!IsPreferenceFree(Preferences::Keys(), key) && !FindFreeSetAsideKey(key).IsOk()) {
        favorites.mustNotSave = true;
        return;
    }
    Preferences::SetValue(key, Preferences::GetValue(kFavoritesPreference));
    favorites.setAsidePending = false;
}

void SaveFavorites(const std::list<std::u16string>& favorites) {
    nlohmann::json paths = nlohmann::json::array();
    for (const auto& path : favorites)
        paths.push_back(EncodeFavorite(path));
    nlohmann::json wrapped = {{kFavoritesWrapperKey, paths}};
    // Every string is valid UTF-8 by now, so nothing is replaced.
    Preferences::SetValue(kFavoritesPreference, Utf8ToUtf16(wrapped.dump()));
    if (Status saved = Preferences::Save(); !saved.IsOk())
        Trace::Write(kFavoritesTrace, "cannot save: " + saved.Message());
}

// "." and ".." resolved in the components after a root of ROOTLENGTH units.
std::u16string ResolveComponents(std::u16string_view path, std::size_t rootLength,
                                 char16_t separator) {
    std::vector<std::u16string_view> kept;
    std::size_t start = rootLength;
    while (start <= path.size()) {
        std::size_t end = path.find(separator, start);
        if (end == std::u16string_view::npos)
            end = path.size();
        const std::u16string_view component = path.substr(start, end - start);
        if (component == u"..") {
            if (!kept.empty() && kept.back() != u"..") {
                kept.pop_back();
            } else if (rootLength == 0) {
                kept.push_back(component);  // a relative path may climb; a root never does
            }
        } else if (!component.empty() && component != u".") {
            kept.push_back(component);
        }
        start = end + 1;
    }
    std::u16string out(path.substr(0, rootLength));
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i != 0)
            out.push_back(separator);
        out.append(kept[i]);
    }
    return out.empty() ? u"." : out;
}

}  // namespace

void ProviderHost::Initialize() {
    HostState& state = State();
    std::int32_t expected = 0;
    if (!state.initialized.compare_exchange_strong(expected, 1))
        return;

    ImageResources::Setup();
    // The card providers parse XML with Xerces, which is set up for the process by the host
    // (on the first parse) and never by a provider.
    StartXMLParsing();
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
        state.favorites.setAsidePending = false;
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
    StopXMLParsing();  // no provider is left to parse
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
    const std::list<std::u16string> normal = NormalizeFavorites(paths);
    FavoritesState& state = State().favorites;
    {
        std::lock_guard lock(state.mutex);
        if (!state.loaded)
            LoadFavoritesLocked(state, wrapper).Ignore();  // kept in state.problem
        if (operation == FavoriteOperation::Add) {
            wrapper->AddProviderManagedPaths(normal);
        } else if (operation == FavoriteOperation::Remove) {
            wrapper->RemoveProviderManagedPaths(normal);
        }
    }
    // Not under the lock: on the main thread the listeners run now and may read the list.
    SendToHostStation<FavoritesChangedMessage>();
    // The list is read and stored under the lock, so the last save holds the latest list.
    std::lock_guard lock(state.mutex);
    KeepUnreadableFavoritesAside(state);
    if (state.mustNotSave) {
        Trace::Write(kFavoritesTrace, "not saved: the stored favorites could not be kept aside");
        return;
    }
    std::list<std::u16string> favorites;
    wrapper->GetProviderManagedPaths(favorites);
    SaveFavorites(favorites);
}

Status ProviderHost::LoadFavorites() {
    ProviderWrapper* wrapper = FirstProviderFor(kFavoritesListPath);
    if (!wrapper)
        return Status::Ok();
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

std::u16string NormalizeFavoritePath(Path::PathStyle style, std::u16string_view path) {
    if (path.empty() || path.find(u'\0') != std::u16string_view::npos)
        return {};
    if (path.find(u"://") != std::u16string_view::npos)
        return std::u16string(path);
    if (style == Path::PathStyle::Posix)
        return ResolveComponents(path, Path::RootLength(style, path), u'/');

    std::u16string text(path);
    std::replace(text.begin(), text.end(), u'/', u'\\');
    text = Path::ToLongPath(style, text);
    std::size_t rootLength = Path::RootLength(style, std::u16string_view(text));
    if (rootLength == 0 && text.size() >= 2 && text[0] == u'\\' && text[1] == u'\\') {
        // A share or long path without its root's separator ("\\server\share", "\\?\C:").
        return Path::StripTrailingSeparator(style, std::u16string_view(text));
    }
    if (rootLength == 0 && !text.empty() && text[0] == u'\\')
        rootLength = 1;  // "\x" starts at the current drive's root
    // Drive letters name the same drive in either case.
    const std::size_t drive = text.starts_with(u"\\\\?\\") ? 4 : 0;
    if (text.size() > drive + 1 && text[drive + 1] == u':' && text[drive] >= u'a' &&
        text[drive] <= u'z') {
        text[drive] = char16_t(text[drive] - u'a' + u'A');
    }
    return ResolveComponents(text, rootLength, u'\\');
}

std::u16string NormalizeFavoritePath(std::u16string_view path) {
    return NormalizeFavoritePath(Path::kNativePathStyle, path);
}

void RequestForceUpdate() {
    SendToHostStation<RequestForceUpdateMessage>();
}

}  // namespace Tessel
