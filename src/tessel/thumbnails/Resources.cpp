#include <tessel/thumbnails/Resources.h>

#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/ModulePath.h>
#include <tessel/thumbnails/RenderThumbnail.h>

namespace Tessel {

namespace {

const std::string_view kFolderSetting = Settings::DeclareKey(kSettingResourcesFolder);

std::string EnvironmentOverride() {
#if defined(_WIN32)
    const wchar_t* value = _wgetenv(L"TESSEL_RESOURCES");
    return value ? Utf16ToUtf8(reinterpret_cast<const char16_t*>(value)) : std::string();
#else
    const char* value = std::getenv("TESSEL_RESOURCES");
    return value ? std::string(value) : std::string();
#endif
}

// A folder counts only when it holds the pictures, so a stray empty folder at the installed
// place does not hide the build tree's copy.
bool HoldsPictures(const std::filesystem::path& folder) {
    std::error_code error;
    return std::filesystem::is_directory(folder / "PNG", error);
}

std::string ToUtf8(const std::filesystem::path& folder) {
    return Path::StripTrailingSeparator(std::string_view(Path::FromNativeUtf8(folder.native())));
}

}  // namespace

std::string GetResourcesFolder() {
    if (std::string folder = Settings::GetString(kFolderSetting, ""); !folder.empty())
        return folder;
    if (std::string folder = EnvironmentOverride(); !folder.empty())
        return folder;
#if defined(TESSEL_LIBRARY_TO_RESOURCES)
    // The relative path from the library's folder to the installed resources, fixed when the
    // build was configured (an absolute path when the install folders were given absolute).
    if (const Platform::NativeString library = Platform::LibraryDirectory(); !library.empty()) {
        const std::filesystem::path installed =
            (std::filesystem::path(library) /
             Path::ToNative(std::string_view(TESSEL_LIBRARY_TO_RESOURCES)))
                .lexically_normal();
        if (HoldsPictures(installed))
            return ToUtf8(installed);
    }
#endif
#if defined(TESSEL_BUILD_RESOURCES_DIR)
    const std::filesystem::path build(Path::ToNative(std::string_view(TESSEL_BUILD_RESOURCES_DIR)));
    if (HoldsPictures(build))
        return ToUtf8(build);
#endif
    return {};
}

PelPixHandle RenderResourcePicture(std::string_view fileName, std::uint32_t width,
                                   std::uint32_t height) {
    const std::string folder = GetResourcesFolder();
    if (folder.empty())
        return nullptr;
    const std::string picture = Path::Join(Path::Join(folder, "PNG"), fileName);
    if (!Path::FileExists(std::string_view(picture)))
        return nullptr;
    return RenderThumbnail(picture, width, height);
}

}  // namespace Tessel
