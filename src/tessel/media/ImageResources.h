// The library's image resources (icons and artwork), found by type and name ("PNG",
// "ContainsVideoThumb.png") or by number. Layers that own artwork add it to the built-in
// table at static initialisation (ImageResourceRegistrar); the host's start-up makes the
// table available (Setup) and its shut-down releases it (Release). Thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel {

struct ImageResource {
    std::string type;  // "PNG", "SVG", "ICON", ...
    std::string name;  // file-like name; may be empty for numbered resources
    int id = 0;        // resource number; 0 when it has none
    std::span<const std::uint8_t> bytes;
};

class TESSEL_API ImageResources {
public:
    static void Setup();
    static void Release();
    static bool IsSetUp();

    // Null when not set up or not found. The bytes live as long as the library.
    static std::optional<ImageResource> Find(std::string_view type, std::string_view name);
    static std::optional<ImageResource> FindById(int id);
    static std::vector<ImageResource> All();
};

// Adds one resource to the built-in table; declare as a static object.
class TESSEL_API ImageResourceRegistrar {
public:
    explicit ImageResourceRegistrar(ImageResource resource);
};

}  // namespace Tessel
