#include <tessel/foundation/AnyRegular.h>

#include <cmath>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include <tessel/foundation/JsonNesting.h>
#include <tessel/foundation/Unicode.h>

// The JSON form of any_regular_t values (ToJson writes it, FromJson reads it):
//
//   empty             null
//   bool              true / false
//   std::int64_t      an integer: 42
//   double            a number with a fraction or exponent (2.0, never 2, so it reads back as
//                     a double); NaN and the infinities, which JSON cannot spell, as
//                     {"$type":"double","value":"nan" | "inf" | "-inf"}
//   std::u16string    a plain string when it converts to UTF-8 and back unchanged; otherwise
//                     (lone surrogates) its code units: {"$type":"utf16","units":[97,55296]}
//   std::string       {"$type":"utf8","value":"text"}; bytes that are not valid UTF-8 as
//                     {"$type":"utf8","hex":"61ff"}
//   array_t           an array of values: [1, "a", null]
//   dictionary_t      {"$type":"dictionary","value":{"key": value, ...}}; when a key is not
//                     valid UTF-8, {"$type":"dictionary","entries":[["6bff", value], ...]}
//                     with the keys in hex
//   DateTime          {"$type":"datetime","value":"2026-11-21T08:30:05.123456Z"}, or
//                     {"$type":"datetime","microseconds":N} for instants that a four-digit
//                     year cannot carry
//   registered type   {"$type":"<codec name>","value": <the codec's JSON>}
//
// A tagged object has exactly two members: "$type" and its payload. Plain JSON reads too:
// strings become std::u16string, integers std::int64_t (double beyond its range), other
// numbers double, and objects without "$type" dictionary_t. Values nest at most
// kMaxValueDepth containers deep, in both directions.

