#include <tessel/metadata/XMPFields.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <tessel/foundation/Localizer.h>

namespace Tessel {

namespace {

// The schemas the table draws from.
constexpr const char* kRecord = "";
constexpr const char* kDublinCore = "http://purl.org/dc/elements/1.1/";
constexpr const char* kXMPBasic = "http://ns.adobe.com/xap/1.0/";
constexpr const char* kDynamicMedia = "http://ns.adobe.com/xmp/1.0/DynamicMedia/";
constexpr const char* kTIFF = "http://ns.adobe.com/tiff/1.0/";
constexpr const char* kEXIF = "http://ns.adobe.com/exif/1.0/";
constexpr const char* kEXIFAux = "http://ns.adobe.com/exif/1.0/aux/";

}  // namespace

// One row: name, English title (its localization key is derived from the name), namespace, form.
#define TESSEL_XMP_FIELD(name, title, nameSpace, form) \
    { name, "$$$/Pelimar/Libraries/Tessel/Metadata/" name "=" title, nameSpace, XMPValueForm::form }

// Grouped as a clip's columns read: identity and dates, timecode and tape, video, audio, shot
// and scene, people, music, Dublin Core, XMP basic, camera (TIFF, EXIF). The card providers'
// label lists fix what a few bits are (0 Name, 1 Path, 3 title, 4 and 6 the dates, 7 start
// timecode, 11 to 22 video and audio, 25 and 26 shot and scene, 33 duration, 35 good, 37
// location, 39 creator, 42 identifier, 69 to 73 camera operator, make, model, serial, take).
const std::array<XMPCrossReferenceEntry, kXMPFieldCount> kXMPCrossReference{{
    TESSEL_XMP_FIELD("Name", "Name", kRecord, Record),                                     // 0
    TESSEL_XMP_FIELD("Path", "Path", kRecord, Record),                                     // 1
    TESSEL_XMP_FIELD("ExtraPath", "Additional Path", kRecord, Record),                     // 2
    TESSEL_XMP_FIELD("title", "Title", kDublinCore, Text),                                 // 3
    TESSEL_XMP_FIELD("CreateDate", "Date Created", kXMPBasic, Date),                       // 4
    TESSEL_XMP_FIELD("MetadataDate", "Metadata Date", kXMPBasic, Date),                    // 5
    TESSEL_XMP_FIELD("ModifyDate", "Date Modified", kXMPBasic, Date),                      // 6
    TESSEL_XMP_FIELD("startTimecode", "Media Start", kDynamicMedia, Timecode),             // 7
    TESSEL_XMP_FIELD("altTimecode", "Alternate Start", kDynamicMedia, Timecode),           // 8
    TESSEL_XMP_FIELD("tapeName", "Tape Name", kDynamicMedia, Text),                        // 9
    TESSEL_XMP_FIELD("altTapeName", "Alternate Tape Name", kDynamicMedia, Text),           // 10
    TESSEL_XMP_FIELD("videoFrameRate", "Frame Rate", kDynamicMedia, FrameRate),            // 11
    TESSEL_XMP_FIELD("videoFieldOrder", "Field Order", kDynamicMedia, Text),               // 12
    TESSEL_XMP_FIELD("videoFrameSize", "Frame Size", kDynamicMedia, FrameSize),            // 13
    TESSEL_XMP_FIELD("videoPixelDepth", "Pixel Depth", kDynamicMedia, Text),               // 14
    TESSEL_XMP_FIELD("videoCompressor", "Video Codec", kDynamicMedia, Text),               // 15
    TESSEL_XMP_FIELD("videoPixelAspectRatio", "Pixel Aspect Ratio", kDynamicMedia, Text),  // 16
    TESSEL_XMP_FIELD("videoColorSpace", "Color Space", kDynamicMedia, Text),               // 17
    TESSEL_XMP_FIELD("audioSampleType", "Audio Sample Type", kDynamicMedia, Text),         // 18
    TESSEL_XMP_FIELD("audioChannelType", "Audio Channels", kDynamicMedia, Text),           // 19
    TESSEL_XMP_FIELD("audioCompressor", "Audio Codec", kDynamicMedia, Text),               // 20
    TESSEL_XMP_FIELD("videoAlphaMode", "Alpha Mode", kDynamicMedia, Text),                 // 21
    TESSEL_XMP_FIELD("audioSampleRate", "Audio Sample Rate", kDynamicMedia, Text),         // 22
    TESSEL_XMP_FIELD("fileDataRate", "Data Rate", kDynamicMedia, Text),                    // 23
    TESSEL_XMP_FIELD("pullDown", "Pulldown", kDynamicMedia, Text),                         // 24
    TESSEL_XMP_FIELD("shotName", "Shot", kDynamicMedia, Text),                             // 25
    TESSEL_XMP_FIELD("scene", "Scene", kDynamicMedia, Text),                               // 26
    TESSEL_XMP_FIELD("shotDate", "Shot Date", kDynamicMedia, Date),                        // 27
    TESSEL_XMP_FIELD("shotDay", "Shot Day", kDynamicMedia, Text),                          // 28
    TESSEL_XMP_FIELD("shotNumber", "Shot Number", kDynamicMedia, Text),                    // 29
    TESSEL_XMP_FIELD("shotSize", "Shot Size", kDynamicMedia, Text),                        // 30
    TESSEL_XMP_FIELD("logComment", "Log Comment", kDynamicMedia, Text),                    // 31
    TESSEL_XMP_FIELD("comment", "Comment", kDynamicMedia, Text),                           // 32
    TESSEL_XMP_FIELD("duration", "Duration", kDynamicMedia, Duration),                     // 33
    TESSEL_XMP_FIELD("cameraAngle", "Camera Angle", kDynamicMedia, Text),                  // 34
    TESSEL_XMP_FIELD("good", "Good", kDynamicMedia, Boolean),                              // 35
    TESSEL_XMP_FIELD("cameraLabel", "Camera Label", kDynamicMedia, Text),                  // 36
    TESSEL_XMP_FIELD("shotLocation", "Location", kDynamicMedia, Text),                     // 37
    TESSEL_XMP_FIELD("cameraModel", "Camera Model", kDynamicMedia, Text),                  // 38
    TESSEL_XMP_FIELD("creator", "Creator", kDublinCore, Text),                             // 39
    TESSEL_XMP_FIELD("cameraMove", "Camera Move", kDynamicMedia, Text),                    // 40
    TESSEL_XMP_FIELD("director", "Director", kDynamicMedia, Text),                         // 41
    TESSEL_XMP_FIELD("identifier", "Identifier", kDublinCore, Text),                       // 42
    TESSEL_XMP_FIELD("directorPhotography", "Director of Photography", kDynamicMedia,
                     Text),                                                    // 43
    TESSEL_XMP_FIELD("engineer", "Engineer", kDynamicMedia, Text),             // 44
    TESSEL_XMP_FIELD("client", "Client", kDynamicMedia, Text),                 // 45
    TESSEL_XMP_FIELD("projectName", "Project", kDynamicMedia, Text),           // 46
    TESSEL_XMP_FIELD("album", "Album", kDynamicMedia, Text),                   // 47
    TESSEL_XMP_FIELD("composer", "Composer", kDynamicMedia, Text),             // 48
    TESSEL_XMP_FIELD("genre", "Genre", kDynamicMedia, Text),                   // 49
    TESSEL_XMP_FIELD("trackNumber", "Track Number", kDynamicMedia, Text),      // 50
    TESSEL_XMP_FIELD("releaseDate", "Release Date", kDynamicMedia, Date),      // 51
    TESSEL_XMP_FIELD("instrument", "Instrument", kDynamicMedia, Text),         // 52
    TESSEL_XMP_FIELD("key", "Key", kDynamicMedia, Text),                       // 53
    TESSEL_XMP_FIELD("tempo", "Tempo", kDynamicMedia, Text),                   // 54
    TESSEL_XMP_FIELD("timeSignature", "Time Signature", kDynamicMedia, Text),  // 55
    TESSEL_XMP_FIELD("videoModDate", "Video Modified", kDynamicMedia, Date),   // 56
    TESSEL_XMP_FIELD("audioModDate", "Audio Modified", kDynamicMedia, Date),   // 57
    TESSEL_XMP_FIELD("description", "Description", kDublinCore, Text),         // 58
    TESSEL_XMP_FIELD("subject", "Keywords", kDublinCore, Text),                // 59
    TESSEL_XMP_FIELD("rights", "Copyright", kDublinCore, Text),                // 60
    TESSEL_XMP_FIELD("format", "Format", kDublinCore, Text),                   // 61
    TESSEL_XMP_FIELD("publisher", "Publisher", kDublinCore, Text),             // 62
    TESSEL_XMP_FIELD("contributor", "Contributor", kDublinCore, Text),         // 63
    TESSEL_XMP_FIELD("relation", "Relation", kDublinCore, Text),               // 64
    TESSEL_XMP_FIELD("CreatorTool", "Application", kXMPBasic, Text),           // 65
    TESSEL_XMP_FIELD("Label", "Label", kXMPBasic, Text),                       // 66
    TESSEL_XMP_FIELD("Rating", "Rating", kXMPBasic, Text),                     // 67
    TESSEL_XMP_FIELD("Orientation", "Orientation", kTIFF, Text),               // 68
    TESSEL_XMP_FIELD("Artist", "Camera Operator", kTIFF, Text),                // 69
    TESSEL_XMP_FIELD("Make", "Make", kTIFF, Text),                             // 70
    TESSEL_XMP_FIELD("Model", "Model", kTIFF, Text),                           // 71
    TESSEL_XMP_FIELD("SerialNumber", "Serial Number", kEXIFAux, Text),         // 72
    TESSEL_XMP_FIELD("takeNumber", "Take", kDynamicMedia, Text),               // 73
    TESSEL_XMP_FIELD("DateTimeOriginal", "Date Taken", kEXIF, Date),           // 74
    TESSEL_XMP_FIELD("GPSLatitude", "Latitude", kEXIF, Text),                  // 75
    TESSEL_XMP_FIELD("GPSLongitude", "Longitude", kEXIF, Text),                // 76
    TESSEL_XMP_FIELD("GPSAltitude", "Altitude", kEXIF, Text),                  // 77
    TESSEL_XMP_FIELD("Lens", "Lens", kEXIFAux, Text),                          // 78
}};

#undef TESSEL_XMP_FIELD

namespace {

// The bits in the order of their names, for lookups by name.
const std::vector<std::size_t>& NameOrder() {
    static const std::vector<std::size_t> order = [] {
        std::vector<std::size_t> bits(kXMPFieldCount);
        for (std::size_t i = 0; i < bits.size(); ++i)
            bits[i] = i;
        std::sort(bits.begin(), bits.end(), [](std::size_t a, std::size_t b) {
            return std::strcmp(kXMPCrossReference[a].name, kXMPCrossReference[b].name) < 0;
        });
        return bits;
    }();
    return order;
}

}  // namespace

std::optional<std::size_t> FindXMPField(std::string_view name) {
    const std::vector<std::size_t>& order = NameOrder();
    const auto found = std::lower_bound(
        order.begin(), order.end(), name, [](std::size_t bit, std::string_view wanted) {
            return std::string_view(kXMPCrossReference[bit].name) < wanted;
        });
    if (found == order.end() || std::string_view(kXMPCrossReference[*found].name) != name)
        return std::nullopt;
    return *found;
}

XMPFieldSet ParseFields(const SDKFieldSet& fields) {
    XMPFieldSet bits;
    for (const std::string& field : fields) {
        if (const auto bit = FindXMPField(field))
            bits.set(*bit);
    }
    return bits;
}

SDKFieldSet GetXMPFieldNames() {
    SDKFieldSet names;
    for (const XMPCrossReferenceEntry& entry : kXMPCrossReference)
        names.insert(entry.name);
    return names;
}

std::u16string GetXMPFieldTitle(std::size_t index) {
    if (index >= kXMPFieldCount)
        return {};
    return LocalizeUtf16(kXMPCrossReference[index].title);
}

XMPFieldSet XMPBackedFields() {
    XMPFieldSet bits;
    for (std::size_t i = 0; i < kXMPFieldCount; ++i) {
        if (kXMPCrossReference[i].form != XMPValueForm::Record)
            bits.set(i);
    }
    return bits;
}

}  // namespace Tessel
