// Localized texts. A localization key looks like "$$$/Some/Key=Default English text".
// Localize returns the translation of the key from the loaded table, or the default text
// after '=' when there is none. Text that does not start with "$$$/" is returned as is.
// "^1".."^9" in the result are replaced by the given arguments.
//
// Translations are JSON objects of "$$$/Some/Key" -> "text", loaded with LoadTable or
// from the file named by TESSEL_LOCALE_FILE. Thread-safe.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

TESSEL_API std::string Localize(std::string_view keyWithDefault);
TESSEL_API std::string Localize(std::string_view keyWithDefault,
                                std::initializer_list<std::string_view> arguments);
TESSEL_API std::u16string LocalizeUtf16(std::string_view keyWithDefault);

// The key part ("$$$/Some/Key") of a localization key, or an empty view when TEXT is not one.
TESSEL_API std::string_view LocalizationKeyOf(std::string_view keyWithDefault);

class TESSEL_API Localizer {
public:
    // Replaces the translation table. On failure (malformed JSON, a file that cannot be
    // read) the table in use stays.
    static Status LoadTable(std::string_view json);
    static Status LoadTableFromFile(const std::string& utf8Path);
    // Loads the file named by TESSEL_LOCALE_FILE, if that variable is set (ok when it is not).
    static Status LoadFromEnvironment();
    static void ClearTable();
};

}  // namespace Tessel
