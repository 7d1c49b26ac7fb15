#include <tessel/thumbnails/ArtworkThumbnail.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>

namespace Tessel {

namespace {

const std::string_view kWaitSetting = Settings::DeclareKey(kSettingMainThreadWaitMilliseconds);

// Drawing may call back into drawing on the same thread (a provider drawing its icon while
// another is drawn), hence recursive.
std::recursive_mutex& DrawingLock() {
    static auto* lock = new std::recursive_mutex();
    return *lock;
}

OwnedPelPix RenderOnMainThread(const std::u16string& path, std::uint32_t width,
                               std::uint32_t height, ImageProvider& images, double pixelAspect) {
    // Loading may read a file: done here, on the caller's thread, not on the main thread.
    const std::shared_ptr<const ProvidedImage> image = images.Find(path);
    if (!image)
        return nullptr;
    // The result travels through shared state, so a drawing that finishes after the caller
    // gave up is disposed of (with the state) rather than lost.
    struct Result {
        std::mutex mutex;
        OwnedPelPix buffer;
        bool abandoned = false;
    };
    auto result = std::make_shared<Result>();
    const auto draw = [=] {
        OwnedPelPix buffer;
        {
            std::lock_guard drawing(DrawingLock());
            buffer = DrawImage(*image, width, height, pixelAspect);
        }
        std::lock_guard lock(result->mutex);
        if (!result->abandoned)
            result->buffer = std::move(buffer);
    };
    const auto wait =
        std::chrono::milliseconds(std::max<std::int64_t>(0, Settings::GetInt(kWaitSetting, 2000)));
    CallOnMainThreadAndWait(draw, wait);
    std::lock_guard lock(result->mutex);
    result->abandoned = true;
    return std::move(result->buffer);
}

}  // namespace

PelPixHandle RenderPNGToThumbnail(const std::u16string& path, std::uint32_t width,
                                  std::uint32_t height, ImageProvider& images, double pixelAspect) {
    return RenderOnMainThread(path, width, height, images, pixelAspect).release();
}

PelPixHandle RenderSVGToThumbnail(const std::u16string& path, std::uint32_t width,
                                  std::uint32_t height, ImageProvider& images, double pixelAspect) {
    return RenderOnMainThread(path, width, height, images, pixelAspect).release();
}

}  // namespace Tessel
