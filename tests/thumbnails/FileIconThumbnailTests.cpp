// Icon thumbnails: the size rule, the kind of icon a path gets (nothing on a network mount
// looked at), and the drawn pixels (the library's own drawings, the shell's on Windows).
#include <tessel/thumbnails/FileIconThumbnail.h>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>
#if defined(_WIN32)
#include <windows.h>
#endif
#include <tessel/foundation/Path.h>
#include <tessel/media/PelPixCount.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/platform/FileIcons.h>
#include "ImageWriters.h"
#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using Platform::FileIconKind;
using enum Platform::FileIconKind;
using Tessel::Test::PixelAt;
using Tessel::Test::TempDir;

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
    TempDir dir;
    dir.MakeDir("Footage");
    for (const char* name : {"clip.MXF", "frame.0001.dpx", ".hidden"})
        dir.WriteFile(name);
    const std::pair<const char*, FileIconKind> cases[] = {
        {"Footage", Folder}, {"clip.MXF", Video},          {"frame.0001.dpx", Image},
        {".hidden", File},   {"missing.jpg", Image},       {"missing", File},
        {"a.", File},        {"x.verylongextension", File}};
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(Platform::ClassifyFileIcon((dir.path() / name).native()), expected) << name;
    EXPECT_EQ(Platform::ClassifyFileIcon({}), File);
#if defined(_WIN32)
    wchar_t system[MAX_PATH] = {};
    ASSERT_GT(GetSystemDirectoryW(system, MAX_PATH), 2u);
    const std::wstring root = std::wstring(system, 3);  // "C:\"
    EXPECT_EQ(Platform::ClassifyFileIcon(root), Drive);
    EXPECT_EQ(Platform::ClassifyFileIcon(L"\\\\?\\" + root), Drive);
#else
    // Names that are not UTF-8, and a FIFO, which is classified by its name, never opened.
    dir.WriteFile("name\xff\xfe.mov");
    EXPECT_EQ(Platform::ClassifyFileIcon(dir.str() + "/name\xff\xfe.mov"), Video);
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "pipe.mp4"));
    Tessel::Test::FifoReaderWatch watch(dir.path() / "pipe.mp4");
    EXPECT_EQ(Platform::ClassifyFileIcon(dir.str() + "/pipe.mp4"), Video);
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
#endif
}

#if defined(__linux__)
// A machine whose mount table holds a local disk, a CD and a network share in the test's
// folder. The share's folder exists and holds a folder named like a video: a path that
// were stat'ed would show as a folder, one told by its name shows as a video.
TEST(FileIconThumbnail, NothingOnANetworkMountIsStatted) {
    TempDir dir;
    const std::string base = dir.str();
    for (const char* folder : {"disk", "cdrom", "Footage", "share/clip.mov", "share/Card"})
        dir.MakeDir(folder);
    fs::create_symlink("share/clip.mov", dir.path() / "link.mov");
    fs::create_symlink(dir.path() / "Footage", dir.path() / "to-footage");
    fs::create_symlink("loop-b", dir.path() / "loop-a");
    fs::create_symlink("loop-a", dir.path() / "loop-b");
    std::string table = "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n";
    for (const char* mount : {"disk rw - ext4 /dev/sdb1", "cdrom ro - iso9660 /dev/sr0",
                              "share rw - cifs //server/media"})
        table += std::to_string(table.size()) + " 22 8:2 / " + base + "/" + mount + " rw\n";
    Platform::MountTableFiles files;
    files.mountTable = dir.WriteFile("mountinfo", table).native();
    files.fstab.clear();
    files.labelDirectory = files.blockDeviceDirectory = (dir.path() / "none").native();
    const std::uint64_t statsBefore = Platform::EntryStatCount();
    const std::pair<const char*, FileIconKind> unexamined[] = {
        {"/share", NetworkShare},
        {"/share/", NetworkShare},
        {"/share/clip.mov", Video},
        {"/share/Card", File},
        {"/share/Card/", Folder},
        {"//share/./missing/x.wav", Audio},
        {"/Footage/../share/clip.mov/..", NetworkShare}};
    for (const auto& [path, expected] : unexamined)
        EXPECT_EQ(Platform::ClassifyFileIcon(base + path, files), expected) << path;
    EXPECT_EQ(Platform::ClassifyFileIcon("share/Card/", files), Folder)
        << "a relative path is told by its name";
    EXPECT_EQ(Platform::EntryStatCount(), statsBefore) << "a path on the share was examined";
    // Reaching the share through a link, the walk stops at its edge. Elsewhere the file
    // system decides, the mount table naming the roots.
    const std::pair<const char*, FileIconKind> walked[] = {
        {"/link.mov", Video}, {"/disk", Drive},        {"/cdrom/", RemovableDrive},
        {"/Footage", Folder}, {"/to-footage", Folder}, {"/disk/../Footage/.", Folder},
        {"/loop-a", File}};
    for (const auto& [path, expected] : walked)
        EXPECT_EQ(Platform::ClassifyFileIcon(base + path, files), expected) << path;
    EXPECT_EQ(Platform::ClassifyFileIcon("/", files), Drive);
}
#endif

