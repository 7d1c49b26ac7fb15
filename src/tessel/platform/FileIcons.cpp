#include <tessel/platform/FileIcons.h>

#include <algorithm>
#include <array>
#include <string>

namespace Tessel::Platform {

namespace {

struct ExtensionKind {
    std::string_view extension;  // lower case, without the dot
    FileIconKind kind;
};

// Sorted by extension for the binary search below. The video list holds the containers and
// camera formats an editor imports; still-image camera-raw and frame formats count as images.
constexpr std::array kExtensions = {
    ExtensionKind{"3gp", FileIconKind::Video},     ExtensionKind{"aac", FileIconKind::Audio},
    ExtensionKind{"ac3", FileIconKind::Audio},     ExtensionKind{"aif", FileIconKind::Audio},
    ExtensionKind{"aifc", FileIconKind::Audio},    ExtensionKind{"aiff", FileIconKind::Audio},
    ExtensionKind{"ari", FileIconKind::Image},     ExtensionKind{"arw", FileIconKind::Image},
    ExtensionKind{"avi", FileIconKind::Video},     ExtensionKind{"bmp", FileIconKind::Image},
    ExtensionKind{"braw", FileIconKind::Video},    ExtensionKind{"bwf", FileIconKind::Audio},
    ExtensionKind{"cr2", FileIconKind::Image},     ExtensionKind{"cr3", FileIconKind::Image},
    ExtensionKind{"crm", FileIconKind::Video},     ExtensionKind{"csv", FileIconKind::Document},
    ExtensionKind{"dng", FileIconKind::Image},     ExtensionKind{"doc", FileIconKind::Document},
    ExtensionKind{"docx", FileIconKind::Document}, ExtensionKind{"dpx", FileIconKind::Image},
    ExtensionKind{"dv", FileIconKind::Video},      ExtensionKind{"exr", FileIconKind::Image},
    ExtensionKind{"flac", FileIconKind::Audio},    ExtensionKind{"gif", FileIconKind::Image},
    ExtensionKind{"heic", FileIconKind::Image},    ExtensionKind{"htm", FileIconKind::Document},
    ExtensionKind{"html", FileIconKind::Document}, ExtensionKind{"jpeg", FileIconKind::Image},
    ExtensionKind{"jpg", FileIconKind::Image},     ExtensionKind{"json", FileIconKind::Document},
    ExtensionKind{"m2t", FileIconKind::Video},     ExtensionKind{"m2ts", FileIconKind::Video},
    ExtensionKind{"m4a", FileIconKind::Audio},     ExtensionKind{"m4v", FileIconKind::Video},
    ExtensionKind{"md", FileIconKind::Document},   ExtensionKind{"mkv", FileIconKind::Video},
    ExtensionKind{"mov", FileIconKind::Video},     ExtensionKind{"mp3", FileIconKind::Audio},
    ExtensionKind{"mp4", FileIconKind::Video},     ExtensionKind{"mpeg", FileIconKind::Video},
    ExtensionKind{"mpg", FileIconKind::Video},     ExtensionKind{"mts", FileIconKind::Video},
    ExtensionKind{"mxf", FileIconKind::Video},     ExtensionKind{"nef", FileIconKind::Image},
    ExtensionKind{"odt", FileIconKind::Document},  ExtensionKind{"ogg", FileIconKind::Audio},
    ExtensionKind{"opus", FileIconKind::Audio},    ExtensionKind{"pdf", FileIconKind::Document},
    ExtensionKind{"png", FileIconKind::Image},     ExtensionKind{"psd", FileIconKind::Image},
    ExtensionKind{"r3d", FileIconKind::Video},     ExtensionKind{"rmf", FileIconKind::Video},
    ExtensionKind{"rtf", FileIconKind::Document},  ExtensionKind{"srt", FileIconKind::Document},
    ExtensionKind{"svg", FileIconKind::Image},     ExtensionKind{"tga", FileIconKind::Image},
    ExtensionKind{"tif", FileIconKind::Image},     ExtensionKind{"tiff", FileIconKind::Image},
    ExtensionKind{"ts", FileIconKind::Video},      ExtensionKind{"txt", FileIconKind::Document},
    ExtensionKind{"wav", FileIconKind::Audio},     ExtensionKind{"webm", FileIconKind::Video},
    ExtensionKind{"webp", FileIconKind::Image},    ExtensionKind{"wmv", FileIconKind::Video},
    ExtensionKind{"xml", FileIconKind::Document},
};

constexpr bool IsSorted() {
    for (std::size_t i = 1; i < kExtensions.size(); ++i) {
        if (!(kExtensions[i - 1].extension < kExtensions[i].extension))
            return false;
    }
    return true;
}
static_assert(IsSorted(), "kExtensions must stay sorted");

}  // namespace

FileIconKind FileIconKindForName(std::string_view utf8Name) {
    const std::size_t dot = utf8Name.rfind('.');
    // A leading dot starts a hidden name, not an extension.
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == utf8Name.size())
        return FileIconKind::File;
    const std::string_view extension = utf8Name.substr(dot + 1);
    if (extension.size() > 8)
        return FileIconKind::File;
    std::string lower(extension);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    const auto found = std::lower_bound(
        kExtensions.begin(), kExtensions.end(), lower,
        [](const ExtensionKind& entry, const std::string& key) { return entry.extension < key; });
    if (found != kExtensions.end() && found->extension == lower)
        return found->kind;
    return FileIconKind::File;
}

}  // namespace Tessel::Platform
