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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    if (std::optional<Tessel::any_regular_t> value = Tessel::any_regular_t::FromJson(text)) {
        const std::optional<std::string> json = value->ToJson();
        if (!json)
            std::abort();
        const std::optional<Tessel::any_regular_t> again = Tessel::any_regular_t::FromJson(*json);
        if (!again || again->ToJson() != json)
            std::abort();
    }

    if (!Tessel::Localizer::LoadTable(text)) {
        (void)Tessel::Localize("$$$/Fuzz/Key=^1 and ^2", {text.substr(0, 16), "x"});
    }
    // The input as a localization key itself: key splitting and marker substitution.
    (void)Tessel::Localize(text, {"a", "^1"});
    return 0;
}
