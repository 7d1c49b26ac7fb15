// The ordered table of the library's providers. Registration order is the order in which
// providers are asked about a path, and it breaks ties between equal scores: the plain
// directory provider comes first, so a format provider must score higher than it for the
// folders it claims. Each provider adds its row at its fixed position.
#include <functional>
#include <memory>

#include <tessel/foundation/Settings.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/cards/ProviderARRIRAW.h>
#include <tessel/providers/cards/ProviderAVCHD.h>
#include <tessel/providers/cards/ProviderCanonRAW.h>
#include <tessel/providers/cards/ProviderCanonXF.h>
#include <tessel/providers/cards/ProviderCanonXFHEVC.h>
#include <tessel/providers/cards/ProviderCinemaDNG.h>
#include <tessel/providers/cards/ProviderDPX.h>
#include <tessel/providers/cards/ProviderP2.h>
#include <tessel/providers/cards/ProviderRED.h>
#include <tessel/providers/cards/ProviderSonyHDV.h>
#include <tessel/providers/cards/ProviderXAVC.h>
#include <tessel/providers/cards/ProviderXDCAM.h>
#include <tessel/providers/cards/ProviderXDCAMEX.h>
#include <tessel/providers/filesystem/ProviderCloudSync.h>
#include <tessel/providers/filesystem/ProviderFavorites.h>
#include <tessel/providers/filesystem/WinProviderDirectory.h>
#include <tessel/providers/filesystem/WinProviderNetworkVolume.h>
#include <tessel/providers/filesystem/WinProviderVolume.h>

namespace Tessel {

namespace {

const std::string_view kRegisterSetting = Settings::DeclareKey(kSettingRegisterBuiltInProviders);

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
template <class P>
std::shared_ptr<Provider> Make() {
    return std::make_shared<P>();
}

const ProviderRow kProviderTable[] = {
    {"WinProviderDirectory", Make<WinProviderDirectory>, nullptr},
    {"WinProviderVolume", Make<WinProviderVolume>, nullptr},
    {"WinProviderNetworkVolume", Make<WinProviderNetworkVolume>, nullptr},
    {"ProviderFavorites", Make<ProviderFavorites>, nullptr},
    {"ProviderAVCHD", Make<ProviderAVCHD>, nullptr},
    {"ProviderCloudSync", Make<ProviderCloudSync>, nullptr},
    {"ProviderCanonXF", Make<ProviderCanonXF>, nullptr},
    {"ProviderCanonXFHEVC", Make<ProviderCanonXFHEVC>, nullptr},
    {"ProviderXDCAM", Make<ProviderXDCAM>, nullptr},
    {"ProviderXAVC", Make<ProviderXAVC>, kXAVCFeature},
    {"ProviderXDCAMEX", Make<ProviderXDCAMEX>, nullptr},
    {"ProviderP2", Make<ProviderP2>, nullptr},
    {"ProviderSonyHDV", Make<ProviderSonyHDV>, nullptr},
    // ProviderPelproProject, ProviderMWProject and ProviderBin come here, before RED.
    {"ProviderRED", Make<ProviderRED>, nullptr},
    {"ProviderARRIRAW", Make<ProviderARRIRAW>, nullptr},
    {"ProviderCanonRAW", Make<ProviderCanonRAW>, nullptr},
    {"ProviderCinemaDNG", Make<ProviderCinemaDNG>, nullptr},
    {"ProviderDPX", Make<ProviderDPX>, nullptr},
};

}  // namespace

void RegisterBuiltInProviders() {
    (void)kXAVCFeatureDeclared;
    // A host (or a test) that brings only providers of its own turns the library's off.
    if (!Settings::GetBool(kRegisterSetting, true))
        return;
    for (const ProviderRow& row : kProviderTable) {
        if (!row.create)
            continue;
        if (row.requiredFeature && !IsFeatureEnabled(row.requiredFeature))
            continue;
        ProviderHost::RegisterProvider(std::make_unique<ProviderWrapper>(row.create()));
    }
}

}  // namespace Tessel