namespace Tessel {

namespace {

using Json = nlohmann::json;

constexpr const char* kTypeKey = "$type";
constexpr const char* kTagUtf8 = "utf8";
constexpr const char* kTagUtf16 = "utf16";
constexpr const char* kTagDictionary = "dictionary";
constexpr const char* kTagDateTime = "datetime";
constexpr const char* kTagDouble = "double";

bool IsBuiltInTag(std::string_view tag) {
    return tag == kTagUtf8 || tag == kTagUtf16 || tag == kTagDictionary || tag == kTagDateTime ||
           tag == kTagDouble;
}

// The registry hands out shared pointers so that codecs run without the lock held: a codec
// may serialise nested any_regular_t values and so re-enter the registry.
struct Registry {
    using CodecPointer = std::shared_ptr<const ValueTypeCodec>;
    std::shared_mutex mutex;
    std::unordered_map<std::type_index, CodecPointer> byType;
    std::unordered_map<std::string, std::pair<std::type_index, CodecPointer>> byName;
};

Registry& GetRegistry() {
    // Never destroyed, so values can still be serialised from other static destructors.
    static Registry* registry = new Registry;
    return *registry;
}

Registry::CodecPointer FindCodec(const std::type_info& type) {
    Registry& registry = GetRegistry();
    std::shared_lock lock(registry.mutex);
    auto it = registry.byType.find(std::type_index(type));
    return it == registry.byType.end() ? nullptr : it->second;
}

Registry::CodecPointer FindCodec(const std::string& name) {
    Registry& registry = GetRegistry();
    std::shared_lock lock(registry.mutex);
    auto it = registry.byName.find(name);
    return it == registry.byName.end() ? nullptr : it->second.second;
}

std::string Dump(const Json& json) {
    // Replacing rather than throwing on invalid UTF-8 is a second line of defence: every
    // string put into Json here is valid UTF-8 already.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

int HexDigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::optional<std::string> FromHex(std::string_view hex) {
    if (hex.size() % 2 != 0)
        return std::nullopt;
    std::string bytes;
    bytes.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = HexDigitValue(hex[i]);
        const int low = HexDigitValue(hex[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<char>(high * 16 + low));
    }
    return bytes;
}

Json Tagged(const char* tag, const char* member, Json payload) {
    Json object = Json::object();
    object[kTypeKey] = tag;
    object[member] = std::move(payload);
    return object;
}

bool Write(const any_regular_t& value, std::size_t depth, Json& out);

bool WriteDictionary(const any_regular_t::dictionary_t& dictionary, std::size_t depth, Json& out) {
    bool keysAreText = true;
    for (const auto& [key, item] : dictionary) {
        if (!IsValidUtf8(key)) {
            keysAreText = false;
            break;
        }
    }
    if (keysAreText) {
        Json members = Json::object();
        for (const auto& [key, item] : dictionary) {
            if (!Write(item, depth + 1, members[key]))
                return false;
        }
        out = Tagged(kTagDictionary, "value", std::move(members));
    } else {
        Json entries = Json::array();
        for (const auto& [key, item] : dictionary) {
            Json entry = Json::array({BytesToHex(key), nullptr});
            if (!Write(item, depth + 1, entry[1]))
                return false;
            entries.push_back(std::move(entry));
        }
        out = Tagged(kTagDictionary, "entries", std::move(entries));
    }
    return true;
}

// The value depth at which a codec of a registered type was called on this thread, 0 outside
// codecs. Codecs of types that hold values of their own call ToJson/FromJson again; those
// calls count on from here, so the depth limit holds across them and both directions agree.
thread_local std::size_t gCallerDepth = 0;

class CodecCallScope {
public:
    explicit CodecCallScope(std::size_t depth) : mSaved(gCallerDepth) { gCallerDepth = depth; }
    ~CodecCallScope() { gCallerDepth = mSaved; }
    CodecCallScope(const CodecCallScope&) = delete;
    CodecCallScope& operator=(const CodecCallScope&) = delete;

private:
    std::size_t mSaved;
};

bool WriteRegistered(const any_regular_t& value, std::size_t depth, Json& out) {
    if (depth + 1 > detail::kMaxValueDepth)
        return false;
    const Registry::CodecPointer codec = FindCodec(value.type());
    if (!codec || !codec->toJson)
        return false;
    std::optional<std::string> text;
    {
        CodecCallScope scope(depth + 1);
        text = codec->toJson(value.RawPointer());
    }
    if (!text || !detail::JsonNestingWithin(*text, detail::kMaxJsonTextDepth))
        return false;
    Json payload = Json::parse(text->begin(), text->end(), nullptr, false);
    if (payload.is_discarded())
        return false;
    out = Tagged(codec->name.c_str(), "value", std::move(payload));
    return true;
}

Json WriteDateTime(const DateTime& time) {
    // ISO 8601 with a four-digit year covers 0000-01-01 up to 9999-12-31; other instants are
    // kept as their count, which also keeps the date arithmetic away from overflowing values.
    constexpr std::int64_t kFirstIso = -62'167'219'200'000'000;  // 0000-01-01T00:00:00Z
    constexpr std::int64_t kEndIso = 253'402'300'800'000'000;    // 10000-01-01T00:00:00Z
    if (time.microsecondsSinceEpoch >= kFirstIso && time.microsecondsSinceEpoch < kEndIso) {
        std::string iso = time.ToIso8601();
        const std::optional<DateTime> back = DateTime::FromIso8601(iso);
        if (back && *back == time)
            return Tagged(kTagDateTime, "value", std::move(iso));
    }
    return Tagged(kTagDateTime, "microseconds", time.microsecondsSinceEpoch);
}

bool Write(const any_regular_t& value, std::size_t depth, Json& out) {
    if (value.empty()) {
        out = nullptr;
    } else if (const bool* b = value.get_if<bool>()) {
        out = *b;
    } else if (const std::int64_t* i = value.get_if<std::int64_t>()) {
        out = *i;
    } else if (const double* d = value.get_if<double>()) {
        if (std::isfinite(*d)) {
            out = *d;
        } else {
            out = Tagged(kTagDouble, "value", std::isnan(*d) ? "nan" : (*d > 0 ? "inf" : "-inf"));
        }
    } else if (const std::u16string* u16 = value.get_if<std::u16string>()) {
        std::string utf8 = Utf16ToUtf8(*u16);
        if (IsValidUtf8(utf8) && Utf8ToUtf16(utf8) == *u16) {
            out = std::move(utf8);
        } else {
            Json units = Json::array();
            for (char16_t unit : *u16)
                units.push_back(static_cast<unsigned>(unit));
            out = Tagged(kTagUtf16, "units", std::move(units));
        }
    } else if (const std::string* utf8 = value.get_if<std::string>()) {
        out = IsValidUtf8(*utf8) ? Tagged(kTagUtf8, "value", *utf8)
                                 : Tagged(kTagUtf8, "hex", BytesToHex(*utf8));
    } else if (const auto* array = value.get_if<any_regular_t::array_t>()) {
        if (depth + 1 > detail::kMaxValueDepth)
            return false;
        out = Json::array();
        for (const any_regular_t& item : *array) {
            out.push_back(nullptr);
            if (!Write(item, depth + 1, out.back()))
                return false;
        }
    } else if (const auto* dictionary = value.get_if<any_regular_t::dictionary_t>()) {
        if (depth + 1 > detail::kMaxValueDepth)
            return false;
        return WriteDictionary(*dictionary, depth, out);
    } else if (const DateTime* time = value.get_if<DateTime>()) {
        out = WriteDateTime(*time);
    } else {
        return WriteRegistered(value, depth, out);
    }
    return true;
}

std::optional<any_regular_t> Read(const Json& json, std::size_t depth);

std::optional<any_regular_t> ReadMembers(const Json& members, std::size_t depth) {
    if (depth + 1 > detail::kMaxValueDepth)
        return std::nullopt;
    any_regular_t::dictionary_t dictionary;
    for (const auto& [key, item] : members.items()) {
        std::optional<any_regular_t> value = Read(item, depth + 1);
        if (!value)
            return std::nullopt;
        dictionary.emplace(key, std::move(*value));
    }
    return any_regular_t(std::move(dictionary));
}

std::optional<any_regular_t> ReadEntries(const Json& entries, std::size_t depth) {
    if (!entries.is_array() || depth + 1 > detail::kMaxValueDepth)
        return std::nullopt;
    any_regular_t::dictionary_t dictionary;
    for (const Json& entry : entries) {
        if (!entry.is_array() || entry.size() != 2 || !entry[0].is_string())
            return std::nullopt;
        std::optional<std::string> key = FromHex(entry[0].get_ref<const std::string&>());
        if (!key)
            return std::nullopt;
        std::optional<any_regular_t> value = Read(entry[1], depth + 1);
        if (!value || !dictionary.emplace(std::move(*key), std::move(*value)).second) {
            return std::nullopt;  // duplicate keys mean the text was not written by ToJson
        }
    }
    return any_regular_t(std::move(dictionary));
}

std::optional<any_regular_t> ReadUnits(const Json& units) {
    if (!units.is_array())
        return std::nullopt;
    std::u16string text;
    text.reserve(units.size());
    for (const Json& unit : units) {
        if (!unit.is_number_unsigned())
            return std::nullopt;
        const std::uint64_t number = unit.get<std::uint64_t>();
        if (number > 0xFFFF)
            return std::nullopt;
        text.push_back(static_cast<char16_t>(number));
    }
    return any_regular_t(std::move(text));
}

std::optional<any_regular_t> ReadTagged(const std::string& tag, const Json& object,
                                        std::size_t depth) {
    if (object.size() != 2)
        return std::nullopt;
    // The payload is the member that is not the tag.
    auto payload = object.begin();
    if (payload.key() == kTypeKey)
        ++payload;
    const std::string& member = payload.key();
    const Json& data = payload.value();

    if (tag == kTagUtf8) {
        if (!data.is_string())
            return std::nullopt;
        const std::string& text = data.get_ref<const std::string&>();
        if (member == "value")
            return any_regular_t(text);
        if (member == "hex") {
            std::optional<std::string> bytes = FromHex(text);
            if (!bytes)
                return std::nullopt;
            return any_regular_t(std::move(*bytes));
        }
        return std::nullopt;
    }
    if (tag == kTagUtf16) {
        return member == "units" ? ReadUnits(data) : std::nullopt;
    }
    if (tag == kTagDictionary) {
        if (member == "value" && data.is_object())
            return ReadMembers(data, depth);
        if (member == "entries")
            return ReadEntries(data, depth);
        return std::nullopt;
    }
    if (tag == kTagDateTime) {
        if (member == "value" && data.is_string()) {
            std::optional<DateTime> time =
                DateTime::FromIso8601(data.get_ref<const std::string&>());
            if (!time)
                return std::nullopt;
            return any_regular_t(*time);
        }
        if (member == "microseconds" && data.is_number_integer()) {
            if (data.is_number_unsigned() &&
                data.get<std::uint64_t>() >
                    static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                return std::nullopt;
            }
            return any_regular_t(DateTime{data.get<std::int64_t>()});
        }
        return std::nullopt;
    }
    if (tag == kTagDouble) {
        if (member != "value" || !data.is_string())
            return std::nullopt;
        const std::string& text = data.get_ref<const std::string&>();
        if (text == "nan")
            return any_regular_t(std::numeric_limits<double>::quiet_NaN());
        if (text == "inf")
            return any_regular_t(std::numeric_limits<double>::infinity());
        if (text == "-inf")
            return any_regular_t(-std::numeric_limits<double>::infinity());
        return std::nullopt;
    }
    if (member != "value")
        return std::nullopt;
    const Registry::CodecPointer codec = FindCodec(tag);
    if (!codec || !codec->fromJson)
        return std::nullopt;
    if (depth + 1 > detail::kMaxValueDepth)
        return std::nullopt;
    CodecCallScope scope(depth + 1);
    return codec->fromJson(Dump(data));
}

std::optional<any_regular_t> Read(const Json& json, std::size_t depth) {
    switch (json.type()) {
        case Json::value_t::null:
            return any_regular_t();
        case Json::value_t::boolean:
            return any_regular_t(json.get<bool>());
        case Json::value_t::number_integer:
            return any_regular_t(json.get<std::int64_t>());
        case Json::value_t::number_unsigned: {
            const std::uint64_t number = json.get<std::uint64_t>();
            if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                return any_regular_t(static_cast<std::int64_t>(number));
            }
            return any_regular_t(static_cast<double>(number));
        }
        case Json::value_t::number_float:
            return any_regular_t(json.get<double>());
        case Json::value_t::string:
            return any_regular_t(Utf8ToUtf16(json.get_ref<const std::string&>()));
        case Json::value_t::array: {
            if (depth + 1 > detail::kMaxValueDepth)
                return std::nullopt;
            any_regular_t::array_t array;
            array.reserve(json.size());
            for (const Json& item : json) {
                std::optional<any_regular_t> value = Read(item, depth + 1);
                if (!value)
                    return std::nullopt;
                array.push_back(std::move(*value));
            }
            return any_regular_t(std::move(array));
        }
        case Json::value_t::object: {
            auto tag = json.find(kTypeKey);
            if (tag == json.end())
                return ReadMembers(json, depth);
            if (!tag->is_string())
                return std::nullopt;
            return ReadTagged(tag->get_ref<const std::string&>(), json, depth);
        }
        default:
            return std::nullopt;
    }
}

}  // namespace

namespace detail {

bool JsonNestingWithin(std::string_view text, std::size_t limit) {
    std::size_t depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit)
                return false;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}

}  // namespace detail

