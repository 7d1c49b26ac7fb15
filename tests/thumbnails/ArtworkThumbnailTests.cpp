// The host's PNG and SVG artwork drawn into buffers on the main thread, whichever thread
// asks, and a main thread that never runs the drawing.
#include <tessel/thumbnails/ArtworkThumbnail.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
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
constexpr T::Rgba kRed{255, 0, 0, 255};

class ArtworkThumbnailTest : public ::testing::Test {
protected:
    void SetUp() override {
        MainThread::SetCurrent();
        while (MainThread::RunPending() != 0) {
        }
        mLive = pelpixLiveCount();
        // A wide red picture, an SVG circle with its rendering beside it (which Windows, having
        // no SVG renderer, draws), and files that only pretend.
        Write("wide.png",
              T::WritePng(T::MakePicture(40, 20, [](auto, auto) { return kRed; }), false));
        Write("circle.svg",
              "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='64'>"
              "<circle cx='32' cy='32' r='32' fill='#00ff00'/></svg>");
        const auto circle = [](std::uint32_t x, std::uint32_t y) {
            const double dx = x + 0.5 - 32, dy = y + 0.5 - 32;
            return dx * dx + dy * dy < 32 * 32 ? T::Rgba{0, 255, 0, 255} : T::Rgba{0, 0, 0, 0};
        };
        Write("circle.png", T::WritePng(T::MakePicture(64, 64, circle), true));
        Write("broken.png", std::string_view("\x89PNG\r\n\x1a\nnot really"));
        Write("broken.svg", "<svg xmlns='http://www.w3.org/2000/svg' width='64'");
    }
    void TearDown() override {
        while (MainThread::RunPending() != 0) {
        }
        Settings::Reset(kSettingMainThreadWaitMilliseconds);
        mImages.Clear();
        EXPECT_EQ(pelpixLiveCount(), mLive);
    }
    void Write(const std::string& name, std::string_view bytes) {
        std::ofstream(mDir.path() / name, std::ios::binary) << bytes;
    }
    void Write(const std::string& name, const T::Bytes& bytes) {
        Write(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    }
    std::u16string PathOf(const std::string& name) const {
        return Utf8ToUtf16((mDir.path() / name).string());
    }
    // The frame of BUFFER; BUFFER is disposed.
    static MF::IVideoFrameRef Frame(PelPixHandle buffer) {
        MF::IVideoFrameRef frame = MF::CreateVideoFrameFromPelPix(buffer);
        pelpixDispose(buffer);
        return frame;
    }

    T::TempDir mDir;
    ImageProvider mImages;
    std::int64_t mLive = 0;
};

TEST_F(ArtworkThumbnailTest, FitsCentresHonoursThePixelAspectRatioAndRefusesBadFiles) {
    // 40x20 into 80x80: drawn 80x40, rows 20 to 59 from the top, the rest clear.
    MF::IVideoFrameRef frame = Frame(RenderPNGToThumbnail(PathOf("wide.png"), 80, 80, mImages));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetWidth(), 80u);
    EXPECT_EQ(frame->GetHeight(), 80u);
    EXPECT_EQ(frame->GetPixelBGRA(0, 19), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0, 20), 0xFFFF0000u);
    EXPECT_EQ(frame->GetPixelBGRA(79, 59), 0xFFFF0000u);
    EXPECT_EQ(frame->GetPixelBGRA(40, 60), 0u);

    // On pixels twice as wide the picture is square in pixels and fills the box.
    frame = Frame(RenderPNGToThumbnail(PathOf("wide.png"), 80, 80, mImages, 2.0));
    ASSERT_TRUE(frame);
    EXPECT_DOUBLE_EQ(frame->GetPixelAspectRatio(), 2.0);
    EXPECT_EQ(frame->GetPixelBGRA(0, 0), 0xFFFF0000u);
    EXPECT_EQ(frame->GetPixelBGRA(79, 79), 0xFFFF0000u);

    // 0 keeps the picture's own size.
    frame = Frame(RenderPNGToThumbnail(PathOf("wide.png"), 0, 0, mImages));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetWidth(), 40u);
    EXPECT_EQ(frame->GetHeight(), 20u);

    // An SVG circle into a wide box: centred horizontally, corners clear.
    frame = Frame(RenderSVGToThumbnail(PathOf("circle.svg"), 128, 64, mImages));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetPixelBGRA(64, 32), 0xFF00FF00u);
    EXPECT_EQ(frame->GetPixelBGRA(10, 32), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(36, 4) >> 24, 0u);  // outside the circle
    // Squeezed pixels: the circle is drawn half as wide.
    frame = Frame(RenderSVGToThumbnail(PathOf("circle.svg"), 64, 64, mImages, 2.0));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetPixelBGRA(32, 32), 0xFF00FF00u);
    EXPECT_EQ(frame->GetPixelBGRA(6, 32), 0u);

    // The host's resources by name; bad files and missing ones draw nothing.
    ImageResources::Setup();
    for (const char16_t* name : {u"REDVideoThumb.png", u"VideoColored"}) {
        PelPixHandle buffer = RenderSVGToThumbnail(name, 48, 48, mImages);
        ASSERT_NE(buffer, nullptr) << Utf16ToUtf8(name);
        pelpixDispose(buffer);
    }
    ImageResources::Release();
    EXPECT_EQ(RenderPNGToThumbnail(PathOf("broken.png"), 32, 32, mImages), nullptr);
    EXPECT_EQ(RenderSVGToThumbnail(PathOf("broken.svg"), 32, 32, mImages), nullptr);
    EXPECT_EQ(RenderPNGToThumbnail(PathOf("missing.png"), 32, 32, mImages), nullptr);
    EXPECT_EQ(RenderPNGToThumbnail(u"", 32, 32, mImages), nullptr);
    EXPECT_EQ(ImageProvider::Decode({}), nullptr);
}

TEST_F(ArtworkThumbnailTest, WorkersWaitForTheMainThreadButNotForever) {
    std::atomic<int> drawn{0}, finished{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i)
        workers.emplace_back([&, i] {
            PelPixHandle buffer = i % 2
                                      ? RenderSVGToThumbnail(PathOf("circle.svg"), 32, 32, mImages)
                                      : RenderPNGToThumbnail(PathOf("wide.png"), 32, 32, mImages);
            drawn += buffer != nullptr;
            pelpixDispose(buffer);
            ++finished;
        });
    EXPECT_TRUE(MainThread::RunUntil([&] { return finished == 3; }, std::chrono::seconds(60)));
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(drawn, 3);

    // A main thread that never pumps costs the limit, not a hang.
    Settings::Set(kSettingMainThreadWaitMilliseconds, any_regular_t(std::int64_t{30}));
    PelPixHandle buffer = reinterpret_cast<PelPixHandle>(1);
    std::thread([&] { buffer = RenderPNGToThumbnail(PathOf("wide.png"), 32, 32, mImages); }).join();
    EXPECT_EQ(buffer, nullptr);
    // The posted drawing is cancelled, or, had it started, disposed: nothing leaks when the
    // main thread gets round to it (TearDown checks the live count).
}

}  // namespace
}  // namespace Tessel
