// The user's preferences: one JSON object in one file, key -> any_regular_t.
//
// The file is TESSEL_PREFS when set, otherwise $XDG_CONFIG_HOME/tessel/preferences.json
// ($HOME/.config/... when XDG_CONFIG_HOME is unset; %APPDATA%\Tessel\preferences.json on
// Windows). Saving writes a temporary file beside it, flushes it to disk and renames it
// over the old one, so a crash leaves either the old or the new file, never a torn one.
// A file that cannot be read as preferences is never overwritten: it is renamed aside
// ("preferences.json.unreadable-YYYYMMDD-HHMMSS") and reported, and the store starts
// empty, so whatever the user had can still be recovered by hand.
//
// Thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API Preferences {
public:
    // The file in use: the one given to UseFile, else the environment's.
    static std::string GetFilePath();
    // Points the store at another file (the tools' --prefs) and forgets loaded values. An
    // empty path goes back to the environment's file.
    static void UseFile(const std::string& utf8Path);

    // Reads the file. A missing file is an empty store and no error. Returns an error
    // message when the file could not be used (and was set aside, see above).
    static std::optional<std::string> Load();
    // Writes the file atomically. Returns an error message on failure (the old file is
    // then untouched).
    static std::optional<std::string> Save();

    static any_regular_t GetValue(std::string_view key);
    static void SetValue(std::string_view key, any_regular_t value);
    static void RemoveValue(std::string_view key);
    static std::vector<std::string> Keys();

    // Where the last unreadable file was moved to, empty when none was.
    static std::string GetSetAsidePath();
    // The local time, "YYYYMMDD-HHMMSS", that names what is set aside (files here, and
    // preference values set aside by their owners), so a person can find it.
    static std::string SetAsideTimestamp();
};

}  // namespace Tessel
