// Feeds arbitrary bytes to the JSON readers of the foundation: any_regular_t::FromJson (the
// preferences, the settings file and --set values go through it) and the localizer's table.
// Besides memory and UB faults it checks the round trip: whatever FromJson accepts must write
// back with ToJson, and that text must read back to a value that writes the same text.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/Localizer.h>

namespace {

// A registered type holding a value of its own, so that codecs calling back into
// ToJson/FromJson are exercised as well ({"$type":"fuzz.box","value":...}).
struct Box {
    Tessel::any_regular_t inner;
    friend bool operator==(const Box& a, const Box& b) { return a.inner == b.inner; }
};

const bool kRegistered = [] {
    Tessel::RegisterValueType(
        typeid(Box),
        {"fuzz.box",
         [](const void* value) { return static_cast<const Box*>(value)->inner.ToJson(); },
         [](std::string_view json) -> std::optional<Tessel::any_regular_t> {
             std::optional<Tessel::any_regular_t> inner = Tessel::any_regular_t::FromJson(json);
             if (!inner)
                 return std::nullopt;
             return Tessel::any_regular_t(Box{std::move(*inner)});
         }});
    return true;
}();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)kRegistered;
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    if (std::optional<Tessel::any_regular_t> value = Tessel::any_regular_t::FromJson(text)) {
        const std::optional<std::string> json = value->ToJson();
        if (!json)
            std::abort();
        const std::optional<Tessel::any_regular_t> again = Tessel::any_regular_t::FromJson(*json);
        if (!again || again->ToJson() != json)
            std::abort();
    }

    if (Tessel::Localizer::LoadTable(text).IsOk()) {
        (void)Tessel::Localize("$$$/Fuzz/Key=^1 and ^2", {text.substr(0, 16), "x"});
    }
    // The input as a localization key itself: key splitting and marker substitution.
    (void)Tessel::Localize(text, {"a", "^1"});
    return 0;
}
