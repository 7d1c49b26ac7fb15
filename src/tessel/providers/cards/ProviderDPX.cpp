#include <tessel/providers/cards/ProviderDPX.h>

#include <algorithm>
#include <array>
#include <span>

#include <fmt/format.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/platform/AtomicFile.h>
#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/providers/cards/DPXHeader.h>
#include <tessel/thumbnails/Resources.h>

namespace Tessel {

namespace {

constexpr std::u16string_view kFrameExtension = u".dpx";
constexpr std::u16string_view kSidecarExtension = u".xmp";
constexpr const char* kPicture = "ContainsVideoThumb.png";

// The fields the header answers; it is read only when one of them is asked for.
constexpr const char* kFrameSizeField = "videoFrameSize";
constexpr const char* kFrameRateField = "videoFrameRate";
constexpr const char* kStartTimecodeField = "startTimecode";
constexpr const char* kDurationField = "duration";
constexpr const char* kCreateDateField = "CreateDate";
constexpr const char* kModelField = "Model";
constexpr const char* kSerialNumberField = "SerialNumber";
constexpr std::array<const char*, 7> kHeaderFields = {
    kFrameSizeField,  kFrameRateField, kStartTimecodeField, kDurationField,
    kCreateDateField, kModelField,     kSerialNumberField};

std::optional<DPXHeader> ReadHeader(const std::u16string& path) {
    std::string bytes;
    std::string error;
    if (Platform::ReadFileHead(Path::ToNative(path), bytes, error, kDPXHeaderBytes) !=
        Platform::ReadFileStatus::Ok)
        return std::nullopt;
    DPXHeader header;
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    if (!ReadDPXHeader(std::span(data, bytes.size()), header))
        return std::nullopt;
    return header;
}

// A frame rate the way cards write theirs, from the header's frames per second; NTSC rates
// (23.976, 29.97, 59.94) snap to N x 1000/1001.
std::optional<FrameRate> RateOf(const DPXHeader& header) {
    if (header.frameRate <= 0)
        return std::nullopt;
    const bool dropFrame = header.timecode && header.timecode->dropFrame;
    return ParseFrameRate(fmt::format("{:.3f}", header.frameRate), dropFrame);
}

std::string TimecodeText(const DPXTimecode& timecode, const std::optional<FrameRate>& rate) {
    if (rate && timecode.frames >= rate->TimecodeBase())
        return {};  // a frame number the rate does not have
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", timecode.hours, timecode.minutes,
                       timecode.seconds, rate && rate->dropFrame ? ';' : ':', timecode.frames);
}

}  // namespace

std::string ProviderDPX::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderDPX";
}

std::string ProviderDPX::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/DPXUIString=DPX");
}

PelPixHandle ProviderDPX::GetThumbnail(const std::string&, const std::string&, const any_regular_t&,
                                       std::uint32_t width, std::uint32_t height,
                                       ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderResourcePicture(kPicture, width, GetMaximumThumbnailHeight(height));
}

bool ProviderDPX::IsFrameFile(std::u16string_view name) const {
    return CardFileNames::HasExtension(name, kFrameExtension);
}

void ProviderDPX::AddItemFields(SDKPropertyMap& record, const std::u16string& itemPath,
                                const std::vector<std::u16string>& files, const SDKFieldSet& fields,
                                const XMPFieldSet&) {
    if (fields.count(kSDKExtraPathField))
        SetExtraPath(record, fields, FindSidecars(itemPath, files, {kSidecarExtension}));
    if (std::none_of(kHeaderFields.begin(), kHeaderFields.end(),
                     [&](const char* field) { return fields.count(field) != 0; }))
        return;
    const std::optional<DPXHeader> header = ReadHeader(itemPath);
    if (!header)
        return;
    const std::optional<FrameRate> rate = RateOf(*header);
    if (header->width > 0 && header->height > 0)
        SetIfAbsent(record, fields, kFrameSizeField,
                    fmt::format("{} x {}", header->width, header->height));
    if (rate)
        SetIfAbsent(record, fields, kFrameRateField, FormatFrameRate(*rate));
    if (header->timecode)
        SetIfAbsent(record, fields, kStartTimecodeField, TimecodeText(*header->timecode, rate));
    SetIfAbsent(record, fields, kCreateDateField, header->creationTime);
    SetIfAbsent(record, fields, kModelField, header->inputDevice);
    SetIfAbsent(record, fields, kSerialNumberField, header->inputSerial);
    if (rate && fields.count(kDurationField) && !record.count(kDurationField)) {
        const auto range = CardFileNames::FindFrameRange(files, CardFileNames::LeafOf(itemPath));
        if (range)
            SetIfAbsent(record, fields, kDurationField,
                        FormatTimecode(range->last - range->first + 1, *rate));
    }
}

}  // namespace Tessel
