#include <tessel/providers/cards/ProviderCanonRAW.h>

#include <array>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/thumbnails/ArtworkThumbnail.h>

namespace Tessel {

namespace N = CardFileNames;

namespace {

constexpr std::u16string_view kFrameExtension = u".rmf";
constexpr std::u16string_view kSoundExtension = u".wav";
constexpr std::u16string_view kSidecarExtension = u".xmp";
// The recorder's clip files, in the order they are listed.
constexpr std::array<std::u16string_view, 2> kClipFiles = {u"CLIPINFO.XML", u"HrClip.inf"};
constexpr const char16_t* kIcon = u"VideoColored";

}  // namespace

std::string ProviderCanonRAW::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderCanonRAW";
}

std::string ProviderCanonRAW::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/CanonRAWUIString=Canon RAW");
}

PelPixHandle ProviderCanonRAW::GetThumbnail(const std::string&, const std::string&,
                                            const any_regular_t&, std::uint32_t width,
                                            std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderSVGToThumbnail(kIcon, width, GetMaximumThumbnailHeight(height),
                                ImageProvider::Default());
}

bool ProviderCanonRAW::IsFrameFile(std::u16string_view name) const {
    return N::HasExtension(name, kFrameExtension);
}

void ProviderCanonRAW::AddItemFields(SDKPropertyMap& record, const std::u16string& itemPath,
                                     const std::vector<std::u16string>& files,
                                     const SDKFieldSet& fields, const XMPFieldSet&) {
    if (!fields.count(kSDKExtraPathField))
        return;
    std::vector<std::u16string> related;
    for (std::u16string_view clipFile : kClipFiles) {
        for (const std::u16string& file : files) {
            if (N::EqualIgnoringCase(N::LeafOf(file), clipFile)) {
                related.push_back(file);
                break;
            }
        }
    }
    std::vector<std::u16string> sounds;
    for (const std::u16string& file : files) {
        if (N::HasExtension(N::LeafOf(file), kSoundExtension))
            sounds.push_back(file);
    }
    SortNtfsOrder(sounds);
    related.insert(related.end(), sounds.begin(), sounds.end());
    for (std::u16string& sidecar : FindSidecars(itemPath, files, {kSidecarExtension}))
        related.push_back(std::move(sidecar));
    SetExtraPath(record, fields, related);
}

}  // namespace Tessel
