// The ordered table of the library's providers. Registration order is the order in which
// providers are asked about a path, and it breaks ties between equal scores: the plain
// directory provider comes first, so a format provider must score higher than it for the
// folders it claims. Each provider adds its row at its fixed position.
#include <functional>
#include <memory>

#include <tessel/foundation/Settings.h>
#include <tessel/framework/ProviderHost.h>

namespace Tessel {

namespace {

// The XAVC provider is a beta feature, off unless the switch is turned on.
constexpr const char* kXAVCFeature = "ZEBFM-3873";
const bool kXAVCFeatureDeclared = [] {
    DeclareFeature(FeatureDescription{
        kXAVCFeature,
        "$$$/Stratacore/MediaBrowser/BetaFeature/kProviderXAVCTitle=Enable XAVC Media Browser "
        "support",
        "$$$/Stratacore/MediaBrowser/BetaFeature/kProviderXAVCDescription=This will add a "
        "plugin to Media Browser that will parse XAVC (ie both XDRoot and M4Root) folder "
        "structures",
        false});
    return true;
}();

struct ProviderRow {
    const char* className;
    std::function<std::shared_ptr<Provider>()> create;
    const char* requiredFeature;  // null: always registered
};

// In registration order. Rows are added as the providers are written.
const ProviderRow kProviderTable[] = {
    {nullptr, nullptr, nullptr},  // keeps the table non-empty until the first provider lands
};

}  // namespace

void RegisterBuiltInProviders() {
    (void)kXAVCFeatureDeclared;
    for (const ProviderRow& row : kProviderTable) {
        if (!row.create) continue;
        if (row.requiredFeature && !IsFeatureEnabled(row.requiredFeature)) continue;
        ProviderHost::RegisterProvider(std::make_unique<ProviderWrapper>(row.create()));
    }
}

}  // namespace Tessel
