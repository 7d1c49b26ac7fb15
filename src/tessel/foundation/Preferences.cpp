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
    // The file could be neither read nor moved aside: saving would destroy it.
    bool mustNotOverwrite = false;
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

// Moves PATH to a free "PATH.unreadable-YYYYMMDD-HHMMSS[-N]" name; answers that name, or
// std::nullopt with ERROR set.
std::optional<std::string> SetAside(const std::string& path, std::string& error) {
    const std::string base = path + ".unreadable-" + LocalTimestamp();
    for (int attempt = 1; attempt <= kMaxSetAsideAttempts; ++attempt) {
        const std::string target = attempt == 1 ? base : base + "-" + std::to_string(attempt);
        switch (Platform::RenameWithoutReplacing(Path::ToNative(std::string_view(path)),
                                                 Path::ToNative(std::string_view(target)), error)) {
            case Platform::RenameStatus::Done:
                return target;
            case Platform::RenameStatus::TargetExists:
                continue;
            case Platform::RenameStatus::Failed:
                return std::nullopt;
        }
    }
    error = "no free name to move it to";
    return std::nullopt;
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
    state.mustNotOverwrite = false;
}

std::optional<std::string> Preferences::Load() {
    State& state = GetState();
    std::lock_guard fileLock(state.fileMutex);
    const std::string path = GetFilePath();

    std::optional<Contents> contents;
    std::string problem;
    if (path.empty()) {
        contents.emplace();  // nowhere to read from: an empty store, as for a missing file
    } else {
        const Platform::NativeString native = Path::ToNative(std::string_view(path));
        // Temporary files of a save that crashed are never read; clear away old ones.
        Platform::RemoveStaleAtomicTemporaries(native, kStaleTemporaryAge);
        std::string bytes;
        std::string error;
        switch (Platform::ReadWholeFile(native, bytes, error)) {
            case Platform::ReadFileStatus::Missing:
                contents.emplace();
                break;
            case Platform::ReadFileStatus::Failed:
                problem = "it cannot be read (" + error + ")";
                break;
            case Platform::ReadFileStatus::Ok:
                contents = Parse(bytes, problem);
                break;
        }
    }

    std::optional<std::string> message;
    bool mustNotOverwrite = false;
    if (!contents) {
        contents.emplace();
        std::string error;
        if (std::optional<std::string> aside = SetAside(path, error)) {
            std::lock_guard lock(state.mutex);
            state.setAsidePath = *aside;
            message = "the preferences file " + path + " was not used because " + problem +
                      "; it was moved to " + *aside + " and the preferences start empty";
        } else {
            mustNotOverwrite = true;
            message = "the preferences file " + path + " was not used because " + problem +
                      ", and it could not be moved aside (" + error +
                      "); it will not be overwritten and the preferences start empty";
        }
    }

    std::lock_guard lock(state.mutex);
    // UseFile may have pointed the store elsewhere meanwhile; these values belong to the old file.
    if ((state.file ? *state.file : EnvironmentFilePath()) != path)
        return message;
    state.values = std::move(contents->values);
    state.undecoded = std::move(contents->undecoded);
    state.mustNotOverwrite = mustNotOverwrite;
    return message;
}

std::optional<std::string> Preferences::Save() {
    State& state = GetState();
    std::lock_guard fileLock(state.fileMutex);
    std::string path;
    Json document = Json::object();
    try {
        std::lock_guard lock(state.mutex);
        path = state.file ? *state.file : EnvironmentFilePath();
        if (path.empty()) {
            return std::string("there is no place for the preferences file: set TESSEL_PREFS");
        }
        if (state.mustNotOverwrite) {
            return "the preferences file " + path +
                   " could not be read nor moved aside, so it is not overwritten";
        }
        for (const auto& [key, text] : state.undecoded) {
            document[key] = Json::parse(text, nullptr, false);
        }
        for (const auto& [key, value] : state.values) {
            // JSON member names are UTF-8; writing the key any other way would change it.
            if (!IsValidUtf8(key)) {
                return "the preference key " + ToDisplayUtf8(key) + " is not valid UTF-8";
            }
            std::optional<std::string> text = value.ToJson();
            if (!text)
                return "the preference " + key + " has a type that cannot be saved";
            document[key] = Json::parse(*text, nullptr, false);
        }
    } catch (const std::exception& error) {
        return std::string("cannot prepare the preferences: ") + error.what();
    }

    const std::string parent = Path::GetParent(std::string_view(path));
    if (!parent.empty()) {
        if (auto error = Platform::CreateDirectories(Path::ToNative(std::string_view(parent)))) {
            return error;
        }
    }
    // Indented, because people open this file to recover their settings by hand.
    std::string text = Dump(document, 2);
    text.push_back('\n');
    return Platform::WriteFileAtomically(Path::ToNative(std::string_view(path)), text);
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
