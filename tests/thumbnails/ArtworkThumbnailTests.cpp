// The host's PNG and SVG artwork drawn into buffers on the main thread, whichever thread
// asks, and a main thread that never runs the drawing.
#include <tessel/thumbnails/ArtworkThumbnail.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/media/ImageResources.h>
#include <tessel/media/VideoFrame.h>

#include "ImageWriters.h"
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
        mDir.WriteFile("circle.png",
                       T::AsString(T::WritePng(T::MakePicture(64, 64, circle), true)));
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
    // 40x20 into 80x80: drawn 80x40, rows 20 to 59 from the top, the rest clear.
    MF::IVideoFrameRef frame = Draw("wide.png", 80, 80);
    ASSERT_TRUE(frame);
    EXPECT_EQ(std::pair(frame->GetWidth(), frame->GetHeight()), std::pair(80u, 80u));
    EXPECT_EQ(frame->GetPixelBGRA(0, 19), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0, 20), 0xFFFF0000u);
    EXPECT_EQ(frame->GetPixelBGRA(79, 59), 0xFFFF0000u);
    EXPECT_EQ(frame->GetPixelBGRA(40, 60), 0u);
    // On pixels twice as wide the picture is square in pixels and fills the box.
    frame = Draw("wide.png", 80, 80, 2.0);
    ASSERT_TRUE(frame);
    EXPECT_DOUBLE_EQ(frame->GetPixelAspectRatio(), 2.0);
    EXPECT_EQ(frame->GetPixelBGRA(0, 0), 0xFFFF0000u);
    EXPECT_EQ(frame->GetPixelBGRA(79, 79), 0xFFFF0000u);
    // 0 keeps the picture's own size.
    frame = Draw("wide.png", 0, 0);
    ASSERT_TRUE(frame);
    EXPECT_EQ(std::pair(frame->GetWidth(), frame->GetHeight()), std::pair(40u, 20u));
    // An SVG circle into a wide box: centred horizontally, corners clear; on squeezed pixels
    // drawn half as wide.
    frame = Draw("circle.svg", 128, 64);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetPixelBGRA(64, 32), 0xFF00FF00u);
    EXPECT_EQ(frame->GetPixelBGRA(10, 32), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(36, 4) >> 24, 0u);  // outside the circle
    frame = Draw("circle.svg", 64, 64, 2.0);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetPixelBGRA(32, 32), 0xFF00FF00u);
    EXPECT_EQ(frame->GetPixelBGRA(6, 32), 0u);

    // The host's resources by name; bad files and missing ones draw nothing.
    ImageResources::Setup();
    for (const char16_t* name : {u"REDVideoThumb.png", u"VideoColored"})
        EXPECT_TRUE(OwnedPelPix(RenderPNGToThumbnail(name, 48, 48, mImages))) << Utf16ToUtf8(name);
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

}  // namespace
}  // namespace Tessel
