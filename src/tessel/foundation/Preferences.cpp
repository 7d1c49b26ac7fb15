#include <tessel/foundation/Preferences.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <set>

#include <nlohmann/json.hpp>

#include <tessel/foundation/JsonNesting.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/AtomicFile.h>

namespace Tessel {

namespace {

using Json = nlohmann::json;

// Temporary files younger than this may belong to a save in progress in another process.
constexpr std::chrono::seconds kStaleTemporaryAge{3600};
// How many "-N" variants of a set-aside name are tried before giving up.
constexpr int kMaxSetAsideAttempts = 1000;

struct State {
    // Serialises file I/O (Load, Save) without blocking readers of the values meanwhile.
    std::mutex fileMutex;
    // Guards everything below.
    std::mutex mutex;
    std::optional<std::string> file;  // from UseFile
    std::map<std::string, any_regular_t, std::less<>> values;
    // Entries the file holds in a form this process cannot decode (usually a value type
    // registered later, or by a newer version). They are kept as JSON text and written back
    // unchanged, so saving never drops what another version stored.
    std::map<std::string, std::string, std::less<>> undecoded;
    std::string setAsidePath;
    // The file Load found could not be used: the next save moves it aside before writing.
    bool setAsideBeforeSaving = false;
};

State& GetState() {
    static State* state = new State;  // never destroyed: hosts may save from atexit handlers
    return *state;
}

std::string Dump(const Json& json, int indent = -1) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

#if defined(_WIN32)
std::string GetEnvironment(const wchar_t* name) {
    const wchar_t* value = _wgetenv(name);
    if (!value)
        return {};
    return Utf16ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(value)));
}
#else
std::string GetEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}
#endif

std::string EnvironmentFilePath() {
#if defined(_WIN32)
    if (std::string path = GetEnvironment(L"TESSEL_PREFS"); !path.empty())
        return path;
    if (std::string appData = GetEnvironment(L"APPDATA"); !appData.empty()) {
        return Path::Join(Path::Join(std::string_view(appData), "Tessel"), "preferences.json");
    }
    return {};
#else
    if (std::string path = GetEnvironment("TESSEL_PREFS"); !path.empty())
        return path;
    // The XDG base-directory rules say a relative XDG_CONFIG_HOME is to be ignored.
    if (std::string config = GetEnvironment("XDG_CONFIG_HOME"); config.starts_with('/')) {
        return Path::Join(Path::Join(std::string_view(config), "tessel"), "preferences.json");
    }
    if (std::string home = GetEnvironment("HOME"); !home.empty()) {
        return Path::Join(std::string_view(home), ".config/tessel/preferences.json");
    }
    return {};
#endif
}

// "YYYYMMDD-HHMMSS" in local time: the set-aside file is for a person to find.
std::string LocalTimestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
#if defined(_WIN32)
    localtime_s(&parts, &now);
#else
    localtime_r(&now, &parts);
#endif
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    return text;
}

struct Contents {
    std::map<std::string, any_regular_t, std::less<>> values;
    std::map<std::string, std::string, std::less<>> undecoded;
};

// Parses the file's bytes; std::nullopt with PROBLEM set when they are not one JSON object.
std::optional<Contents> Parse(const std::string& bytes, std::string& problem) {
    // One more level than a value may take: the object that holds the values.
    if (!detail::JsonNestingWithin(bytes, detail::kMaxJsonTextDepth + 1)) {
        problem = "it nests too deeply";
        return std::nullopt;
    }
    const Json json = Json::parse(bytes, nullptr, false);
    if (json.is_discarded()) {
        problem = "it is not valid JSON";
        return std::nullopt;
    }
    if (!json.is_object()) {
        problem = "it does not hold a JSON object";
        return std::nullopt;
    }
    Contents contents;
    for (const auto& [key, item] : json.items()) {
        std::string text = Dump(item);
        if (std::optional<any_regular_t> value = any_regular_t::FromJson(text)) {
            contents.values.emplace(key, std::move(*value));
        } else {
            contents.undecoded.emplace(key, std::move(text));
        }
    }
    return contents;
}

