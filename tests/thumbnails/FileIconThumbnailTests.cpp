// Icon thumbnails: the size rule, what kind of icon a path gets, and the drawn pixels (the
// library's own drawings on POSIX, the shell's icons on Windows).
#include <tessel/thumbnails/FileIconThumbnail.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

#include <tessel/foundation/Path.h>
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
    for (const char* name :
         {"clip.MXF", "take.wav", "notes.txt", "frame.0001.dpx", ".hidden", "no-extension"})
        dir.WriteFile(name);
    const std::pair<const char*, FileIconKind> cases[] = {
        {"Footage", FileIconKind::Folder},       {"clip.MXF", FileIconKind::Video},
        {"take.wav", FileIconKind::Audio},       {"notes.txt", FileIconKind::Document},
        {"frame.0001.dpx", FileIconKind::Image}, {".hidden", FileIconKind::File},
        {"no-extension", FileIconKind::File},    {"missing.jpg", FileIconKind::Image},
        {"missing", FileIconKind::File},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(Platform::ClassifyFileIcon((dir.path() / name).native()), expected) << name;
    EXPECT_EQ(Platform::ClassifyFileIcon({}), FileIconKind::File);
    EXPECT_EQ(Platform::FileIconKindForName("a."), FileIconKind::File);
    EXPECT_EQ(Platform::FileIconKindForName("A.JPEG"), FileIconKind::Image);
    EXPECT_EQ(Platform::FileIconKindForName("x.verylongextension"), FileIconKind::File);

#if defined(_WIN32)
    wchar_t system[MAX_PATH] = {};
    ASSERT_GT(GetSystemDirectoryW(system, MAX_PATH), 2u);
    const std::wstring root = std::wstring(system, 3);  // "C:\"
    EXPECT_EQ(Platform::ClassifyFileIcon(root), FileIconKind::Drive);
    EXPECT_EQ(Platform::ClassifyFileIcon(L"\\\\?\\" + root), FileIconKind::Drive);
#else
    // Names that are not UTF-8, and a FIFO, which is classified by its name, never opened.
    dir.WriteFile("name\xff\xfe.mov");
    EXPECT_EQ(Platform::ClassifyFileIcon((dir.path() / "name\xff\xfe.mov").native()),
              FileIconKind::Video);
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "pipe.mp4"));
    Tessel::Test::FifoReaderWatch watch(dir.path() / "pipe.mp4");
    EXPECT_EQ(Platform::ClassifyFileIcon((dir.path() / "pipe.mp4").native()), FileIconKind::Video);
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
    const FileIconKind root = Platform::ClassifyFileIcon("/");
    EXPECT_TRUE(root == FileIconKind::Drive || root == FileIconKind::RemovableDrive ||
                root == FileIconKind::NetworkShare);
#endif
}

// An icon's pixels, whether its buffer is square of SIZE, and how many of its pixels are not
// fully transparent. ICON is disposed.
struct IconCheck {
    bool square = false;
    std::size_t visible = 0;
    std::vector<std::uint8_t> pixels;
};
IconCheck Inspect(PelPixHandle icon, std::uint32_t size) {
    IconCheck check;
    check.square = icon && pelpixGetWidth(icon) == size && pelpixGetHeight(icon) == size;
    if (check.square) {
        PelPixLock lock(icon);
        for (std::uint32_t row = 0; row < size; ++row)
            check.pixels.insert(check.pixels.end(), lock.Row(row), lock.Row(row) + size * 4);
    }
    for (std::size_t i = 3; i < check.pixels.size(); i += 4)
        check.visible += check.pixels[i] != 0;
    pelpixDispose(icon);
    return check;
}

TEST(FileIconThumbnail, DrawsSquareIconsOfTheChosenSizeFromManyThreads) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Footage");
    const std::int64_t live = pelpixLiveCount();

    for (std::uint32_t size : {16u, 32u, 48u, 256u}) {
        PelPixHandle icon = RenderFileIconThumbnail(dir.str(), "Footage", size, 256);
        ASSERT_NE(icon, nullptr) << size;
#if !defined(_WIN32)
        // The library's folder drawing fills the middle and leaves the corners clear.
        MF::IVideoFrameRef frame = MF::CreateVideoFrameFromPelPix(icon);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->GetPixelBGRA(size / 2, size / 2) >> 24, 255u) << size;
        EXPECT_EQ(frame->GetPixelBGRA(0, 0) >> 24, 0u) << size;
