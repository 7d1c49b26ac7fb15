#include <tessel/providers/cards/ProviderCinemaDNG.h>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/thumbnails/Resources.h>

namespace Tessel {

namespace N = CardFileNames;

namespace {

constexpr std::u16string_view kFrameExtension = u".dng";
constexpr std::u16string_view kSoundExtension = u".WAV";
constexpr char16_t kFrameNumberSeparator = u'_';
constexpr const char* kPicture = "CinemaDNGThumb.png";

}  // namespace

std::string ProviderCinemaDNG::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderCinemaDNG";
}

std::string ProviderCinemaDNG::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/CinemaDNGUIString=Cinema DNG");
}

PelPixHandle ProviderCinemaDNG::GetThumbnail(const std::string&, const std::string&,
                                             const any_regular_t&, std::uint32_t width,
                                             std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderResourcePicture(kPicture, width, GetMaximumThumbnailHeight(height));
}

bool ProviderCinemaDNG::IsFrameFile(std::u16string_view name) const {
    return N::HasExtension(name, kFrameExtension);
}

void ProviderCinemaDNG::AddItemFields(SDKPropertyMap& record, const std::u16string& itemPath,
                                      const std::vector<std::u16string>& files,
                                      const SDKFieldSet& fields, const XMPFieldSet&) {
    if (!fields.count(kSDKExtraPathField))
        return;
    std::vector<std::u16string> related;
    related.reserve(files.size());
    for (const std::u16string& file : files) {
        if (N::HasExtension(N::LeafOf(file), kFrameExtension))
            related.push_back(file);
    }
    SortNtfsOrder(related);
    const std::u16string_view title = N::TitleOf(N::LeafOf(itemPath));
    if (const std::size_t cut = title.rfind(kFrameNumberSeparator); cut != title.npos && cut > 0) {
        const std::u16string sound = std::u16string(title.substr(0, cut)) + kSoundExtension.data();
        for (const std::u16string& file : files) {
            if (N::EqualIgnoringCase(N::LeafOf(file), sound)) {
                related.push_back(file);
                break;
            }
        }
    }
    SetExtraPath(record, fields, related);
}

}  // namespace Tessel
