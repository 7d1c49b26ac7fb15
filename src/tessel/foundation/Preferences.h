// The user's preferences: one JSON object in one file, key -> any_regular_t.
//
// The file is TESSEL_PREFS when set, otherwise $XDG_CONFIG_HOME/tessel/preferences.json
// ($HOME/.config/... when XDG_CONFIG_HOME is unset; %APPDATA%\Tessel\preferences.json on
// Windows). Saving writes a temporary file beside it, flushes it to disk and renames it
// over the old one, so a crash leaves either the old or the new file, never a torn one.
//
// A file that cannot be read as preferences is reported by Load, and the store starts
// empty; the file itself is left exactly as it is, so a program that only reads the
// preferences changes nothing on disk. It is never overwritten: the first Save renames it
// aside ("preferences.json.unreadable-YYYYMMDD-HHMMSS") before it writes, and saves nothing
// when that fails, so whatever the user had can still be recovered by hand. A path that
// names something other than a regular file (a folder, a FIFO, a device) is never opened,
// moved or replaced: Load reports it and Save refuses.
//
// Thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

class TESSEL_API Preferences {
public:
    // The file in use: the one given to UseFile, else the environment's.
    static std::string GetFilePath();
    // Points the store at another file (the tools' --prefs) and forgets loaded values. An
    // empty path goes back to the environment's file.
    static void UseFile(const std::string& utf8Path);

    // Whether UTF8PATH can hold the preferences: an existing regular file, or a missing file
    // in an existing folder (kInvalidArgument or kNotFound otherwise). Looks only; nothing is
    // opened or changed. For paths a person names (the tools' --prefs).
    static Status CheckFile(const std::string& utf8Path);

    // Reads the file. A missing file is an empty store and no error. When the file cannot be
    // used the answer says why and the store starts empty (see above); nothing on disk changes.
    static Status Load();
    // Writes the file atomically, after moving aside a file that Load could not use. On
    // failure the file on disk is untouched.
    static Status Save();

    static any_regular_t GetValue(std::string_view key);
    static void SetValue(std::string_view key, any_regular_t value);
    static void RemoveValue(std::string_view key);
    static std::vector<std::string> Keys();

    // Where the last unreadable file was moved to by a save, empty when none was.
    static std::string GetSetAsidePath();
    // The local time, "YYYYMMDD-HHMMSS", that names what is set aside (files here, and
    // preference values set aside by their owners), so a person can find it.
    static std::string SetAsideTimestamp();
};

}  // namespace Tessel