// Moves PATH to a free "PATH.unreadable-YYYYMMDD-HHMMSS[-N]" name, stored in TARGET.
Status SetAside(const std::string& path, std::string& target) {
    const std::string base = path + ".unreadable-" + LocalTimestamp();
    std::string error;
    for (int attempt = 1; attempt <= kMaxSetAsideAttempts; ++attempt) {
        target = attempt == 1 ? base : base + "-" + std::to_string(attempt);
        switch (Platform::RenameWithoutReplacing(Path::ToNative(std::string_view(path)),
                                                 Path::ToNative(std::string_view(target)), error)) {
            case Platform::RenameStatus::Done:
                return Status::Ok();
            case Platform::RenameStatus::TargetExists:
                continue;
            case Platform::RenameStatus::Failed:
                return {StatusCode::kIOError, error};
        }
    }
    return {StatusCode::kIOError, "no free name to move it to"};
}

// What is at PATH, links followed; a link to nothing counts as Other, since a file written
// there would replace the link.
Platform::PathKind KindOf(const Platform::NativeString& path) {
    const Platform::PathKind kind = Platform::GetPathKind(path);
    if (kind == Platform::PathKind::Missing && Platform::PathEntryExists(path))
        return Platform::PathKind::Other;
    return kind;
}

Status NotARegularFile(const std::string& path, Platform::PathKind kind) {
    return {
        StatusCode::kInvalidArgument,
        path + (kind == Platform::PathKind::Directory ? " is a folder" : " is not a regular file")};
}

}  // namespace

std::string Preferences::GetFilePath() {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    return state.file ? *state.file : EnvironmentFilePath();
}

void Preferences::UseFile(const std::string& utf8Path) {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    state.file = utf8Path.empty() ? std::nullopt : std::optional<std::string>(utf8Path);
    state.values.clear();
    state.undecoded.clear();
    state.setAsideBeforeSaving = false;
}

Status Preferences::CheckFile(const std::string& utf8Path) {
    if (utf8Path.empty())
        return {StatusCode::kInvalidArgument, "no preferences file is named"};
    const Platform::PathKind kind = KindOf(Path::ToNative(std::string_view(utf8Path)));
    if (kind == Platform::PathKind::File)
        return Status::Ok();
    if (kind != Platform::PathKind::Missing)
        return NotARegularFile(utf8Path, kind);
    // A bare name lives in the current folder, which exists.
    const std::string parent = Path::GetParent(std::string_view(utf8Path));
    if (!parent.empty() && Platform::GetPathKind(Path::ToNative(std::string_view(parent))) !=
                               Platform::PathKind::Directory) {
        return {StatusCode::kNotFound, "there is no folder " + parent};
    }
    return Status::Ok();
}

Status Preferences::Load() {
    State& state = GetState();
    std::lock_guard fileLock(state.fileMutex);
    const std::string path = GetFilePath();

    Contents contents;
    Status status;
    bool setAsideBeforeSaving = false;
    const Platform::NativeString native = Path::ToNative(std::string_view(path));
    // Nowhere to read from, or nothing there: an empty store and no error.
    const Platform::PathKind kind = path.empty() ? Platform::PathKind::Missing : KindOf(native);
    if (kind == Platform::PathKind::Directory || kind == Platform::PathKind::Other) {
        // Never opened (a FIFO would block) and never moved: it is not ours.
        const Status refused = NotARegularFile(path, kind);
        status = {refused.Code(), "the preferences file " + refused.Message() +
                                      "; the preferences start empty and cannot be saved"};
    } else if (kind == Platform::PathKind::File) {
        std::string bytes;
        std::string error;
        std::string problem;
        StatusCode code = StatusCode::kMalformed;
        switch (Platform::ReadWholeFile(native, bytes, error)) {
            case Platform::ReadFileStatus::Missing:
                break;  // removed since it was looked at
            case Platform::ReadFileStatus::Failed:
                code = StatusCode::kIOError;
                problem = "it cannot be read (" + error + ")";
                break;
            case Platform::ReadFileStatus::Ok:
                if (std::optional<Contents> parsed = Parse(bytes, problem))
                    contents = std::move(*parsed);
                break;
        }
        if (!problem.empty()) {
            setAsideBeforeSaving = true;
            status = {code, "the preferences file " + path + " was not used because " + problem +
                                "; the preferences start empty, and the file will be moved to " +
                                path + ".unreadable-<date>-<time> before anything is saved"};
        }
    }

    std::lock_guard lock(state.mutex);
    // UseFile may have pointed the store elsewhere meanwhile; these values belong to the old file.
    if ((state.file ? *state.file : EnvironmentFilePath()) != path)
        return status;
    state.values = std::move(contents.values);
    state.undecoded = std::move(contents.undecoded);
    state.setAsideBeforeSaving = setAsideBeforeSaving;
    return status;
}

