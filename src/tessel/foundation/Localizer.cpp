#include <tessel/foundation/Localizer.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <shared_mutex>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/AtomicFile.h>

namespace Tessel {

namespace {

constexpr std::string_view kKeyPrefix = "$$$/";

struct Table {
    std::shared_mutex mutex;
    std::map<std::string, std::string, std::less<>> texts;
};

Table& GetTable() {
    static Table* table = new Table;  // never destroyed: texts may be asked for at exit
    return *table;
}

// Replaces ^1..^9 by the arguments in one pass, so an argument that itself contains "^2"
// stays as it is. A marker without an argument is left in place, where it shows in the UI.
std::string Substitute(std::string_view text, std::initializer_list<std::string_view> arguments) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '^' && i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '9') {
            const std::size_t index = static_cast<std::size_t>(text[i + 1] - '1');
            if (index < arguments.size()) {
                out.append(*(arguments.begin() + index));
                ++i;
                continue;
            }
        }
        out.push_back(text[i]);
    }
    return out;
}

std::string Lookup(std::string_view keyWithDefault) {
    const std::string_view key = LocalizationKeyOf(keyWithDefault);
    if (key.empty())
        return std::string(keyWithDefault);
    {
        Table& table = GetTable();
        std::shared_lock lock(table.mutex);
        if (auto it = table.texts.find(key); it != table.texts.end())
            return it->second;
    }
    // Without a default the key itself is shown, which makes a missing text easy to spot.
    if (key.size() == keyWithDefault.size())
        return std::string(key);
    return std::string(keyWithDefault.substr(key.size() + 1));
}

}  // namespace

std::string_view LocalizationKeyOf(std::string_view keyWithDefault) {
    if (!keyWithDefault.starts_with(kKeyPrefix))
        return {};
    return keyWithDefault.substr(0, keyWithDefault.find('='));
}

std::string Localize(std::string_view keyWithDefault) {
    return Lookup(keyWithDefault);
}

std::string Localize(std::string_view keyWithDefault,
                     std::initializer_list<std::string_view> arguments) {
    return Substitute(Lookup(keyWithDefault), arguments);
}

std::u16string LocalizeUtf16(std::string_view keyWithDefault) {
    return Utf8ToUtf16(Lookup(keyWithDefault));
}

Status Localizer::LoadTable(std::string_view json) {
    std::map<std::string, std::string, std::less<>> texts;
    try {
        // The parser and the destructor of nlohmann::json are iterative, so deep nesting in
        // hostile input costs memory but no stack.
        const nlohmann::json parsed =
            nlohmann::json::parse(json.begin(), json.end(), nullptr, false);
        if (parsed.is_discarded())
            return {StatusCode::kMalformed, "the translations are not valid JSON"};
        if (!parsed.is_object())
            return {StatusCode::kMalformed, "the translations are not a JSON object"};
        for (const auto& [key, value] : parsed.items()) {
            if (!value.is_string())
                return {StatusCode::kMalformed, "the translation of " + key + " is not a string"};
            // Tables made by copying keys from the code may carry the default text too.
            const std::string_view bareKey = LocalizationKeyOf(key);
            texts.insert_or_assign(bareKey.empty() ? key : std::string(bareKey),
                                   value.get<std::string>());
        }
    } catch (const std::exception& error) {
        return {StatusCode::kMalformed,
                std::string("cannot read the translations: ") + error.what()};
    }
    Table& table = GetTable();
    std::unique_lock lock(table.mutex);
    table.texts = std::move(texts);
    return Status::Ok();
}

Status Localizer::LoadTableFromFile(const std::string& utf8Path) {
    std::string bytes;
    std::string error;
    switch (Platform::ReadWholeFile(Path::ToNative(std::string_view(utf8Path)), bytes, error)) {
        case Platform::ReadFileStatus::Ok:
            break;
        case Platform::ReadFileStatus::Missing:
            return {StatusCode::kNotFound, "the translation file " + utf8Path + " does not exist"};
        case Platform::ReadFileStatus::Failed:
            return {StatusCode::kIOError,
                    "cannot read the translation file " + utf8Path + ": " + error};
    }
    if (Status status = LoadTable(bytes); !status.IsOk())
        return {status.Code(), status.Message() + " (" + utf8Path + ")"};
    return Status::Ok();
}

Status Localizer::LoadFromEnvironment() {
    const char* path = std::getenv("TESSEL_LOCALE_FILE");
    if (!path || !*path)
        return Status::Ok();
    return LoadTableFromFile(path);
}

void Localizer::ClearTable() {
    Table& table = GetTable();
    std::unique_lock lock(table.mutex);
    table.texts.clear();
}

}  // namespace Tessel