#endif
        const IconCheck check = Inspect(icon, size);
        EXPECT_TRUE(check.square) << size;
        EXPECT_GT(check.visible, 0u) << size;
    }
    // An empty file part is the directory itself; a trailing separator is not doubled.
    const std::string separator(1, static_cast<char>(Path::kSeparator));
    PelPixHandle self =
        RenderFileIconThumbnail(dir.str() + separator + "Footage" + separator, "", 100, 0);
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

#if defined(_WIN32)
// The shell's icons: a folder, a file, a missing file (its icon comes from the attributes
// alone), a drive root and a long-path form, each in a buffer of the chosen list's size
// with something drawn in it.
TEST(FileIconThumbnail, ShellIconsOfFoldersFilesMissingPathsAndDrives) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Footage");
    dir.WriteFile("clip.mov", "not really a movie");
    wchar_t system[MAX_PATH] = {};
    ASSERT_GT(GetSystemDirectoryW(system, MAX_PATH), 2u);
    const std::string drive = Path::FromNativeUtf8(std::wstring(system, 3));  // "C:\"
    const std::string folder = dir.str();
    const struct {
        std::string directory, file;
    } paths[] = {
        {folder, "Footage"},
        {folder, "clip.mov"},
        {folder, "missing.txt"},
        {folder, "missing-dir\\"},
        {drive, ""},
        {"\\\\?\\" + folder, "clip.mov"},
        {folder + "\\.\\Footage\\..", "clip.mov"},
    };
    for (const auto& path : paths) {
        for (const std::uint32_t requested : {0u, 16u, 30u, 48u, 200u}) {
            const std::uint32_t size = ChooseIconSize(requested, 256);
            const IconCheck check =
                Inspect(RenderFileIconThumbnail(path.directory, path.file, requested, 256), size);
            EXPECT_TRUE(check.square) << path.directory << " " << path.file << " " << requested;
            EXPECT_GT(check.visible, 0u) << path.directory << " " << path.file << " " << requested;
        }
    }
    // A folder and a file look different; a missing file looks like an existing one of its
    // type. The largest size the provider supports caps the request.
    const IconCheck folderIcon = Inspect(RenderFileIconThumbnail(folder, "Footage", 0, 32), 32);
    const IconCheck fileIcon = Inspect(RenderFileIconThumbnail(folder, "clip.mov", 0, 32), 32);
    const IconCheck missing = Inspect(RenderFileIconThumbnail(folder, "other.mov", 0, 32), 32);
    EXPECT_TRUE(folderIcon.square);
    EXPECT_NE(folderIcon.pixels, fileIcon.pixels);
    EXPECT_EQ(missing.pixels, fileIcon.pixels);
}
#endif

TEST(Artwork, EveryPictureIsRegisteredAndReadable) {
    ImageResources::Setup();
    for (const char* name :
         {"ContainsVideoThumb.png", "CinemaDNGThumb.png", "ArriThumb.png", "REDVideoThumb.png"})
        EXPECT_TRUE(ImageResources::Find("PNG", name)) << name;
    const auto card = ImageResources::FindById(Artwork::kCameraCardResourceId);
    ASSERT_TRUE(card);
    EXPECT_EQ(card->type, "PNG");
    const auto video = ImageResources::Find("SVG", "VideoColored");
    ASSERT_TRUE(video);
    EXPECT_NE(
        std::string_view(reinterpret_cast<const char*>(video->bytes.data()), video->bytes.size())
            .find("<svg"),
        std::string_view::npos);
    for (const Artwork::EmbeddedFile& file : Artwork::AllFiles())
        EXPECT_FALSE(file.bytes.empty()) << file.name;
    // Every SVG picture comes with its PNG rendering at its natural size, which Windows
    // draws instead.
    for (const std::string name : {"ContainsVideoThumb", "CinemaDNGThumb", "ArriThumb",
                                   "REDVideoThumb", "CameraCardThumb", "VideoColored"}) {
        EXPECT_TRUE(Artwork::Find(name + ".svg")) << name;
        const auto png = Artwork::Find(name + ".png");
        ASSERT_TRUE(png) << name;
        PelPixHandle picture =
            RenderThumbnail(std::vector<std::uint8_t>(png->begin(), png->end()), 0, 0);
        EXPECT_TRUE(pelpixGetWidth(picture) == 256u && pelpixGetHeight(picture) == 256u) << name;
        pelpixDispose(picture);
    }
    ImageResources::Release();
}

}  // namespace
}  // namespace Tessel