// ICON's pixels (stored rows from the bottom) if it is a square of SIZE with something drawn
// in the top left square of DRAWN_SIZE and nothing outside it.
std::optional<Tessel::Test::Bytes> Inspect(PelPixHandle icon, std::uint32_t size,
                                           std::uint32_t drawnSize) {
    const OwnedPelPix owned(icon);
    if (!icon || pelpixGetWidth(icon) != size || pelpixGetHeight(icon) != size)
        return std::nullopt;
    Tessel::Test::Bytes pixels;
    bool visible = false;
    for (std::uint32_t row = 0; row < size; ++row)
        for (std::uint32_t x = 0; x < size; ++x) {
            const Tessel::Test::Rgba p = PixelAt(icon, x, row);
            pixels.insert(pixels.end(), {p.b, p.g, p.r, p.a});
            const bool inside = x < drawnSize && row + drawnSize >= size;
            visible = visible || (inside && p.a != 0);
            if (!inside && p != Tessel::Test::Rgba{0, 0, 0, 0})
                return std::nullopt;
        }
    return visible ? std::optional(pixels) : std::nullopt;
}

// Folders, files, missing paths (whose icons come from their names, or on Windows from the
// attributes alone), a drive root, long-path and unnormalised forms: each in a square of the
// requested size, the icon in its top left corner; from many threads at once too.
TEST(FileIconThumbnail, DrawsTheIconInTheTopLeftOfABufferOfTheRequestedSize) {
    TempDir dir;
    dir.MakeDir("Footage");
    dir.WriteFile("a.mov", "not really a movie");
    dir.WriteFile("b.wav");
    const std::int64_t live = pelpixLiveCount();
    const std::string folder = dir.longStr(), sep(1, static_cast<char>(Path::kSeparator));
#if defined(_WIN32)
    wchar_t system[MAX_PATH] = {};
    ASSERT_GT(GetSystemDirectoryW(system, MAX_PATH), 2u);
    const std::string root = Path::FromNativeUtf8(std::wstring(system, 3));  // "C:\"
#else
    const std::string root = "/";
#endif
    const std::string up = folder + sep + "." + sep + "Footage" + sep + "..",
                      footage = folder + sep + "Footage" + sep, missingDir = "missing-dir" + sep;
    const std::pair<std::string, std::string> paths[] = {
        {folder, "Footage"}, {folder, "a.mov"},    {folder, "missing.txt"}, {folder, missingDir},
        {root, ""},          {dir.str(), "a.mov"}, {up, "a.mov"},           {footage, ""}};
    for (const auto& [directory, file] : paths)
        for (const std::uint32_t size : {0u, 16u, 30u, 48u, 64u, 200u, 300u})
            EXPECT_TRUE(Inspect(RenderFileIconThumbnail(directory, file, size, 0),
                                IconThumbnailSize(size, 0), ChooseIconSize(size, 0)))
                << directory << " " << file << " " << size;
    // A folder and a file look different; a missing file looks like an existing one of its
    // type. The provider's largest size caps the request; a size past the largest canvas, or
    // no path, gives nothing.
    const auto icon = [&](const char* name) {
        return Inspect(RenderFileIconThumbnail(folder, name, 0, 32), 32, 32);
    };
    const auto folderIcon = icon("Footage"), fileIcon = icon("a.mov");
    ASSERT_TRUE(folderIcon && fileIcon);
    EXPECT_NE(folderIcon, fileIcon);
    EXPECT_EQ(icon("other.mov"), fileIcon);
    const std::uint32_t tooLarge = Platform::kLargestShellIconCanvas + 1;
    EXPECT_EQ(RenderFileIconThumbnail(folder, "Footage", tooLarge, 0), nullptr);
    EXPECT_EQ(RenderFileIconThumbnail("", "", 32, 0), nullptr);
    std::vector<std::thread> threads;
    std::atomic<int> drawn{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::uint32_t i = 0; i < 20; ++i)
                if (OwnedPelPix(RenderFileIconThumbnail(folder, (i + t) % 2 ? "a.mov" : "b.wav",
                                                        i % 4 * 20, 0)))
                    ++drawn;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(drawn, 80);
    EXPECT_EQ(pelpixLiveCount(), live);
}

}  // namespace
}  // namespace Tessel
