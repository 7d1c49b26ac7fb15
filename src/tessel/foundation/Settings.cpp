#include <tessel/foundation/Settings.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/AtomicFile.h>

namespace Tessel {

namespace {

using ValueMap = std::map<std::string, any_regular_t, std::less<>>;

struct Store {
    std::mutex mutex;
    ValueMap defaults;
    ValueMap overrides;  // values from files and Set, which win over the defaults
    std::vector<FeatureDescription> features;     // in declaration order, for UIs
    std::set<std::string, std::less<>> declared;  // keys and prefixes ending in "."
    std::atomic<std::uint64_t> changeCount{0};
};

Store& GetStore() {
    // Never destroyed: executors may still read settings while static objects go away.
    static Store* store = new Store;
    return *store;
}

// The value in effect for KEY; the caller holds the lock.
const any_regular_t* Effective(const Store& store, std::string_view key) {
    if (auto it = store.overrides.find(key); it != store.overrides.end())
        return &it->second;
    if (auto it = store.defaults.find(key); it != store.defaults.end())
        return &it->second;
    return nullptr;
}

// Stores VALUE as an override (an empty value removes the override) and reports whether the
// value in effect changed. Empty values are never stored, so "none" and "empty" are the same
// to readers. The caller holds the lock.
bool PutOverride(Store& store, std::string_view key, any_regular_t value) {
    const any_regular_t* old = Effective(store, key);
    const any_regular_t before = old ? *old : any_regular_t();
    auto it = store.overrides.find(key);
    if (value.empty()) {
        if (it != store.overrides.end())
            store.overrides.erase(it);
    } else if (it != store.overrides.end()) {
        it->second = std::move(value);
    } else {
        store.overrides.emplace(std::string(key), std::move(value));
    }
    const any_regular_t* now = Effective(store, key);
    return now ? !(*now == before) : !before.empty();
}

}  // namespace

void Settings::DeclareDefault(std::string_view key, any_regular_t value) {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    const bool overridden = store.overrides.find(key) != store.overrides.end();
    auto it = store.defaults.find(key);
    const bool changed = it == store.defaults.end() ? !value.empty() : !(it->second == value);
    if (value.empty()) {
        if (it != store.defaults.end())
            store.defaults.erase(it);
    } else if (it != store.defaults.end()) {
        it->second = std::move(value);
    } else {
        store.defaults.emplace(std::string(key), std::move(value));
    }
    // A new default only changes what readers see when nothing overrides it.
    if (changed && !overridden)
        store.changeCount.fetch_add(1);
}

void Settings::Set(std::string_view key, any_regular_t value) {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    if (PutOverride(store, key, std::move(value)))
        store.changeCount.fetch_add(1);
}

bool Settings::SetFromAssignment(std::string_view keyEqualsValue) {
    const std::size_t equals = keyEqualsValue.find('=');
    if (equals == std::string_view::npos || equals == 0)
        return false;
    const std::string_view key = keyEqualsValue.substr(0, equals);
    const std::string_view text = keyEqualsValue.substr(equals + 1);
    // "--set name=Clip" means the word Clip; only valid JSON is taken as typed JSON.
    std::optional<any_regular_t> parsed = any_regular_t::FromJson(text);
    Set(key, parsed ? std::move(*parsed) : any_regular_t(std::string(text)));
    return true;
}

void Settings::Reset(std::string_view key) {
    Set(key, any_regular_t());
}

Status Settings::LoadFile(const std::string& utf8Path) {
    std::string bytes;
    std::string error;
    switch (Platform::ReadWholeFile(Path::ToNative(std::string_view(utf8Path)), bytes, error)) {
        case Platform::ReadFileStatus::Ok:
            break;
        case Platform::ReadFileStatus::Missing:
            return {StatusCode::kNotFound, "settings file " + utf8Path + " does not exist"};
        case Platform::ReadFileStatus::Failed:
            return {StatusCode::kIOError, "cannot read settings file " + utf8Path + ": " + error};
    }
    std::optional<any_regular_t> parsed = any_regular_t::FromJson(bytes);
    if (!parsed)
        return {StatusCode::kMalformed, "settings file " + utf8Path + " is not valid JSON"};
    auto* values = parsed->get_if<any_regular_t::dictionary_t>();
    if (!values) {
        return {StatusCode::kMalformed,
                "settings file " + utf8Path + " does not hold a JSON object"};
    }

    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    bool changed = false;
    for (auto& [key, value] : *values) {
        if (PutOverride(store, key, std::move(value)))
            changed = true;
    }
    if (changed)
        store.changeCount.fetch_add(1);
    return Status::Ok();
}

Status Settings::LoadFromEnvironment() {
    const char* path = std::getenv("TESSEL_SETTINGS");
    if (!path || !*path)
        return Status::Ok();
    return LoadFile(path);
}

any_regular_t Settings::Get(std::string_view key) {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    const any_regular_t* value = Effective(store, key);
    return value ? *value : any_regular_t();
}

std::int64_t Settings::GetInt(std::string_view key, std::int64_t fallback) {
    const any_regular_t value = Get(key);
    if (const std::int64_t* i = value.get_if<std::int64_t>())
        return *i;
    if (const double* d = value.get_if<double>()) {
        // Converting a double outside the int64 range is undefined, so such values fall back.
        constexpr double kLimit = 9223372036854775808.0;  // 2^63
        if (std::isfinite(*d) && *d >= -kLimit && *d < kLimit) {
            return static_cast<std::int64_t>(*d);
        }
    }
    return fallback;
}

bool Settings::GetBool(std::string_view key, bool fallback) {
    const any_regular_t value = Get(key);
    if (const bool* b = value.get_if<bool>())
        return *b;
    // Files written by hand often say 1 or 0 for a switch.
    if (const std::int64_t* i = value.get_if<std::int64_t>())
        return *i != 0;
    return fallback;
}

std::string Settings::GetString(std::string_view key, std::string_view fallback) {
    const any_regular_t value = Get(key);
    if (const std::string* utf8 = value.get_if<std::string>())
        return *utf8;
    if (const std::u16string* utf16 = value.get_if<std::u16string>())
        return Utf16ToUtf8(*utf16);
    return std::string(fallback);
}

std::uint64_t Settings::ChangeCount() {
    return GetStore().changeCount.load();
}

std::string_view Settings::DeclareKey(std::string_view key) {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    store.declared.emplace(key);
    return key;
}

bool Settings::IsDeclaredKey(std::string_view key) {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    for (const std::string& declared : store.declared) {
        if (declared == key ||
            (declared.ends_with('.') && key.size() > declared.size() && key.starts_with(declared)))
            return true;
    }
    return std::any_of(store.features.begin(), store.features.end(),
                       [&](const FeatureDescription& feature) { return feature.name == key; });
}

std::vector<std::string> Settings::Keys() {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    std::set<std::string> keys;
    for (const auto& entry : store.defaults)
        keys.insert(entry.first);
    for (const auto& entry : store.overrides)
        keys.insert(entry.first);
    return {keys.begin(), keys.end()};
}

void Settings::ClearOverrides() {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    bool changed = false;
    for (const auto& [key, value] : store.overrides) {
        auto it = store.defaults.find(key);
        if (it == store.defaults.end() || !(it->second == value)) {
            changed = true;
            break;
        }
    }
    store.overrides.clear();
    if (changed)
        store.changeCount.fetch_add(1);
}

void DeclareFeature(FeatureDescription feature) {
    const std::string name = feature.name;
    const bool enabledByDefault = feature.enabledByDefault;
    {
        Store& store = GetStore();
        std::lock_guard lock(store.mutex);
        auto it = std::find_if(store.features.begin(), store.features.end(),
                               [&](const FeatureDescription& f) { return f.name == name; });
        if (it != store.features.end()) {
            *it = std::move(feature);
        } else {
            store.features.push_back(std::move(feature));
        }
    }
    Settings::DeclareDefault(name, enabledByDefault);
}

bool IsFeatureEnabled(std::string_view name) {
    return Settings::GetBool(name, false);
}

void SetFeatureEnabled(std::string_view name, bool enabled) {
    Settings::Set(name, enabled);
}

std::vector<FeatureDescription> GetDeclaredFeatures() {
    Store& store = GetStore();
    std::lock_guard lock(store.mutex);
    return store.features;
}

}  // namespace Tessel
