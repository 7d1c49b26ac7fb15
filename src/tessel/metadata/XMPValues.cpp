#include <tessel/metadata/XMPValues.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>

#include <exempi/xmp.h>
#include <exempi/xmpconsts.h>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/platform/StandardErrorCapture.h>

namespace Tessel {

namespace {

namespace P = Platform;

const std::string_view kTraceCategory = Trace::DeclareCategory("XMP");
constexpr const char* kDynamicMedia = "http://ns.adobe.com/xmp/1.0/DynamicMedia/";
// Sidecars hold a clip's metadata and perhaps its edit history; beyond this they are not XMP.
constexpr std::uint64_t kLargestSidecar = 16 * 1024 * 1024;
// Items of one list field shown at most ("Keywords" of a catalogued photo can be many).
constexpr std::int32_t kMostListItems = 256;
// XMP nests a few levels; exempi's parser recurses per level, so a packet nested deeper than
// this is refused before it could exhaust a thread's stack.
constexpr int kDeepestNesting = 256;

// ---- exempi: set up once, one caller at a time.

std::mutex gExempiMutex;

// Call with gExempiMutex held.
bool ExempiReady() {
    static bool ready = [] {
        try {
            return xmp_init();
        } catch (...) {
            return false;
        }
    }();
    return ready;
}

// Runs WORK with exempi's lock held and its output caught: exempi prints the errors it
// raises to standard error, which belongs to the host; they go to the trace instead, with
// SOURCE, the file they are about. WORK's result, or an empty one when exempi cannot start
// or WORK throws.
template <class Work>
auto WithExempi(std::string_view source, Work&& work) -> decltype(work()) {
    decltype(work()) result{};
    std::string printed;
    {
        const std::lock_guard<std::mutex> lock(gExempiMutex);
        P::StandardErrorCapture capture;
        try {
            if (ExempiReady())
                result = work();
        } catch (...) {
            result = {};
        }
        printed = capture.Finish();
    }
    std::string message;
    for (std::size_t start = 0; start < printed.size();) {
        const std::size_t end = std::min(printed.find('\n', start), printed.size());
        std::string_view line = std::string_view(printed).substr(start, end - start);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
            line.remove_suffix(1);
        if (!line.empty())
            message += (message.empty() ? "" : "; ") + ToDisplayUtf8(line);
        start = end + 1;
    }
    if (!message.empty())
        Trace::Write(kTraceCategory, "exempi on " + ToDisplayUtf8(source) + ": " + message);
    return result;
}

class XmpText {
public:
    XmpText() : mString(xmp_string_new()) {}
    ~XmpText() { xmp_string_free(mString); }
    XmpText(const XmpText&) = delete;
    XmpText& operator=(const XmpText&) = delete;

    XmpStringPtr get() const { return mString; }
    std::string str() const {
        const char* text = xmp_string_cstr(mString);
        return text ? std::string(text, xmp_string_len(mString)) : std::string();
    }

private:
    XmpStringPtr mString;
};

struct XmpDeleter {
    void operator()(XmpPtr xmp) const { xmp_free(xmp); }
};
using XmpHandle = std::unique_ptr<std::remove_pointer_t<XmpPtr>, XmpDeleter>;

struct XmpFileDeleter {
    void operator()(XmpFilePtr file) const { xmp_files_free(file); }
};
using XmpFileHandle = std::unique_ptr<std::remove_pointer_t<XmpFilePtr>, XmpFileDeleter>;

// ---- Reading one parsed XMP object.

class Fields {
public:
    explicit Fields(XmpPtr xmp) : mXmp(xmp) {}

    // A simple property (or structure field, given as a path "name/prefix:field").
    std::optional<std::string> Simple(const char* nameSpace, const std::string& path) const {
        XmpText value;
        std::uint32_t options = 0;
        if (!xmp_get_property(mXmp, nameSpace, path.c_str(), value.get(), &options) ||
            !XMP_IS_PROP_SIMPLE(options))
            return std::nullopt;
        return value.str();
    }

