// The library's artwork and resources folder; PNG and SVG artwork drawn on the main thread,
// whichever thread asks, and a main thread that never runs the drawing.
#include <gtest/gtest.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/media/ImageResources.h>
#include <tessel/media/PelPixCount.h>
#include <tessel/media/VideoFrame.h>
#include <tessel/thumbnails/Artwork.h>
#include <tessel/thumbnails/ArtworkThumbnail.h>
#include <tessel/thumbnails/RenderThumbnail.h>
#include <tessel/thumbnails/Resources.h>
#include <array>
#include <atomic>
#include <filesystem>
#include <thread>
#include <tuple>
#include "ImageWriters.h"
#include "support/Environment.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

namespace T = Tessel::Test;

class ArtworkThumbnailTest : public ::testing::Test {
protected:
    void SetUp() override {
        MainThread::SetCurrent();
        while (MainThread::RunPending() != 0) {
        }
        mLive = pelpixLiveCount();
        // A wide red picture, an SVG circle with its rendering beside it (which Windows, having
        // no SVG renderer, draws), and files that only pretend.
        const auto circle = [](std::uint32_t x, std::uint32_t y) {
            const double dx = x + 0.5 - 32, dy = y + 0.5 - 32;
            return dx * dx + dy * dy < 32 * 32 ? T::Rgba{0, 255, 0} : T::Rgba{0, 0, 0, 0};
        };
        const auto red = [](auto, auto) { return T::Rgba{255, 0, 0}; };
        mDir.WriteFile("wide.png", T::AsString(T::WritePng(T::MakePicture(40, 20, red), false)));
        mDir.WriteFile("circle.png", T::AsString(T::WritePng(T::MakePicture(64, 64, circle), 1)));
        mDir.WriteFile("circle.svg",
                       "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='64'>"
                       "<circle cx='32' cy='32' r='32' fill='#00ff00'/></svg>");
        mDir.WriteFile("broken.png", "\x89PNG\r\n\x1a\nnot really");
        mDir.WriteFile("broken.svg", "<svg xmlns='http://www.w3.org/2000/svg' width='64'");
    }
    void TearDown() override {
        while (MainThread::RunPending() != 0) {
        }
        Settings::Reset(kSettingMainThreadWaitMilliseconds);
        mImages.Clear();
        EXPECT_EQ(pelpixLiveCount(), mLive);
    }
    // The frame of the artwork NAME drawn into WIDTH x HEIGHT on pixels of PIXEL_ASPECT.
    MF::IVideoFrameRef Draw(const std::string& name, std::uint32_t width, std::uint32_t height,
                            double pixelAspect = 1.0) {
        const OwnedPelPix buffer(RenderSVGToThumbnail(Utf8ToUtf16((mDir.path() / name).string()),
                                                      width, height, mImages, pixelAspect));
        return buffer ? MF::CreateVideoFrameFromPelPix(buffer.get()) : nullptr;
    }
    T::TempDir mDir;
    ImageProvider mImages;
    std::int64_t mLive = 0;
};

