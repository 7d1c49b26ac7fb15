#include <tessel/media/ImageResources.h>

#include <mutex>

namespace Tessel {

namespace {

struct ResourceTables {
    std::mutex mutex;
    std::vector<ImageResource> builtIn;  // filled at static initialisation
    std::vector<ImageResource> active;   // what Setup made available
    bool setUp = false;
};

ResourceTables& Tables() {
    static auto* tables = new ResourceTables();
    return *tables;
}

}  // namespace

ImageResourceRegistrar::ImageResourceRegistrar(ImageResource resource) {
    std::lock_guard lock(Tables().mutex);
    Tables().builtIn.push_back(std::move(resource));
}

void ImageResources::Setup() {
    std::lock_guard lock(Tables().mutex);
    Tables().active = Tables().builtIn;
    Tables().setUp = true;
}

void ImageResources::Release() {
    std::lock_guard lock(Tables().mutex);
    Tables().active.clear();
    Tables().setUp = false;
}

bool ImageResources::IsSetUp() {
    std::lock_guard lock(Tables().mutex);
    return Tables().setUp;
}

std::optional<ImageResource> ImageResources::Find(std::string_view type, std::string_view name) {
    // Numbered resources have no name; an empty name must not pick one of them at random.
    if (name.empty())
        return std::nullopt;
    std::lock_guard lock(Tables().mutex);
    for (const ImageResource& r : Tables().active) {
        if (r.type == type && r.name == name)
            return r;
    }
    return std::nullopt;
}

std::optional<ImageResource> ImageResources::FindById(int id) {
    std::lock_guard lock(Tables().mutex);
    for (const ImageResource& r : Tables().active) {
        if (r.id == id && id != 0)
            return r;
    }
    return std::nullopt;
}

std::vector<ImageResource> ImageResources::All() {
    std::lock_guard lock(Tables().mutex);
    return Tables().active;
}

}  // namespace Tessel