Status Preferences::Save() {
    State& state = GetState();
    std::lock_guard fileLock(state.fileMutex);
    std::string path;
    bool setAsideFirst = false;
    Json document = Json::object();
    try {
        std::lock_guard lock(state.mutex);
        path = state.file ? *state.file : EnvironmentFilePath();
        if (path.empty()) {
            return {StatusCode::kNotFound,
                    "there is no place for the preferences file: set TESSEL_PREFS"};
        }
        setAsideFirst = state.setAsideBeforeSaving;
        for (const auto& [key, text] : state.undecoded) {
            document[key] = Json::parse(text, nullptr, false);
        }
        for (const auto& [key, value] : state.values) {
            // JSON member names are UTF-8; writing the key any other way would change it.
            if (!IsValidUtf8(key)) {
                return {StatusCode::kInvalidArgument,
                        "the preference key " + ToDisplayUtf8(key) + " is not valid UTF-8"};
            }
            std::optional<std::string> text = value.ToJson();
            if (!text) {
                return {StatusCode::kUnsupported,
                        "the preference " + key + " has a type that cannot be saved"};
            }
            document[key] = Json::parse(*text, nullptr, false);
        }
    } catch (const std::exception& error) {
        return {StatusCode::kInternal,
                std::string("cannot prepare the preferences: ") + error.what()};
    }

    const Platform::NativeString native = Path::ToNative(std::string_view(path));
    const Platform::PathKind kind = KindOf(native);
    if (kind == Platform::PathKind::Directory || kind == Platform::PathKind::Other) {
        const Status refused = NotARegularFile(path, kind);
        return {refused.Code(),
                "the preferences file " + refused.Message() + "; the preferences were not saved"};
    }
    // Temporary files of a save that crashed are never read; clear away old ones.
    Platform::RemoveStaleAtomicTemporaries(native, kStaleTemporaryAge);
    if (setAsideFirst && kind == Platform::PathKind::File) {
        std::string target;
        if (Status moved = SetAside(path, target); !moved.IsOk()) {
            return {moved.Code(),
                    "the preferences file " + path +
                        " could not be read and cannot be moved aside (" + moved.Message() +
                        "), so it is not overwritten: the preferences were not saved"};
        }
        std::lock_guard lock(state.mutex);
        state.setAsidePath = target;
    }
    if (setAsideFirst) {
        std::lock_guard lock(state.mutex);
        if ((state.file ? *state.file : EnvironmentFilePath()) == path)
            state.setAsideBeforeSaving = false;
    }

    const std::string parent = Path::GetParent(std::string_view(path));
    if (!parent.empty()) {
        if (Status made = Platform::CreateDirectories(Path::ToNative(std::string_view(parent)));
            !made.IsOk()) {
            return made;
        }
    }
    // Indented, because people open this file to recover their settings by hand.
    std::string text = Dump(document, 2);
    text.push_back('\n');
    return Platform::WriteFileAtomically(native, text);
}

any_regular_t Preferences::GetValue(std::string_view key) {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    if (auto it = state.values.find(key); it != state.values.end())
        return it->second;
    if (auto it = state.undecoded.find(key); it != state.undecoded.end()) {
        // Its type may have been registered since the file was read.
        if (std::optional<any_regular_t> value = any_regular_t::FromJson(it->second)) {
            state.undecoded.erase(it);
            return state.values.insert_or_assign(std::string(key), std::move(*value)).first->second;
        }
    }
    return {};
}

void Preferences::SetValue(std::string_view key, any_regular_t value) {
    // An empty value reads back the same as no value, so it is stored as none.
    if (value.empty())
        return RemoveValue(key);
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    if (auto it = state.undecoded.find(key); it != state.undecoded.end()) {
        state.undecoded.erase(it);
    }
    state.values.insert_or_assign(std::string(key), std::move(value));
}

void Preferences::RemoveValue(std::string_view key) {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    if (auto it = state.values.find(key); it != state.values.end())
        state.values.erase(it);
    if (auto it = state.undecoded.find(key); it != state.undecoded.end()) {
        state.undecoded.erase(it);
    }
}

std::vector<std::string> Preferences::Keys() {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    std::set<std::string> keys;
    for (const auto& entry : state.values)
        keys.insert(entry.first);
    for (const auto& entry : state.undecoded)
        keys.insert(entry.first);
    return {keys.begin(), keys.end()};
}

std::string Preferences::SetAsideTimestamp() {
    return LocalTimestamp();
}

std::string Preferences::GetSetAsidePath() {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    return state.setAsidePath;
}

}  // namespace Tessel