TEST_F(ArtworkThumbnailTest, FitsCentresHonoursThePixelAspectRatioAndRefusesBadFiles) {
    // 40x20 into 80x80 is drawn 80x40, rows 20 to 59 from the top; on pixels twice as wide
    // the picture is square in pixels and fills the box; 0 keeps the picture's own size. An
    // SVG circle in a wide box is centred, its corners clear; on squeezed pixels drawn half as
    // wide.
    constexpr std::uint32_t kRed = 0xFFFF0000u, kGreen = 0xFF00FF00u;
    const struct {
        const char* name;
        std::uint32_t width, height;
        double aspect;
        std::uint32_t frameWidth, frameHeight;
        std::vector<std::array<std::uint32_t, 3>> pixels;  // x, y from the top, BGRA
    } cases[] = {
        {"wide.png", 80, 80, 1, 80, 80, {{0, 19, 0}, {0, 20, kRed}, {79, 59, kRed}, {40, 60, 0}}},
        {"wide.png", 80, 80, 2, 80, 80, {{0, 0, kRed}, {79, 79, kRed}}},
        {"wide.png", 0, 0, 1, 40, 20, {}},
        {"circle.svg", 128, 64, 1, 128, 64, {{64, 32, kGreen}, {10, 32, 0}, {36, 4, 0}}},
        {"circle.svg", 64, 64, 2, 64, 64, {{32, 32, kGreen}, {6, 32, 0}}}};
    for (const auto& [name, width, height, aspect, frameWidth, frameHeight, pixels] : cases) {
        const MF::IVideoFrameRef frame = Draw(name, width, height, aspect);
        ASSERT_TRUE(frame) << name;
        EXPECT_EQ(std::tuple(frame->GetWidth(), frame->GetHeight(), frame->GetPixelAspectRatio()),
                  std::tuple(frameWidth, frameHeight, aspect))
            << name;
        for (const auto& [x, y, bgra] : pixels)
            EXPECT_EQ(frame->GetPixelBGRA(x, y), bgra) << name << " at " << x << "," << y;
    }
    // The host's resources by name (the camera-card picture by number too); bad files and
    // missing ones draw nothing.
    ImageResources::Setup();
    for (const char16_t* name : {u"REDVideoThumb.png", u"VideoColored"})
        EXPECT_TRUE(OwnedPelPix(RenderPNGToThumbnail(name, 48, 48, mImages))) << Utf16ToUtf8(name);
    EXPECT_TRUE(ImageResources::FindById(Artwork::kCameraCardResourceId));
    ImageResources::Release();
    for (const char* name : {"broken.png", "broken.svg", "missing.png"})
        EXPECT_FALSE(Draw(name, 32, 32)) << name;
    EXPECT_EQ(RenderPNGToThumbnail(u"", 32, 32, mImages), nullptr);
    EXPECT_EQ(ImageProvider::Decode({}), nullptr);
}

TEST_F(ArtworkThumbnailTest, WorkersWaitForTheMainThreadButNotForever) {
    std::atomic<int> drawn{0}, finished{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i)
        workers.emplace_back([&, i] {
            drawn += Draw(i % 2 ? "circle.svg" : "wide.png", 32, 32) ? 1 : 0;
            ++finished;
        });
    EXPECT_TRUE(MainThread::RunUntil([&] { return finished == 3; }, std::chrono::seconds(60)));
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(drawn, 3);
    // A main thread that never pumps costs the limit, not a hang. The posted drawing is
    // cancelled, or, had it started, disposed: nothing leaks when the main thread gets round
    // to it (TearDown checks the live count).
    Settings::Set(kSettingMainThreadWaitMilliseconds, any_regular_t(std::int64_t{30}));
    bool none = false;
    std::thread([&] { none = !Draw("wide.png", 32, 32); }).join();
    EXPECT_TRUE(none);
}

// Every picture comes as SVG with its PNG rendering at its natural size, which Windows draws
// instead.
TEST(Artwork, EveryPictureIsRegisteredAndReadable) {
    for (const Artwork::EmbeddedFile& file : Artwork::AllFiles()) {
        const std::string name = file.name;
        if (!name.ends_with(".png"))
            continue;
        EXPECT_TRUE(Artwork::Find(name.substr(0, name.size() - 4) + ".svg")) << name;
        const OwnedPelPix picture(
            RenderThumbnail(T::Bytes(file.bytes.begin(), file.bytes.end()), 0, 0));
        ASSERT_TRUE(picture) << name;
        EXPECT_EQ(std::pair(pelpixGetWidth(picture.get()), pelpixGetHeight(picture.get())),
                  std::pair(256u, 256u))
            << name;
    }
}

TEST(Resources, OverridesInOrderThenTheLibrarysOwnFolder) {
    Settings::Reset(kSettingResourcesFolder);
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "");
    // Uninstalled, the library finds the build tree's copy, with the provider pictures in it.
    const std::string found = GetResourcesFolder();
    ASSERT_FALSE(found.empty());
    EXPECT_NE(found.back(), '/');
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::path(found) / "PNG" /
                                                 "REDVideoThumb.png"));
    // The environment replaces it, the settings database replaces both; neither is checked.
    // An empty value counts as no value.
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "/from/environment");
    EXPECT_EQ(GetResourcesFolder(), "/from/environment");
    Settings::Set(kSettingResourcesFolder, std::string("/from/settings"));
    EXPECT_EQ(GetResourcesFolder(), "/from/settings");
    Settings::Set(kSettingResourcesFolder, std::string());
    EXPECT_EQ(GetResourcesFolder(), "/from/environment");
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "");
    Settings::Reset(kSettingResourcesFolder);
    EXPECT_EQ(GetResourcesFolder(), found);
}

}  // namespace
}  // namespace Tessel
