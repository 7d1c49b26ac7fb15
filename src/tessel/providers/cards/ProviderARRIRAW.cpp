#include <tessel/providers/cards/ProviderARRIRAW.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/thumbnails/Resources.h>

namespace Tessel {

namespace N = CardFileNames;

namespace {

constexpr std::u16string_view kFrameExtension = u".ari";
constexpr std::u16string_view kEncodedFrameExtension = u".arx";
constexpr std::u16string_view kSidecarExtension = u".xmp";
constexpr const char* kPicture = "ArriThumb.png";

}  // namespace

std::string ProviderARRIRAW::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderARRIRAW";
}

std::string ProviderARRIRAW::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/ARRIRAWUIString=ARRIRAW");
}

PelPixHandle ProviderARRIRAW::GetThumbnail(const std::string&, const std::string&,
                                           const any_regular_t&, std::uint32_t width,
                                           std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderResourcePicture(kPicture, width, GetMaximumThumbnailHeight(height));
}

bool ProviderARRIRAW::IsFrameFile(std::u16string_view name) const {
    return N::HasExtension(name, kFrameExtension) || N::HasExtension(name, kEncodedFrameExtension);
}

void ProviderARRIRAW::AddItemFields(SDKPropertyMap& record, const std::u16string& itemPath,
                                    const std::vector<std::u16string>& files,
                                    const SDKFieldSet& fields, const XMPFieldSet&) {
    if (fields.count(kSDKExtraPathField))
        SetExtraPath(record, fields, FindSidecars(itemPath, files, {kSidecarExtension}));
}

}  // namespace Tessel
