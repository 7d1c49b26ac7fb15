// Icon thumbnails: the size rule, what kind of icon a path gets (and that nothing on a
// network mount is looked at), and the drawn pixels (the library's own drawings on POSIX,
// the shell's icons on Windows).
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
#include <tessel/platform/FileDetails.h>
#include <tessel/platform/FileIcons.h>
#include <tessel/thumbnails/Artwork.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include "ImageWriters.h"
#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using Platform::FileIconKind;
using Tessel::Test::PixelAt;

TEST(FileIconThumbnail, SizeRule) {
    // Requested size, largest size; the buffer's side and the icon drawn in it.
    const std::uint32_t cases[][4] = {
        {0, 0, 256, 256},   {0, 48, 48, 48},      {0, 100, 100, 48}, {1, 0, 1, 16},
        {16, 0, 16, 16},    {24, 0, 24, 16},  // a tie between 16 and 32 goes to the smaller
        {25, 0, 25, 32},    {40, 0, 40, 32},      {41, 0, 41, 48},   {64, 256, 64, 48},
        {152, 0, 152, 48},  // a tie between 48 and 256
        {153, 0, 153, 256}, {4000, 0, 4000, 256}, {256, 32, 32, 32}, {256, 41, 41, 48},
        {256, 1, 1, 16}};
    for (const auto& c : cases) {
        EXPECT_EQ(IconThumbnailSize(c[0], c[1]), c[2]) << c[0] << " with largest " << c[1];
        EXPECT_EQ(ChooseIconSize(c[0], c[1]), c[3]) << c[0] << " with largest " << c[1];
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
        {"missing", FileIconKind::File},         {"a.", FileIconKind::File},
        {"A.JPEG", FileIconKind::Image},         {"x.verylongextension", FileIconKind::File}};
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(Platform::ClassifyFileIcon((dir.path() / name).native()), expected) << name;
    EXPECT_EQ(Platform::ClassifyFileIcon({}), FileIconKind::File);
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

#if defined(__linux__)
// A machine whose mount table holds a local disk, a CD and a network share in the test's
// folder. The share's folder exists and holds a folder named like a video: a path that
// were stat'ed would show as a folder, one told by its name shows as a video.
TEST(FileIconThumbnail, NothingOnANetworkMountIsStatted) {
    Tessel::Test::TempDir dir;
    const std::string base = dir.str();
    for (const char* folder : {"disk", "cdrom", "Footage", "share/clip.mov", "share/Card"})
        dir.MakeDir(folder);
    fs::create_symlink("share/clip.mov", dir.path() / "link.mov");
    fs::create_symlink(dir.path() / "Footage", dir.path() / "to-footage");
    fs::create_symlink("loop-b", dir.path() / "loop-a");
    fs::create_symlink("loop-a", dir.path() / "loop-b");
    Platform::MountTableFiles files;
    files.mountTable = dir.WriteFile("mountinfo",
                                     "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                     "30 22 8:2 / " +
                                         base +
                                         "/disk rw - ext4 /dev/sdb1 rw\n"
                                         "31 22 11:0 / " +
                                         base +
                                         "/cdrom ro - iso9660 /dev/sr0 ro\n"
                                         "32 22 0:50 / " +
                                         base + "/share rw - cifs //server/media rw\n")
                           .native();
    files.fstab.clear();
    files.labelDirectory = files.blockDeviceDirectory = (dir.path() / "none").native();
    const auto kind = [&](const std::string& path) {
        return Platform::ClassifyFileIcon(base + path, files);
    };

    const std::uint64_t statsBefore = Platform::EntryStatCount();
    const std::pair<const char*, FileIconKind> unexamined[] = {
        {"/share", FileIconKind::NetworkShare},     {"/share/", FileIconKind::NetworkShare},
        {"/share/clip.mov", FileIconKind::Video},   {"/share/Card", FileIconKind::File},
        {"/share/Card/", FileIconKind::Folder},     {"/share/missing/x.wav", FileIconKind::Audio},
        {"//share/./clip.mov", FileIconKind::Video}};
    for (const auto& [path, expected] : unexamined)
        EXPECT_EQ(Platform::ClassifyFileIcon(base + path, files), expected) << path;
    // Relative paths are told by their names alone.
    EXPECT_EQ(Platform::ClassifyFileIcon("share/Card/", files), FileIconKind::Folder);
    EXPECT_EQ(Platform::EntryStatCount(), statsBefore) << "a path on the share was examined";

    // Paths reaching the share only through a link or "..": the walk stops at its edge.
    EXPECT_EQ(kind("/link.mov"), FileIconKind::Video);
    EXPECT_EQ(kind("/Footage/../share/clip.mov"), FileIconKind::Video);
    EXPECT_EQ(kind("/share/clip.mov/.."), FileIconKind::NetworkShare);
    // Elsewhere the file system decides, the mount table naming the roots.
    EXPECT_EQ(kind("/disk"), FileIconKind::Drive);
    EXPECT_EQ(kind("/cdrom/"), FileIconKind::RemovableDrive);
    EXPECT_EQ(kind("/Footage"), FileIconKind::Folder);
    EXPECT_EQ(kind("/to-footage"), FileIconKind::Folder);
    EXPECT_EQ(kind("/disk/../Footage/."), FileIconKind::Folder);
    EXPECT_EQ(kind("/loop-a"), FileIconKind::File);
    EXPECT_EQ(Platform::ClassifyFileIcon("/", files), FileIconKind::Drive);
}
#endif

// Whether ICON is a square of SIZE with something drawn in the top left square of
// DRAWN_SIZE and nothing outside it, and its pixels (stored rows from the bottom).
struct IconCheck {
    bool square = false, visible = false, clearOutside = true;
    std::vector<std::uint8_t> pixels;
};
IconCheck Inspect(PelPixHandle icon, std::uint32_t size, std::uint32_t drawnSize) {
    const OwnedPelPix owned(icon);
    IconCheck check;
    check.square = icon && pelpixGetWidth(icon) == size && pelpixGetHeight(icon) == size;
    for (std::uint32_t row = 0; check.square && row < size; ++row)
        for (std::uint32_t x = 0; x < size; ++x) {
            const Tessel::Test::Rgba p = PixelAt(icon, x, row);
            check.pixels.insert(check.pixels.end(), {p.b, p.g, p.r, p.a});
            const bool inside = x < drawnSize && row + drawnSize >= size;
            check.visible = check.visible || (inside && p.a != 0);
            check.clearOutside =
                check.clearOutside && (inside || p == Tessel::Test::Rgba{0, 0, 0, 0});
        }
    return check;
}

TEST(FileIconThumbnail, DrawsTheIconInTheTopLeftOfABufferOfTheRequestedSize) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Footage");
    dir.WriteFile("a.mov");
    dir.WriteFile("b.wav");
    const std::int64_t live = pelpixLiveCount();
    for (const std::uint32_t size : {16u, 32u, 48u, 64u, 100u, 200u, 256u, 300u}) {
        const std::uint32_t icon = ChooseIconSize(size, 0);
        const IconCheck check =
            Inspect(RenderFileIconThumbnail(dir.str(), "Footage", size, 0), size, icon);
        EXPECT_TRUE(check.square && check.visible && check.clearOutside) << size;
    }
#if !defined(_WIN32)
    // The library's folder drawing fills the icon's middle and leaves its corners clear.
    {
        const OwnedPelPix folder(RenderFileIconThumbnail(dir.str(), "Footage", 64, 0));
        ASSERT_TRUE(folder);
        EXPECT_EQ(PixelAt(folder.get(), 24, 64 - 24).a, 255u);
        EXPECT_EQ(PixelAt(folder.get(), 0, 63).a, 0u);
    }
#endif
    // An empty file part is the directory itself; a trailing separator is not doubled. The
    // provider's largest size caps the request; a size past the largest canvas, or no path,
    // gives nothing.
    const std::string separator(1, static_cast<char>(Path::kSeparator));
    const IconCheck self =
        Inspect(RenderFileIconThumbnail(dir.str() + separator + "Footage" + separator, "", 100, 80),
                80, 48);
    EXPECT_TRUE(self.square && self.visible && self.clearOutside);
    EXPECT_EQ(
        RenderFileIconThumbnail(dir.str(), "Footage", Platform::kLargestShellIconCanvas + 1, 0),
        nullptr);
    EXPECT_EQ(RenderFileIconThumbnail("", "", 32, 0), nullptr);

    // Many threads at once.
    std::vector<std::thread> threads;
    std::atomic<int> drawn{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i)
                drawn += OwnedPelPix(RenderFileIconThumbnail(
                             dir.str(), (i + t) % 2 ? "a.mov" : "b.wav", (i % 4) * 20u, 0))
                             ? 1
                             : 0;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(drawn, 80);
    EXPECT_EQ(pelpixLiveCount(), live);
}

