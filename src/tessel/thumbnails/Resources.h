// The library's resources folder: the providers' pictures as files, under "PNG" (a provider
// opens "<folder>/PNG/REDVideoThumb.png"). The same pictures are compiled into the library
// as image resources; the folder serves code and hosts that load artwork by path.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>

namespace Tessel {

inline constexpr const char* kSettingResourcesFolder = "Tessel.ResourcesFolder";

// The resources folder (UTF-8, no trailing separator). The first that applies wins:
// 1. the settings database's "Tessel.ResourcesFolder", when not empty;
// 2. the environment variable TESSEL_RESOURCES, when not empty;
// 3. the installed folder, share/tessel/resources of the prefix the library was loaded
//    from (found from the library's own location, so a moved prefix still works);
// 4. the build tree's copy, for a library used before it is installed.
// The first two are taken as given; the last two only when they hold a "PNG" folder.
// Empty when none applies.
TESSEL_API std::string GetResourcesFolder();

// A provider's picture: the file FILE_NAME of the resources folder's "PNG" folder drawn by
// RenderThumbnail into a new WIDTH x HEIGHT buffer (owned by the caller); null when there is
// no resources folder or no such file.
TESSEL_API PelPixHandle RenderResourcePicture(std::string_view fileName, std::uint32_t width,
                                              std::uint32_t height);

}  // namespace Tessel