any_regular_t::any_regular_t(const any_regular_t& other) {
    if (other.mOps) {
        other.mOps->copy(other.mStorage, mStorage);
        mOps = other.mOps;
    }
}

any_regular_t& any_regular_t::operator=(const any_regular_t& other) {
    // Copied first, so that assigning a value that lives inside this one works.
    if (this != &other)
        *this = any_regular_t(other);
    return *this;
}

const std::type_info& any_regular_t::type() const {
    return mOps ? mOps->type() : typeid(void);
}

bool operator==(const any_regular_t& a, const any_regular_t& b) {
    if (!a.mOps || !b.mOps)
        return !a.mOps && !b.mOps;
    return a.mOps->type() == b.mOps->type() && a.mOps->equals(a.mStorage, b.mStorage);
}

std::optional<std::string> any_regular_t::ToJson() const {
    try {
        Json json;
        if (!Write(*this, gCallerDepth, json))
            return std::nullopt;
        return Dump(json);
    } catch (...) {
        // Allocation failures and codec exceptions end here: this function never throws.
        return std::nullopt;
    }
}

std::optional<any_regular_t> any_regular_t::FromJson(std::string_view json) {
    try {
        if (!detail::JsonNestingWithin(json, detail::kMaxJsonTextDepth))
            return std::nullopt;
        const Json parsed = Json::parse(json.begin(), json.end(), nullptr, false);
        if (parsed.is_discarded())
            return std::nullopt;
        return Read(parsed, gCallerDepth);
    } catch (...) {
        return std::nullopt;
    }
}