#if defined(_WIN32)
// The shell's icons: a folder, a file, a missing file (its icon comes from the attributes
// alone), a drive root and long-path and unnormalised forms.
TEST(FileIconThumbnail, ShellIconsOfFoldersFilesMissingPathsAndDrives) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Footage");
    dir.WriteFile("clip.mov", "not really a movie");
    wchar_t system[MAX_PATH] = {};
    ASSERT_GT(GetSystemDirectoryW(system, MAX_PATH), 2u);
    const std::string drive = Path::FromNativeUtf8(std::wstring(system, 3));  // "C:\"
    const std::string folder = dir.str();
    const std::pair<std::string, std::string> paths[] = {{folder, "Footage"},
                                                         {folder, "clip.mov"},
                                                         {folder, "missing.txt"},
                                                         {folder, "missing-dir\\"},
                                                         {drive, ""},
                                                         {"\\\\?\\" + folder, "clip.mov"},
                                                         {folder + "\\.\\Footage\\..", "clip.mov"}};
    for (const auto& [directory, file] : paths)
        for (const std::uint32_t requested : {0u, 16u, 30u, 48u, 200u}) {
            const IconCheck check =
                Inspect(RenderFileIconThumbnail(directory, file, requested, 256),
                        IconThumbnailSize(requested, 256), ChooseIconSize(requested, 256));
            EXPECT_TRUE(check.square && check.visible)
                << directory << " " << file << " " << requested;
        }
    // A folder and a file look different; a missing file looks like an existing one of its
    // type.
    const IconCheck folderIcon = Inspect(RenderFileIconThumbnail(folder, "Footage", 32, 0), 32, 32);
    const IconCheck fileIcon = Inspect(RenderFileIconThumbnail(folder, "clip.mov", 32, 0), 32, 32);
    const IconCheck missing = Inspect(RenderFileIconThumbnail(folder, "other.mov", 32, 0), 32, 32);
    EXPECT_NE(folderIcon.pixels, fileIcon.pixels);
    EXPECT_EQ(missing.pixels, fileIcon.pixels);
}
#endif