    // A simple value, the default of a language alternative, or the simple items of a list.
    std::string Text(const char* nameSpace, const char* name) const {
        XmpText value;
        std::uint32_t options = 0;
        if (!xmp_get_property(mXmp, nameSpace, name, value.get(), &options))
            return {};
        if (XMP_IS_PROP_SIMPLE(options))
            return value.str();
        if (!XMP_IS_PROP_ARRAY(options))
            return {};  // a structure has no single text
        if (XMP_IS_ARRAY_ALTTEXT(options)) {
            XmpText language, text;
            return xmp_get_localized_text(mXmp, nameSpace, name, "", "x-default", language.get(),
                                          text.get(), nullptr)
                       ? text.str()
                       : std::string();
        }
        std::string joined;
        for (std::int32_t index = 1; index <= kMostListItems; ++index) {
            XmpText item;
            std::uint32_t itemOptions = 0;
            if (!xmp_get_array_item(mXmp, nameSpace, name, index, item.get(), &itemOptions))
                break;
            std::string text = item.str();
            if (!XMP_IS_PROP_SIMPLE(itemOptions) || text.empty())
                continue;
            if (!joined.empty())
                joined += "; ";
            joined += text;
        }
        return joined;
    }

    // An xmpDM Timecode structure's value and format; a plain value stands for the value.
    std::pair<std::string, std::string> Timecode(const char* name) const {
        const std::string base(name);
        if (auto plain = Simple(kDynamicMedia, base))
            return {std::move(*plain), {}};
        return {Simple(kDynamicMedia, base + "/xmpDM:timeValue").value_or(""),
                Simple(kDynamicMedia, base + "/xmpDM:timeFormat").value_or("")};
    }

private:
    XmpPtr mXmp;
};

bool NamesDropFrame(std::string_view timeFormat) {
    return timeFormat.find("DropTimecode") != std::string_view::npos &&
           timeFormat.find("NonDrop") == std::string_view::npos;
}

// A timecode's drop-frame marking: its format says so or, without one, its value does (";").
bool IsDropFrame(const std::pair<std::string, std::string>& timecode) {
    if (!timecode.second.empty())
        return NamesDropFrame(timecode.second);
    return timecode.first.find(';') != std::string::npos;
}

std::string_view TrimSpaces(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

bool AllDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// "2011-05-20T14:03:09.5+02:00" as "2011-05-20 14:03:09": the clock time the device wrote,
// without its zone. Text in another shape is shown as written.
std::string DisplayDate(std::string_view date) {
    date = TrimSpaces(date);
    const std::size_t t = date.find('T');
    const std::string_view day = date.substr(0, t);
    // YYYY, YYYY-MM or YYYY-MM-DD.
    const bool dayShape = (day.size() == 4 || day.size() == 7 || day.size() == 10) &&
                          AllDigits(day.substr(0, 4)) &&
                          (day.size() == 4 || (day[4] == '-' && AllDigits(day.substr(5, 2)))) &&
                          (day.size() < 10 || (day[7] == '-' && AllDigits(day.substr(8, 2))));
    if (!dayShape)
        return std::string(date);
    if (t == std::string_view::npos)
        return std::string(day);
    std::string_view time = date.substr(t + 1);
    time = time.substr(0, time.find_first_of("+-Z."));
    // hh:mm or hh:mm:ss.
    const bool timeShape = (time.size() == 5 || time.size() == 8) && AllDigits(time.substr(0, 2)) &&
                           time[2] == ':' && AllDigits(time.substr(3, 2)) &&
                           (time.size() == 5 || (time[5] == ':' && AllDigits(time.substr(6, 2))));
    if (!timeShape)
        return std::string(date);
    return std::string(day) + " " + std::string(time);
}

// Card rates keep the notation people know them by ("59.94i"); ratios and decimals are shown
// as frames per second.
std::string DisplayFrameRate(std::string_view text) {
    text = TrimSpaces(text);
    const auto rate = ParseFrameRate(text);
    if (!rate)
        return std::string(text);
    const char last = text.empty() ? '\0' : text.back();
    const bool cardNotation = last == 'p' || last == 'i' || last == 'P' || last == 'I' ||
                              last == 'f' || last == 'F';  // "25PsF"
    return cardNotation ? std::string(text) : FormatFrameRate(*rate);
}

// xmpDM:duration as a timecode at the media's frame rate: the video frame rate when there is
// one, else the rate of the start timecode's format, else the duration's own scale when that is
// a frame duration. Media without any (audio) show clock time.
std::string DisplayDuration(const Fields& fields) {
    std::string value, scale;
    if (auto plain = fields.Simple(kDynamicMedia, "duration")) {
        value = std::move(*plain);  // seconds, as some tools write it
    } else {
        value = fields.Simple(kDynamicMedia, "duration/xmpDM:value").value_or("");
        scale = fields.Simple(kDynamicMedia, "duration/xmpDM:scale").value_or("");
    }
    if (TrimSpaces(value).empty())
        return {};
    const auto start = fields.Timecode("startTimecode");
    const bool dropFrame = IsDropFrame(start);
    std::optional<FrameRate> rate;
    if (auto written = fields.Simple(kDynamicMedia, "videoFrameRate"))
        rate = ParseFrameRate(*written, dropFrame);
    if (!rate)
        rate = FrameRateFromTimeFormat(start.second);
    if (!rate && scale.find('/') != std::string::npos) {
        // Only a frame duration (1/25, 1001/30000), not an audio sample's (1/48000).
        rate = ParseFrameRate(scale, dropFrame);
        if (rate && rate->FramesPerSecond() > 120)
            rate.reset();
    }
    if (rate) {
        if (const auto frames = DurationFrames(value, scale, *rate))
            return FormatTimecode(*frames, *rate);
        return {};
    }
    const auto seconds = DurationSeconds(value, scale);
    return seconds ? FormatClockTime(*seconds) : std::string();
}

any_regular_t ReadField(const Fields& fields, const XMPCrossReferenceEntry& entry) {
    const auto text = [](std::string value) -> any_regular_t {
        if (value.empty())
            return {};
        return Utf8ToUtf16(value);
    };
    switch (entry.form) {
        case XMPValueForm::Record:
            return {};
        case XMPValueForm::Text:
            return text(fields.Text(entry.nameSpace, entry.name));
        case XMPValueForm::Date:
            return text(DisplayDate(fields.Text(entry.nameSpace, entry.name)));
        case XMPValueForm::Boolean: {
            const std::string value(TrimSpaces(fields.Text(entry.nameSpace, entry.name)));
            const std::string lower = AsciiLower(value);
            if (lower == "true" || lower == "1")
                return true;
            if (lower == "false" || lower == "0")
                return false;
            return {};
        }
        case XMPValueForm::Timecode: {
            const auto timecode = fields.Timecode(entry.name);
            if (TrimSpaces(timecode.first).empty())
                return {};
            return text(NormalizeTimecode(timecode.first, IsDropFrame(timecode)));
        }
        case XMPValueForm::Duration:
            return text(DisplayDuration(fields));
        case XMPValueForm::FrameRate:
            return text(DisplayFrameRate(fields.Text(entry.nameSpace, entry.name)));
        case XMPValueForm::FrameSize: {
            const std::string base(entry.name);
            const auto width = fields.Simple(entry.nameSpace, base + "/stDim:w");
            const auto height = fields.Simple(entry.nameSpace, base + "/stDim:h");
            if (!width || !height || width->empty() || height->empty())
                return {};
            return text(*width + " x " + *height);
        }
    }
    return {};
}

// Call with gExempiMutex held.
SDKPropertyMap ReadFields(XmpPtr xmp, const XMPFieldSet& wanted) {
    SDKPropertyMap values;
    const Fields fields(xmp);
    for (std::size_t i = 0; i < kXMPFieldCount; ++i) {
        if (!wanted.test(i))
            continue;
        any_regular_t value = ReadField(fields, kXMPCrossReference[i]);
        if (!value.empty())
            values.emplace(kXMPCrossReference[i].name, std::move(value));
    }
    return values;
}

// Whether the elements of XML nest deeper than kDeepestNesting. A scan of the markup only:
// comments, CDATA, processing instructions and declarations are skipped, quoted attribute values
// may hold '>'. Packets in UTF-16 or UTF-32 are scanned without their zero bytes.
bool NestsTooDeep(std::string_view packet) {
    std::string narrow;
    if (packet.find('\0') != std::string_view::npos) {
        narrow.reserve(packet.size());
        std::copy_if(packet.begin(), packet.end(), std::back_inserter(narrow),
                     [](char c) { return c != '\0'; });
        packet = narrow;
    }
    const auto skipTo = [&](std::size_t from, std::string_view end) {
        const std::size_t found = packet.find(end, from);
        return found == std::string_view::npos ? packet.size() : found + end.size() - 1;
    };
    int depth = 0;
    for (std::size_t i = 0; i < packet.size(); ++i) {
        if (packet[i] != '<')
            continue;
        const std::string_view rest = packet.substr(i);
        if (rest.starts_with("<!--")) {
            i = skipTo(i + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            i = skipTo(i + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            i = skipTo(i + 2, "?>");
        } else if (rest.starts_with("<!")) {
            i = skipTo(i + 2, ">");
        } else {
            char quote = '\0';
            std::size_t end = i + 1;
            for (; end < packet.size(); ++end) {
                const char c = packet[end];
                if (quote != '\0') {
                    if (c == quote)
                        quote = '\0';
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '>') {
                    break;
                }
            }
            if (end >= packet.size())
                break;
            if (rest.starts_with("</"))
                --depth;
            else if (packet[end - 1] != '/' && ++depth > kDeepestNesting)
                return true;
            i = end;
        }
    }
    return false;
}

bool WantsXMP(const XMPFieldSet& fields) {
    static const XMPFieldSet backed = XMPBackedFields();
    return (fields & backed).any();
}

// The values of PACKET, read from SOURCE; none when it is not XMP.
std::optional<SDKPropertyMap> ValuesOfPacket(std::string_view packet, const XMPFieldSet& fields,
                                             std::string_view source) {
    if (packet.empty() || NestsTooDeep(packet))
        return std::nullopt;
    return WithExempi(source, [&]() -> std::optional<SDKPropertyMap> {
        const XmpHandle xmp(xmp_new(packet.data(), packet.size()));
        if (!xmp)
            return std::nullopt;
        return ReadFields(xmp.get(), fields);
    });
}

std::string AsciiUpper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    }
    return upper;
}

// The last three folders above a file, upper-cased (exempi compares them that way).
std::array<std::string, 3> ParentNames(std::string_view path) {
    std::array<std::string, 3> names;  // parent, grandparent, great-grandparent
    const auto isSeparator = [](char c) { return Path::IsSeparator(static_cast<char16_t>(c)); };
    std::size_t end = path.size();
    while (end > 0 && !isSeparator(path[end - 1]))
        --end;  // drop the file's own name
    for (std::string& name : names) {
        while (end > 0 && isSeparator(path[end - 1]))
            --end;
        std::size_t start = end;
        while (start > 0 && !isSeparator(path[start - 1]))
            --start;
        name = AsciiUpper(path.substr(start, end - start));
        end = start;
    }
    return names;
}

// Whether the file lies in a camera card's folders, by the folder names exempi's card handlers
// look for (and an XDCAM disc's media profile, as "Clip" is a common name). Its metadata is its
// clip's, which the handler gathers from the card's XML and XMP files (so a clip's XMP file, such
// as CLIP/0001AB.XMP, is no sidecar of CLIP/0001AB.XML).
bool IsCardFile(std::string_view path) {
    const auto [parent, grandparent, greatGrandparent] = ParentNames(path);
    static constexpr std::string_view kP2Folders[] = {"CLIP", "VIDEO", "AUDIO",
                                                      "ICON", "VOICE", "PROXY"};
    if (grandparent == "CONTENTS" &&
        std::find(std::begin(kP2Folders), std::end(kP2Folders), parent) != std::end(kP2Folders))
        return true;  // P2
    if (parent == "CLIP" || parent == "EDIT" || parent == "SUB") {
        // XDCAM discs; folders of these common names elsewhere keep their sidecars.
        const std::string disc = Path::GetParent(std::string_view(Path::GetParent(path)));
        return !disc.empty() &&
               Path::FileExists(std::string_view(Path::Join(disc, "MEDIAPRO.XML")));
    }
    if ((grandparent == "CLPR" || grandparent == "EDTR") &&
        (greatGrandparent == "PROAV" || greatGrandparent == "BPAV"))
        return true;                                   // XDCAM (PROAV) and XDCAM EX (BPAV)
    return grandparent == "VIDEO" && parent == "HVR";  // Sony HDV
}

// Whether exempi may find XMP in the file: a format one of its handlers reads, or a card's
// file. Other files are not opened, so a listing of a folder of anything stays cheap.
bool MayHoldXMP(std::string_view path) {
    static constexpr std::string_view kExtensions[] = {
        ".3g2", ".3gp", ".aif",  ".aifc", ".aiff", ".asf",  ".avi", ".dng",  ".eps",
        ".f4v", ".flv", ".gif",  ".idml", ".indd", ".indt", ".jpe", ".jpeg", ".jpg",
        ".m4a", ".m4v", ".mov",  ".mp3",  ".mp4",  ".png",  ".ps",  ".psd",  ".svg",
        ".swf", ".tif", ".tiff", ".ucf",  ".wav",  ".webp", ".wma", ".wmv",
    };
    const std::string extension = Path::GetExtensionLower(path);
    return std::find(std::begin(kExtensions), std::end(kExtensions), extension) !=
               std::end(kExtensions) ||
           IsCardFile(path);
}

SDKPropertyMap ValuesOfMediaFile(const std::string& mediaPath, const XMPFieldSet& fields) {
    if (!MayHoldXMP(mediaPath) ||
        P::GetPathKind(Path::ToNative(std::string_view(mediaPath))) != P::PathKind::File)
        return {};
    return WithExempi(mediaPath, [&]() -> SDKPropertyMap {
        const XmpFileHandle file(xmp_files_new());
        if (!file)
            return {};
        // Smart handlers only: no scanning of whole files for stray packets.
        const auto options = static_cast<XmpOpenFileOptions>(XMP_OPEN_READ | XMP_OPEN_ONLYXMP |
                                                             XMP_OPEN_USESMARTHANDLER);
        if (!xmp_files_open(file.get(), mediaPath.c_str(), options))
            return {};
        // The packet as the file holds it is looked at before it is parsed.
        XmpText packet;
        if (xmp_files_get_xmp_xmpstring(file.get(), packet.get(), nullptr) &&
            NestsTooDeep(packet.str()))
            return {};
        SDKPropertyMap values;
        if (const XmpHandle xmp{xmp_files_get_new_xmp(file.get())})
            values = ReadFields(xmp.get(), fields);
        xmp_files_close(file.get(), XMP_CLOSE_NOOPTION);
        return values;
    });
}

// Reads the sidecar at PATH into BYTES; false when there is none to read.
bool ReadSidecar(const std::string& path, std::string& bytes) {
    std::string error;
    return !path.empty() && P::ReadWholeFile(Path::ToNative(std::string_view(path)), bytes, error,
                                             kLargestSidecar) == P::ReadFileStatus::Ok;
}

}  // namespace

std::string SidecarPathFor(std::string_view mediaPath) {
    const std::string leaf = Path::GetFilePart(mediaPath);
    const std::size_t dot = leaf.rfind('.');
    std::string_view stem = mediaPath;
    if (dot != std::string::npos && dot > 0)
        stem.remove_suffix(leaf.size() - dot);
    return std::string(stem) + ".xmp";
}

SDKPropertyMap MakeValueFromPacket(std::string_view packet, const XMPFieldSet& fields) {
    if (!WantsXMP(fields))
        return {};
    return ValuesOfPacket(packet, fields, "an XMP packet").value_or(SDKPropertyMap());
}

XMPValueReader::XMPValueReader(const XMPFieldSet& fields) : mFields(fields) {}

SDKPropertyMap XMPValueReader::Read(const std::string& mediaPath, const std::string& sidecarPath) {
    if (!WantsXMP(mFields) || mediaPath.empty())
        return {};
    if (IsCardFile(mediaPath))
        return ValuesOfMediaFile(mediaPath, mFields);
    if (!sidecarPath.empty()) {
        if (sidecarPath != mSidecar) {
            mSidecar = sidecarPath;
            mSidecarValues.reset();
            std::string packet;
            if (ReadSidecar(sidecarPath, packet))
                mSidecarValues = ValuesOfPacket(packet, mFields, sidecarPath);
        }
        if (mSidecarValues)
            return *mSidecarValues;
    }
    return ValuesOfMediaFile(mediaPath, mFields);
}

SDKPropertyMap MakeValue(const std::string& mediaPath, const std::string& sidecarPath,
                         const XMPFieldSet& fields) {
    return XMPValueReader(fields).Read(mediaPath, sidecarPath);
}

SDKPropertyMap MakeValue(const std::string& mediaPath, const XMPFieldSet& fields) {
    if (!WantsXMP(fields) || mediaPath.empty())
        return {};
    if (IsCardFile(mediaPath))
        return ValuesOfMediaFile(mediaPath, fields);
    std::string sidecar = SidecarPathFor(mediaPath);
    std::string packet;
    bool found = ReadSidecar(sidecar, packet);
    if constexpr (Path::kNativePathStyle == Path::PathStyle::Posix) {
        // Windows finds "CLIP.XMP" for "clip.xmp" by itself; POSIX tries the other spelling.
        if (!found) {
            sidecar.replace(sidecar.size() - 4, 4, ".XMP");
            found = ReadSidecar(sidecar, packet);
        }
    }
    if (found) {
        if (std::optional<SDKPropertyMap> values = ValuesOfPacket(packet, fields, sidecar))
            return std::move(*values);
    }
    return ValuesOfMediaFile(mediaPath, fields);
}

std::string DisplayXMPDate(std::string_view date) {
    return DisplayDate(date);
}

}  // namespace Tessel
