#include <tessel/providers/cards/SonyClipMetadata.h>

#include <array>
#include <string_view>

#include <fmt/format.h>

#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/metadata/XMPValues.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/XMLUtils.h>

namespace Tessel {

namespace {

namespace X = XMLUtils;

constexpr std::u16string_view kMetadataSuffix = u"M01.XML";
constexpr std::u16string_view kMetadataXMPSuffix = u"M01.XMP";
constexpr std::u16string_view kDocumentElement = u"NonRealTimeMeta";
constexpr std::u16string_view kValue = u"value";
// The BCD time code's flag bits, masked off its digits.
constexpr unsigned kDropFrameBit = 0x40;

bool ReadFromDocument(xercesc::DOMDocument* document, SonyClipMetadata& metadata) {
    const xercesc::DOMElement* root = document->getDocumentElement();
    if (!root || std::u16string_view(root->getTagName()) != kDocumentElement)
        return false;
    X::GetAttributeString(root, u"lastUpdate", metadata.lastUpdate);
    X::GetAttributeUInt(X::FindChildElement(root, u"Duration"), std::u16string(kValue),
                        metadata.duration);
    X::GetAttributeString(X::FindChildElement(root, u"CreationDate"), std::u16string(kValue),
                          metadata.creationDate);
    const xercesc::DOMElement* ltcTable = X::FindChildElement(root, u"LtcChangeTable");
    X::GetAttributeString(X::FindChildElement(ltcTable, u"LtcChange"), std::u16string(kValue),
                          metadata.startTimecode);
    const xercesc::DOMElement* video = X::FindChildElement(root, u"VideoFormat");
    const xercesc::DOMElement* frame = X::FindChildElement(video, u"VideoFrame");
    X::GetAttributeString(frame, u"videoCodec", metadata.videoCodec);
    X::GetAttributeString(frame, u"formatFps", metadata.formatFps);
    const xercesc::DOMElement* layout = X::FindChildElement(video, u"VideoLayout");
    X::GetAttributeUInt(layout, u"pixel", metadata.width);
    X::GetAttributeUInt(layout, u"numOfVerticalLine", metadata.height);
    X::GetAttributeString(layout, u"aspectRatio", metadata.aspectRatio);
    X::GetAttributeUInt(X::FindChildElement(root, u"AudioFormat"), u"numOfChannel",
                        metadata.audioChannels);
    const xercesc::DOMElement* device = X::FindChildElement(root, u"Device");
    X::GetAttributeString(device, u"manufacturer", metadata.manufacturer);
    X::GetAttributeString(device, u"modelName", metadata.modelName);
    X::GetAttributeString(device, u"serialNo", metadata.serialNumber);
    return true;
}

int HexDigit(char16_t c) {
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    return -1;
}

}  // namespace

std::u16string SonyClipMetadataPath(const std::u16string& folder, const std::u16string& clipName) {
    return CardPathUtils::JoinPath(folder, clipName + std::u16string(kMetadataSuffix));
}

std::u16string SonyClipMetadataXMPPath(const std::u16string& folder,
                                       const std::u16string& clipName) {
    return CardPathUtils::JoinPath(folder, clipName + std::u16string(kMetadataXMPSuffix));
}

std::u16string SonyClipNameOfMetadata(const std::u16string& leaf) {
    if (leaf.size() <= kMetadataSuffix.size() || !leaf.ends_with(kMetadataSuffix))
        return {};
    return leaf.substr(0, leaf.size() - kMetadataSuffix.size());
}

bool ReadSonyClipMetadata(const std::u16string& xmlPath, SonyClipMetadata& metadata) {
    metadata = SonyClipMetadata();
    metadata.xmlPath = xmlPath;
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLDocument(*parser, xmlPath, document) &&
           ReadFromDocument(document, metadata);
}

bool ReadSonyClipMetadataFromBytes(const std::string& bytes, const std::u16string& xmlPath,
                                   SonyClipMetadata& metadata) {
    metadata = SonyClipMetadata();
    metadata.xmlPath = xmlPath;
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    return parser && X::ParseXMLBytes(*parser, bytes, xmlPath, document) &&
           ReadFromDocument(document, metadata);
}

std::string SonyDisplayStartTimecode(const SonyClipMetadata& metadata) {
    const std::u16string& value = metadata.startTimecode;
    if (value.size() != 8)
        return {};
    // Frames, seconds, minutes, hours: each byte two BCD digits under its flag bits.
    constexpr std::array<unsigned, 4> kDigitMasks = {0x3F, 0x7F, 0x7F, 0x3F};
    std::array<unsigned, 4> parts{};
    bool dropFlag = false;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const int high = HexDigit(value[2 * i]);
        const int low = HexDigit(value[2 * i + 1]);
        if (high < 0 || low < 0)
            return {};
        const unsigned byte = static_cast<unsigned>(high * 16 + low);
        if (i == 0)
            dropFlag = (byte & kDropFrameBit) != 0;
        const unsigned digits = byte & kDigitMasks[i];
        if ((digits >> 4) > 9 || (digits & 0xF) > 9)
            return {};
        parts[i] = (digits >> 4) * 10 + (digits & 0xF);
    }
    const auto rate = ParseFrameRate(Utf16ToUtf8(metadata.formatFps), dropFlag);
    const bool dropFrame = rate && rate->dropFrame;
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", parts[3], parts[2], parts[1],
                       dropFrame ? ';' : ':', parts[0]);
}

void FillSonyClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                        const std::vector<SonyClipMetadata>& pieces) {
    if (pieces.empty())
        return;
    const auto set = [&](const char* field, const std::string& value, bool replace) {
        if (!fields.count(field))
            return;
        if (replace && !value.empty())
            record.erase(field);
        if (!value.empty() && !record.count(field))
            record[field] = Utf8ToUtf16(value);
    };
    const SonyClipMetadata& first = pieces.front();
    set("startTimecode", SonyDisplayStartTimecode(first), true);
    const std::string formatFps = Utf16ToUtf8(first.formatFps);
    std::int64_t frames = 0;
    for (const SonyClipMetadata& piece : pieces)
        frames += piece.duration;
    if (const auto rate = ParseFrameRate(formatFps); rate && frames > 0)
        set("duration", FormatTimecode(frames, *rate), pieces.size() > 1);
    set("videoFrameRate", formatFps, false);
    if (first.width > 0 && first.height > 0)
        set("videoFrameSize", std::to_string(first.width) + " x " + std::to_string(first.height),
            false);
    set("videoCompressor", Utf16ToUtf8(first.videoCodec), false);
    set("CreateDate", DisplayXMPDate(Utf16ToUtf8(first.creationDate)), false);
    set("Make", Utf16ToUtf8(first.manufacturer), false);
    set("Model", Utf16ToUtf8(first.modelName), false);
    set("SerialNumber", Utf16ToUtf8(first.serialNumber), false);
}

}  // namespace Tessel