TEST(Artwork, EveryPictureIsRegisteredAndReadable) {
    ImageResources::Setup();
    EXPECT_TRUE(ImageResources::Find("PNG", "REDVideoThumb.png"));
    EXPECT_TRUE(ImageResources::Find("SVG", "VideoColored"));
    const auto card = ImageResources::FindById(Artwork::kCameraCardResourceId);
    ASSERT_TRUE(card);
    EXPECT_EQ(card->type, "PNG");
    ImageResources::Release();
    // Every SVG picture comes with its PNG rendering at its natural size, which Windows
    // draws instead.
    for (const Artwork::EmbeddedFile& file : Artwork::AllFiles()) {
        const std::string name = file.name;
        if (!name.ends_with(".png"))
            continue;
        EXPECT_TRUE(Artwork::Find(name.substr(0, name.size() - 4) + ".svg")) << name;
        const OwnedPelPix picture(
            RenderThumbnail(std::vector<std::uint8_t>(file.bytes.begin(), file.bytes.end()), 0, 0));
        ASSERT_TRUE(picture) << name;
        EXPECT_EQ(std::pair(pelpixGetWidth(picture.get()), pelpixGetHeight(picture.get())),
                  std::pair(256u, 256u))
            << name;
    }
}

}  // namespace
}  // namespace Tessel
