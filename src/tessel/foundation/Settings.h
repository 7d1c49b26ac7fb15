// The settings database (the "debug database"): typed values with defaults and a change
// count. Sources, later winning: built-in defaults (DeclareDefault), the JSON file named by
// the TESSEL_SETTINGS environment variable (LoadFromEnvironment), and calls of Set (the
// tools' --set KEY=VALUE ends up there). Feature switches live in the same store.
//
// Every operation is thread-safe. The change count grows by one for every Set or load
// that changes a value, so callers can cache a derived value and re-read it only when the
// count moved.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

// Well-known keys.
inline constexpr const char* kSettingContentLowPriorityThreads =
    "zebmediabrowser.threads.ContentLowPriority";
inline constexpr const char* kSettingContentHighPriorityThreads =
    "zebmediabrowser.threads.ContentHighPriority";
inline constexpr const char* kSettingUseFileSystemDisplayName = "Tessel.UseFileSystemDisplayName";
// False: ProviderHost::Initialize registers none of the library's own providers.
inline constexpr const char* kSettingRegisterBuiltInProviders = "Tessel.RegisterBuiltInProviders";
inline constexpr const char* kSettingP2EnableMissingMediaCheck = "P2.EnableMissingMediaCheck";

class TESSEL_API Settings {
public:
    // Registers a built-in default. Values set or loaded later win over it.
    static void DeclareDefault(std::string_view key, any_regular_t value);

    static void Set(std::string_view key, any_regular_t value);
    // Parses VALUE as JSON when it is valid JSON (numbers, true/false, quoted strings),
    // otherwise takes it as a string. Returns false when TEXT has no '='.
    static bool SetFromAssignment(std::string_view keyEqualsValue);
    // Removes a value set by Set or a file, so the default shows again.
    static void Reset(std::string_view key);

    // Loads a JSON object of key -> value. On failure nothing was changed.
    static Status LoadFile(const std::string& utf8Path);
    // Loads the file named by TESSEL_SETTINGS, if that variable is set (ok when it is not).
    static Status LoadFromEnvironment();

    // The value under KEY (set, loaded or default), empty when there is none.
    static any_regular_t Get(std::string_view key);
    static std::int64_t GetInt(std::string_view key, std::int64_t fallback);
    static bool GetBool(std::string_view key, bool fallback);
    static std::string GetString(std::string_view key, std::string_view fallback);

    static std::uint64_t ChangeCount();
    // All keys with a value, sorted.
    static std::vector<std::string> Keys();
    // Forgets everything set or loaded (defaults stay). For tests and tools.
    static void ClearOverrides();

    // Names KEY as one the library reads; a KEY ending in "." names every key under it
    // ("Tessel.CloudSync."). Tools warn of a key that nobody reads (a misspelt one). Returns
    // KEY, so that a source file can declare the keys it reads in a namespace-scope constant.
    static std::string_view DeclareKey(std::string_view key);
    // Whether KEY was declared, itself or under a declared prefix, or is a feature switch.
    static bool IsDeclaredKey(std::string_view key);
};

// Feature switches: named booleans in the settings database, declared with a title and a
// description (localization keys) so that a UI can list them.
struct FeatureDescription {
    std::string name;
    std::string title;
    std::string description;
    bool enabledByDefault = false;
};

TESSEL_API void DeclareFeature(FeatureDescription feature);
TESSEL_API bool IsFeatureEnabled(std::string_view name);
TESSEL_API void SetFeatureEnabled(std::string_view name, bool enabled);
TESSEL_API std::vector<FeatureDescription> GetDeclaredFeatures();

}  // namespace Tessel