void RegisterValueType(const std::type_info& type, ValueTypeCodec codec) {
    // A built-in tag would be read back as the built-in type, so such names are refused.
    if (codec.name.empty() || IsBuiltInTag(codec.name))
        return;
    Registry& registry = GetRegistry();
    auto pointer = std::make_shared<const ValueTypeCodec>(std::move(codec));
    const std::type_index index(type);
    std::unique_lock lock(registry.mutex);
    if (auto old = registry.byType.find(index); old != registry.byType.end()) {
        registry.byName.erase(old->second->name);
        registry.byType.erase(old);
    }
    if (auto old = registry.byName.find(pointer->name); old != registry.byName.end()) {
        registry.byType.erase(old->second.first);
        registry.byName.erase(old);
    }
    registry.byType.emplace(index, pointer);
    registry.byName.emplace(pointer->name, std::make_pair(index, pointer));
}

void UnregisterValueType(const std::type_info& type) {
    Registry& registry = GetRegistry();
    std::unique_lock lock(registry.mutex);
    if (auto old = registry.byType.find(std::type_index(type)); old != registry.byType.end()) {
        registry.byName.erase(old->second->name);
        registry.byType.erase(old);
    }
}

bool IsValueTypeRegistered(const std::type_info& type) {
    return FindCodec(type) != nullptr;
}

}  // namespace Tessel
