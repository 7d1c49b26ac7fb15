// Icon thumbnails: the size rule, what kind of icon a path gets, and the drawn pixels.
#include <tessel/thumbnails/FileIconThumbnail.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <tessel/media/ImageResources.h>
#include <tessel/media/VideoFrame.h>
#include <tessel/platform/FileIcons.h>
#include <tessel/thumbnails/Artwork.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

using Platform::FileIconKind;

TEST(FileIconThumbnail, SizeRule) {
    struct Case {
        std::uint32_t requested, largest, expected;
    };
    const Case cases[] = {
        {0, 0, 256},   {0, 48, 48},    {0, 100, 48},  {1, 0, 16},
        {16, 0, 16},   {24, 0, 16},  // a tie between 16 and 32 goes to the smaller
        {25, 0, 32},   {40, 0, 32},    {41, 0, 48},   {152, 0, 48},  // tie between 48 and 256
        {153, 0, 256}, {4000, 0, 256}, {256, 32, 32}, {256, 40, 32},
        {256, 41, 48}, {256, 1, 16},   {48, 256, 48},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ChooseIconSize(c.requested, c.largest), c.expected)
            << c.requested << " with largest " << c.largest;
    }
}

TEST(FileIconThumbnail, KindsOfPaths) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Footage");
    for (const char* name : {"clip.MXF", "take.wav", "notes.txt", "frame.0001.dpx", ".hidden",
                             "no-extension", "name\xff\xfe.mov"})
        dir.WriteFile(name);
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "pipe.mp4"));
    Tessel::Test::FifoReaderWatch watch(dir.path() / "pipe.mp4");

    const std::pair<const char*, FileIconKind> cases[] = {
        {"Footage", FileIconKind::Folder},       {"clip.MXF", FileIconKind::Video},
        {"take.wav", FileIconKind::Audio},       {"notes.txt", FileIconKind::Document},
        {"frame.0001.dpx", FileIconKind::Image}, {".hidden", FileIconKind::File},
        {"no-extension", FileIconKind::File},    {"name\xff\xfe.mov", FileIconKind::Video},
        {"pipe.mp4", FileIconKind::Video},  // by its name, never opened
        {"missing.jpg", FileIconKind::Image},    {"missing", FileIconKind::File},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(Platform::ClassifyFileIcon((dir.path() / name).native()), expected) << name;
    EXPECT_EQ(Platform::ClassifyFileIcon(""), FileIconKind::File);
#if !defined(_WIN32)
    const FileIconKind root = Platform::ClassifyFileIcon("/");
    EXPECT_TRUE(root == FileIconKind::Drive || root == FileIconKind::RemovableDrive ||
                root == FileIconKind::NetworkShare);
#endif
    EXPECT_EQ(Platform::FileIconKindForName("a."), FileIconKind::File);
    EXPECT_EQ(Platform::FileIconKindForName("A.JPEG"), FileIconKind::Image);
    EXPECT_EQ(Platform::FileIconKindForName("x.verylongextension"), FileIconKind::File);
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
}

TEST(FileIconThumbnail, DrawsSquareIconsOfTheChosenSizeFromManyThreads) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Footage");
    const std::int64_t live = pelpixLiveCount();

    for (std::uint32_t size : {16u, 32u, 48u, 256u}) {
        PelPixHandle icon = RenderFileIconThumbnail(dir.str(), "Footage", size, 256);
        ASSERT_NE(icon, nullptr) << size;
        MF::IVideoFrameRef frame = MF::CreateVideoFrameFromPelPix(icon);
        pelpixDispose(icon);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->GetWidth(), size);
        EXPECT_EQ(frame->GetHeight(), size);
        // The drawing fills the middle and leaves the corners clear.
        EXPECT_EQ(frame->GetPixelBGRA(size / 2, size / 2) >> 24, 255u) << size;
        EXPECT_EQ(frame->GetPixelBGRA(0, 0) >> 24, 0u) << size;
    }
    // An empty file part is the directory itself; a trailing separator is not doubled.
    PelPixHandle self = RenderFileIconThumbnail(dir.str() + "/Footage/", "", 100, 0);
    ASSERT_NE(self, nullptr);
    EXPECT_EQ(pelpixGetWidth(self), 48u);
    pelpixDispose(self);
    EXPECT_EQ(RenderFileIconThumbnail("", "", 32, 0), nullptr);

    // Many threads at once.
    dir.WriteFile("a.mov");
    dir.WriteFile("b.wav");
    std::vector<std::thread> threads;
    std::atomic<int> drawn{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                PelPixHandle icon = RenderFileIconThumbnail(
                    dir.str(), (i + t) % 2 ? "a.mov" : "b.wav", (i % 4) * 20u, 0);
                drawn += icon != nullptr;
                pelpixDispose(icon);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(drawn, 80);
    EXPECT_EQ(pelpixLiveCount(), live);
}

TEST(Artwork, EveryPictureIsRegisteredAndReadable) {
    ImageResources::Setup();
    for (const char* name :
         {"ContainsVideoThumb.png", "CinemaDNGThumb.png", "ArriThumb.png", "REDVideoThumb.png"}) {
        const auto resource = ImageResources::Find("PNG", name);
        ASSERT_TRUE(resource) << name;
        const std::vector<std::uint8_t> bytes(resource->bytes.begin(), resource->bytes.end());
        PelPixHandle picture = RenderThumbnail(bytes, 0, 0);
        ASSERT_NE(picture, nullptr) << name;
        EXPECT_EQ(pelpixGetWidth(picture), 256u) << name;
        pelpixDispose(picture);
    }
    const auto card = ImageResources::FindById(Artwork::kCameraCardResourceId);
    ASSERT_TRUE(card);
    EXPECT_EQ(card->type, "PNG");
    const auto video = ImageResources::Find("SVG", "VideoColored");
    ASSERT_TRUE(video);
    EXPECT_NE(
        std::string_view(reinterpret_cast<const char*>(video->bytes.data()), video->bytes.size())
            .find("<svg"),
        std::string_view::npos);
    for (const Artwork::EmbeddedFile& file : Artwork::AllFiles()) {
        EXPECT_FALSE(file.bytes.empty()) << file.name;
    }
    ImageResources::Release();
}

}  // namespace
}  // namespace Tessel
