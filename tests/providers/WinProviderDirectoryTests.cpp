// The folder provider against real folders; the path rules of both platforms are pure and
// tested everywhere.
#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include <tessel/foundation/Executor.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/providers/filesystem/ProjectLockFile.h>
#include <tessel/thumbnails/FileIconThumbnail.h>

#include "support/FileKinds.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

#if defined(_WIN32)
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <random>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace Tessel;
using Path::PathStyle;

// The form the provider takes a test folder's path in (long-path form on Windows).
std::string LongForm(const fs::path& path) {
    return Utf16ToUtf8(Path::ToLongPath(Utf8ToUtf16(path.string())));
}

const std::string kSeparator(1, static_cast<char>(Path::kSeparator));

SDKContentMap List(WinProviderDirectory& provider, const std::string& folder,
                   const SDKFieldSet& fields, ProviderRequest* request = nullptr) {
    return provider.GetContent(folder, any_regular_t(), fields, request);
}

// A string field as UTF-8 for readable failures; "<absent>" or "<not text>" otherwise.
std::string Text(const SDKPropertyMap& record, const std::string& key) {
    auto it = record.find(key);
    if (it == record.end())
        return "<absent>";
    const auto* text = it->second.get_if<std::u16string>();
    return text ? Utf16ToUtf8(*text) : "<not text>";
}

// Whether TEXT reads like "2024-03-05 09:07:02.045".
bool IsDateText(const std::string& text) {
    constexpr std::string_view kShape = "0000-00-00 00:00:00.000";
    if (text.size() != kShape.size())
        return false;
    for (std::size_t i = 0; i < kShape.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (kShape[i] == '0' ? !digit : text[i] != kShape[i])
            return false;
    }
    return true;
}

std::set<std::string> Keys(const SDKContentMap& content) {
    std::set<std::string> keys;
    for (const auto& [key, record] : content)
        keys.insert(key);
    return keys;
}

TEST(WinProviderDirectory, PathRulesOfBothPlatforms) {
    // Windows: UNC paths pass first; then drive roots only with their backslash, folders only
    // without one, and nothing without the long-path prefix.
    const std::pair<std::u16string, bool> windows[] = {
        {u"\\\\?\\C:", false},          {u"\\\\?\\C:\\", true},
        {u"\\\\?\\C:\\Media\\", false}, {u"C:\\Media", false},
        {u"\\\\?\\C:\\Media", true},    {u"\\\\?\\", false},
        {u"\\\\?\\C:\\\\", false},      {u"\\\\?\\V{1}", true},
        {u"\\\\server\\share\\", true}, {u"\\\\?\\unc\\s\\share\\", true},
        {u"//server/share", false},     {u"", false}};
    for (const auto& [path, valid] : windows) {
        EXPECT_EQ(Path::IsValidDirectoryPath(PathStyle::Windows, path), valid) << Utf16ToUtf8(path);
        EXPECT_EQ(Path::IsValidDirectoryPath(PathStyle::Windows, Utf16ToUtf8(path)), valid);
    }
    EXPECT_FALSE(Path::IsUncPath(u"\\\\?\\C:\\"));
    const std::pair<std::string, bool> posix[] = {{"/", true},  {"/a b/c", true}, {"", false},
                                                  {"a", false}, {"/a/", false},   {"//", false}};
    for (const auto& [path, valid] : posix)
        EXPECT_EQ(Path::IsValidDirectoryPath(PathStyle::Posix, path), valid) << path;

    // Shown paths lose the long-path prefix (compared exactly) on Windows only.
    const std::pair<std::u16string, std::u16string> shown[] = {
        {u"\\\\?\\UNC\\server\\x", u"\\\\server\\x"},
        {u"\\\\?\\C:\\x", u"C:\\x"},
        {u"\\\\?\\C:", u"\\\\?\\C:"},
        {u"\\\\?\\unc\\s", u"\\\\?\\unc\\s"}};
    for (const auto& [path, expected] : shown)
        EXPECT_EQ(Path::ToDisplayFilePath(PathStyle::Windows, path), expected);
    EXPECT_EQ(Path::ToDisplayFilePath(PathStyle::Posix, std::string_view("/\\\\?\\C:\\x")),
              "/\\\\?\\C:\\x");
}

TEST(WinProviderDirectory, TableScoresNamesAndIcons) {
    WinProviderDirectory provider;
    ASSERT_TRUE(Localizer::LoadTable(
                    R"({"$$$/Pelimar/Provider/WinDirectory/Column/ReadOnly": "Schreibgeschützt"})")
                    .IsOk());
    auto labels = provider.GetFieldLabelList();
    Localizer::ClearTable();
    EXPECT_EQ(labels[u"12"], u"Schreibgeschützt");

    Tessel::Test::TempDir dir;
    dir.WriteFile("file.txt");
    DirectoryContents contents(dir.longU16());
    const std::string folder = dir.longStr();
    const std::string root = Path::kNativePathStyle == PathStyle::Windows ? "\\\\?\\C:\\" : "/";
    const std::string file = folder + kSeparator + "file.txt";
    for (const std::string& path : {folder, root, folder + kSeparator, file,
                                    folder + kSeparator + "missing", std::string("relative")})
        EXPECT_EQ(provider.CanProvideFor(path, {}, contents, {}),
                  path == folder || path == root ? 30 : 0)
            << path;

    // Thumbnails are file icons, square, fitting the box's smaller side.
    for (const std::string& path : {file, root}) {
        PelPixHandle icon = provider.GetThumbnail(path, "", {}, 64, 100, nullptr);
        ASSERT_NE(icon, nullptr) << path;
        EXPECT_EQ(pelpixGetWidth(icon), ChooseIconSize(64, 256));
        EXPECT_EQ(pelpixGetHeight(icon), pelpixGetWidth(icon));
        pelpixDispose(icon);
    }
    auto aborted = ProviderThumbnailRequest::CreateClassRef();
    aborted->Abort();
    EXPECT_EQ(provider.GetThumbnail(folder, "", {}, 64, 64, aborted.get()), nullptr);
}

TEST(WinProviderDirectory, NamesAndPathsOnlyMakeNoStatsAndAbortKeepsWhatWasGathered) {
    Tessel::Test::TempDir dir;
    for (int i = 0; i < 40; ++i)
        dir.WriteFile("file-" + std::to_string(i));
    for (int i = 0; i < 10; ++i)
        dir.MakeDir("folder-" + std::to_string(i));
    WinProviderDirectory provider;
    const SDKFieldSet cheap{"Name", "Path", "ExtraPath", "02", "Directory", "13", "18", "33"};
    const std::string folder = dir.longStr();
    std::uint64_t before = Platform::EntryStatCount();
    EXPECT_EQ(List(provider, folder, cheap).size(), 50u);
    EXPECT_EQ(Platform::EntryStatCount() - before, 0u);

    // An attribute costs POSIX a stat per entry; Windows has it in the find record.
    before = Platform::EntryStatCount();
    EXPECT_EQ(List(provider, folder, {"Name", "12"}).size(), 50u);
    const std::uint64_t stats = Platform::EntryStatCount() - before;
    EXPECT_TRUE(Path::kNativePathStyle == PathStyle::Posix ? stats >= 50 : stats == 0) << stats;

    auto request = ProviderContentRequest::CreateClassRef();
    // Aborted while the records are made: the first one was made.
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
        [&](const std::u16string&, double) { request->Abort(); }));
    EXPECT_EQ(List(provider, folder, {"Name"}, request.get()).size(), 1u);
    // Aborted before the read: nothing was gathered (on Windows the first record, ".", is
    // read before the flag is seen, and is no entry).
    EXPECT_TRUE(List(provider, folder, {"Name"}, request.get()).empty());
}

TEST(WinProviderDirectory, VanishingFolderIsReported) {
    Tessel::Test::TempDir dir;
    const std::string folder = LongForm(dir.MakeDir("folder"));
    dir.WriteFile("folder/a.txt");
    WinProviderDirectory provider;
    std::vector<std::u16string> unavailable;
    provider.SetGetContentUnavailableCallback(std::make_shared<ContentUnavailableCallback>(
        [&](const std::u16string& path) { unavailable.push_back(path); }));

    // Removed between reading and the end of the listing, then listed again.
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
        [&](const std::u16string&, double) { fs::remove_all(dir.path() / "folder"); }));
    EXPECT_TRUE(List(provider, folder, {"Name"}).empty());
    EXPECT_EQ(unavailable, std::vector<std::u16string>{Utf8ToUtf16(folder)});
    provider.SetGetContentProgressCallback(nullptr);
    EXPECT_TRUE(List(provider, folder, {"Name"}).empty());
    EXPECT_EQ(unavailable.size(), 2u);
}

TEST(WinProviderDirectory, FavoritesMenu) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("file.txt");
    const std::string folder = LongForm(dir.MakeDir("folder"));
    const std::string file = dir.longStr() + kSeparator + "file.txt";
    Tessel::Test::HostFixture host;
    auto favorites = std::make_shared<Tessel::Test::TestProvider>("Favorites");
    favorites->scoreFunction = [](const std::string& path, DirectoryContents&,
                                  const AbortPredicate&) {
        return path == kSDKFavoritesListPath ? 100 : 0;
    };
    Tessel::Test::Register(favorites);
    ProviderWrapper* wrapper = Tessel::Test::Register(std::make_shared<WinProviderDirectory>());

    Menu menu;
    wrapper->PostProcessContextMenu(menu, {}, {});
    EXPECT_TRUE(menu.Entries().empty());
    wrapper->PostProcessContextMenu(menu, {file}, {{}});
    ASSERT_EQ(menu.Entries().size(), 1u);
    EXPECT_EQ(menu.Entries()[0].label, u"Add to Favorites");
    EXPECT_FALSE(menu.Entries()[0].enabled) << "no folder selected";
    Menu withFolder;
    wrapper->PostProcessContextMenu(withFolder, {file, folder}, {{}, {}});
    EXPECT_TRUE(withFolder.Entries().at(0).enabled);

    bool enabled = false;
    EXPECT_FALSE(wrapper->OnMenuItemIDStatus(31013, {folder}, {{}}, enabled));
    EXPECT_FALSE(wrapper->OnMenuItemID(1, {folder}, {{}}));
    EXPECT_TRUE(wrapper->OnMenuItemID(31012, {folder}, {{}}));
    EXPECT_EQ(ProviderHost::GetFavorites(), std::list<std::u16string>{Utf8ToUtf16(folder)});
    EXPECT_TRUE(wrapper->OnMenuItemID(31013, {folder}, {{}}));
    EXPECT_TRUE(ProviderHost::GetFavorites().empty());
}

#if defined(_WIN32)

// A folder directly under C:\ with a name no other run uses, removed at the end.
class DriveFolder {
public:
    DriveFolder() : mName("tessel-media-" + std::to_string(std::random_device()())) {
        fs::create_directory(Path());
    }
    ~DriveFolder() {
        std::error_code ignored;
        fs::remove_all(Path(), ignored);
    }

    const std::string& Name() const { return mName; }
    fs::path Path() const { return fs::path("C:\\") / mName; }

private:
    std::string mName;
};

TEST(WinProviderDirectory, DriveRootsOnlyWithTheirBackslashFoldersOnlyWithoutOne) {
    DriveFolder media;
    WinProviderDirectory provider;
    DirectoryContents contents(u"");
    const std::string folder = "\\\\?\\C:\\" + media.Name();
    // The system's UNC test under Wine calls every "\\?\" path UNC; Windows does not.
    const std::pair<std::string, int> scores[] = {
        {"\\\\?\\C:", 0}, {"\\\\?\\C:\\", 30},      {folder + "\\", 0}, {"C:\\" + media.Name(), 0},
        {folder, 30},     {folder + "-missing", 0}, {"C:\\", 0},        {"\\\\?\\C:\\\\", 0}};
    for (const auto& [path, score] : scores)
        EXPECT_EQ(provider.CanProvideFor(path, {}, contents, {}), score) << path;
}

TEST(WinProviderDirectory, AttributeShortNameDateAndPathColumnsButNoHiddenOrSystemEntries) {
    Tessel::Test::TempDir dir;
    WinProviderDirectory provider;
    const std::string folder = dir.longStr();
    EXPECT_TRUE(List(provider, folder, provider.GetFieldList()).empty());

    const fs::path locked = dir.WriteFile("locked.txt", "12345");
    const fs::path hidden = dir.WriteFile("hidden.txt");
    const fs::path system = dir.WriteFile("system.txt");
    const fs::path hiddenFolder = dir.MakeDir("hidden-folder");
    const fs::path hiddenLink = dir.WriteFile("hidden.lnk", "not read");
    dir.MakeDir("sub");
    dir.WriteFile("a rather long name.text");
    ASSERT_TRUE(
        SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE));
    ASSERT_TRUE(SetFileAttributesW(hidden.c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesW(system.c_str(), FILE_ATTRIBUTE_SYSTEM));
    ASSERT_TRUE(SetFileAttributesW(hiddenFolder.c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesW(hiddenLink.c_str(), FILE_ATTRIBUTE_HIDDEN));
    const std::int64_t writeTime = 1709629622045000;  // 2024-03-05 09:07:02.045 UTC
    const std::uint64_t ticks = static_cast<std::uint64_t>(writeTime) * 10 + 116444736000000000;
    const FILETIME write{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    const HANDLE handle = CreateFileW((dir.path() / "sub").c_str(), FILE_WRITE_ATTRIBUTES, 0,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(SetFileTime(handle, nullptr, nullptr, &write));
    CloseHandle(handle);

    const std::string base = folder + "\\";
    const std::set<std::string> expected{base + "a rather long name.text", base + "locked.txt",
                                         base + "sub"};
    const SDKContentMap none = List(provider, folder, {});
    EXPECT_EQ(Keys(none), expected);
    for (const auto& [key, record] : none)
        EXPECT_TRUE(record.empty()) << key;

    // Two attribute columns alone, and Hidden alone.
    const SDKPropertyMap letters = List(provider, folder, {"03", "12"}).at(base + "locked.txt");
    EXPECT_EQ(Text(letters, "03") + Text(letters, "12"), "AR");
    EXPECT_EQ(letters.size(), 2u);
    EXPECT_EQ(Text(List(provider, folder, {"08"}).at(base + "locked.txt"), "08"), "");

    const SDKContentMap all = List(provider, folder, provider.GetFieldList());
    ASSERT_EQ(Keys(all), expected);
    const SDKPropertyMap& file = all.at(base + "locked.txt");
    // "02" has no long-path prefix; the file is not "Normal" (09) with archive and read-only
    // set; "locked.txt" fits 8.3 and has no alias (18).
    std::string shown;
    for (const char* key : {"Name", "Path", "02", "ExtraPath", "03", "12", "09", "Directory", "18"})
        shown += std::string(key) + "=" + Text(file, key) + ";";
    EXPECT_EQ(shown, "Name=locked.txt;Path=" + base + "locked.txt;02=" + dir.str() +
                         "\\locked.txt;ExtraPath=;03=A;12=R;09=;Directory=;18=;");
    EXPECT_EQ(file.at("26"), any_regular_t(Provider::ByteSize_t(5)));
    for (const char* key : {"CreationDate", "20", "21"})
        EXPECT_TRUE(IsDateText(Text(file, key))) << key << ": " << Text(file, key);

    const SDKPropertyMap& sub = all.at(base + "sub");
    EXPECT_EQ(Text(sub, "Directory"), "D");
    EXPECT_EQ(Text(sub, "03"), "");
    EXPECT_EQ(sub.at("26"), any_regular_t(Provider::ByteSize_t(0)));
    EXPECT_EQ(Text(sub, "21"), Platform::FormatLocalTime(writeTime));

    // Wine makes aliases like "A_RA~UZ3.TEX", NTFS like "ARATHE~1.TEX".
    const std::string alias = Text(all.at(base + "a rather long name.text"), "18");
    EXPECT_NE(alias.find('~'), std::string::npos) << alias;
    EXPECT_LE(alias.size(), 12u) << alias;
}

// Writes a shortcut at LINK to TARGET as Explorer does, through the shell's link object.
// TARGET need not exist (the shell then answers S_FALSE but keeps the path).
bool MakeShortcut(const fs::path& link, const std::wstring& target) {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return false;
    bool saved = false;
    IShellLinkW* shellLink = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                   reinterpret_cast<void**>(&shellLink)))) {
        IPersistFile* file = nullptr;
        if (SUCCEEDED(shellLink->SetPath(target.c_str())) &&
            SUCCEEDED(
                shellLink->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file)))) {
            saved = SUCCEEDED(file->Save(link.c_str(), TRUE));
            file->Release();
        }
        shellLink->Release();
    }
    CoUninitialize();
    return saved;
}

TEST(WinProviderDirectory, ShortcutsAreListedUnderTheirTargets) {
    Tessel::Test::TempDir dir;
    const fs::path listed = dir.MakeDir("listed");
    const fs::path elsewhere = dir.MakeDir("elsewhere\\target folder");
    // A share that does not exist: the shortcut still holds its path, as one made while the
    // share was reachable does.
    ASSERT_TRUE(MakeShortcut(listed / "share.lnk", L"\\\\server\\share\\folder"));
    ASSERT_TRUE(MakeShortcut(listed / "local.LNK", elsewhere.native()));
    // A shortcut to an entry of the same folder: the later record of the two replaces the other.
    dir.WriteFile("listed\\real.txt", "1234567");
    ASSERT_TRUE(MakeShortcut(listed / "alias.lnk", (listed / "real.txt").native()));
    dir.WriteFile("listed\\broken.lnk", "not a shell link");
    dir.MakeDir("listed\\folder.lnk");

    const std::string folder = LongForm(listed);
    const std::string base = folder + "\\";
    const std::string share = "\\\\?\\UNC\\server\\share\\folder";
    const std::string local = LongForm(elsewhere);
    const std::set<std::string> expected{share, local, base + "real.txt", base + "broken.lnk",
                                         base + "folder.lnk"};
    WinProviderDirectory provider;
    const SDKFieldSet fields{"Name", "Path", "02", "Directory", "26"};

    // On this thread COM is joined for each link; the executor's workers have it already.
    const SDKContentMap here = List(provider, folder, fields);
    SDKContentMap onWorker;
    {
        Executor executor("Tests.Shortcuts", 1);
        ASSERT_TRUE(executor.Post([&] { onWorker = List(provider, folder, fields); }));
        executor.Wait();
    }
    EXPECT_EQ(Keys(here), expected);
    EXPECT_EQ(here, onWorker);

    const SDKPropertyMap& shared = here.at(share);
    EXPECT_EQ(Text(shared, "Name") + "|" + Text(shared, "Path") + "|" + Text(shared, "02"),
              "folder|" + share + "|\\\\server\\share\\folder");
    EXPECT_EQ(Text(shared, "Directory"), "");  // the entry itself is the link file
    EXPECT_EQ(Text(here.at(local), "Name"), "target folder");
    EXPECT_EQ(Text(here.at(local), "02"), elsewhere.string());
    EXPECT_EQ(here.at(base + "real.txt").at("26"), any_regular_t(Provider::ByteSize_t(7)));
    EXPECT_EQ(Text(here.at(base + "broken.lnk"), "Name"), "broken.lnk");
    EXPECT_EQ(Text(here.at(base + "folder.lnk"), "Directory"), "D");
}

#else  // POSIX

TEST(WinProviderDirectory, ListsEntriesButNeverHiddenOnesFifosOrSockets) {
    Tessel::Test::TempDir dir;
    WinProviderDirectory provider;
    EXPECT_TRUE(List(provider, dir.str(), provider.GetFieldList()).empty());

    dir.WriteFile("b.txt", "12345");
    dir.WriteFile("a.mov");
    dir.WriteFile(".hidden");
    dir.MakeDir("sub");
    dir.MakeDir(".git");
    fs::create_directory_symlink("sub", dir.path() / "link-to-sub");
    fs::create_symlink("missing", dir.path() / "dangling");
    fs::create_symlink("loop2", dir.path() / "loop1");
    fs::create_symlink("loop1", dir.path() / "loop2");
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "fifo"));
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(dir.path() / "socket"));
    const std::string base = dir.str() + "/";

    Tessel::Test::FifoReaderWatch watch(dir.path() / "fifo");
    const SDKContentMap none = List(provider, dir.str(), {});
    const SDKContentMap all = List(provider, dir.str(), provider.GetFieldList());
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";

    const std::set<std::string> expected{base + "a.mov",       base + "b.txt", base + "dangling",
                                         base + "link-to-sub", base + "loop1", base + "loop2",
                                         base + "sub"};
    EXPECT_EQ(Keys(none), expected);
    for (const auto& [key, record] : none)
        EXPECT_TRUE(record.empty()) << key;
    ASSERT_EQ(Keys(all), expected);

    const SDKPropertyMap& file = all.at(base + "b.txt");
    const std::map<std::string, std::string> expectedText{
        {"Name", "b.txt"}, {"Path", base + "b.txt"}, {"02", base + "b.txt"},
        {"18", ""},        {"Directory", ""},        {"09", "Normal"}};
    for (const auto& [key, text] : expectedText)
        EXPECT_EQ(Text(file, key), text) << key;
    EXPECT_EQ(file.at("26"), any_regular_t(Provider::ByteSize_t(5)));

    for (const char* name : {"sub", "link-to-sub"}) {
        const SDKPropertyMap& folder = all.at(base + name);
        EXPECT_EQ(Text(folder, "Directory"), "D") << name;
        EXPECT_EQ(Text(folder, "09"), "") << name;
        EXPECT_EQ(folder.at("26"), any_regular_t(Provider::ByteSize_t(0))) << name;
    }
    for (const char* name : {"link-to-sub", "dangling", "loop1"})
        EXPECT_EQ(Text(all.at(base + name), "13"), "Reparse Point") << name;
    EXPECT_EQ(Text(all.at(base + "loop1"), "Directory"), "");
    EXPECT_EQ(Text(all.at(base + "sub"), "13"), "");
}

TEST(WinProviderDirectory, AttributeSizeDateAndLockHolderColumns) {
    Tessel::Test::TempDir dir;
    const fs::path readOnly = dir.WriteFile("read-only.txt", "x");
    fs::permissions(readOnly, fs::perms::owner_read | fs::perms::group_read);
    const fs::path sparse = dir.WriteFile("sparse.bin");
    fs::resize_file(sparse, 1 << 20);
    const fs::path dated = dir.WriteFile("dated.txt", std::string(12345, 'd'));
    const std::int64_t accessTime = 1709629622045000;  // 2024-03-05 09:07:02.045 UTC
    const std::int64_t writeTime = -1234567;           // 1969-12-31 23:59:58.765 UTC
    const timespec times[2] = {{accessTime / 1000000, (accessTime % 1000000) * 1000},
                               {-2, 765433000}};
    ASSERT_EQ(utimensat(AT_FDCWD, dated.c_str(), times, 0), 0);
    const std::string base = dir.str() + "/";
    for (const char* name : {"Cut.plproj", "Free.plproj", "Upper.PLPROJ"})
        dir.WriteFile(name);
    ASSERT_TRUE(WriteProjectLockFile(base + "Cut.plproj", {"Jane Doe", "bay-3", {}}).IsOk());
    ASSERT_TRUE(WriteProjectLockFile(base + "Upper.PLPROJ", {"Max", "", {}}).IsOk());

    WinProviderDirectory provider;
    const SDKContentMap content =
        List(provider, dir.str(),
             {"03", "08", "09", "12", "14", "CreationDate", "20", "21", "26", "33"});

    // No DOS attributes here (03, 08); read-only is not "Normal" (09).
    const SDKPropertyMap& locked = content.at(base + "read-only.txt");
    EXPECT_EQ(Text(locked, "12") + Text(locked, "03") + Text(locked, "08") + Text(locked, "09"),
              "R");
    EXPECT_EQ(Text(content.at(base + "dated.txt"), "12"), "");

    struct stat info {};
    ASSERT_EQ(stat(sparse.c_str(), &info), 0);
    if (info.st_blocks * 512 < info.st_size) {
        EXPECT_EQ(Text(content.at(base + "sparse.bin"), "14"), "Sparse File");
    }
    EXPECT_EQ(content.at(base + "sparse.bin").at("26"),
              any_regular_t(Provider::ByteSize_t(1 << 20)));

    const SDKPropertyMap& record = content.at(base + "dated.txt");
    EXPECT_EQ(record.at("26"), any_regular_t(Provider::ByteSize_t(12345)));
    EXPECT_EQ(Text(record, "20"), Platform::FormatLocalTime(accessTime));
    EXPECT_EQ(Text(record, "21"), Platform::FormatLocalTime(writeTime));
    const std::string created = Text(record, "CreationDate");
    EXPECT_TRUE(created.empty() || IsDateText(created)) << created;

    EXPECT_EQ(Text(content.at(base + "Cut.plproj"), "33"), "Jane Doe");
    EXPECT_EQ(Text(content.at(base + "Free.plproj"), "33"), "");
    EXPECT_EQ(Text(content.at(base + "Upper.PLPROJ"), "33"), "");  // the extension is exact
}

TEST(WinProviderDirectory, NameNotInUtf8OpensThroughTheHostSide) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("caf\xE9.txt", "latin-1");
    dir.WriteFile("d\xFF/inner.txt");
    Tessel::Test::HostFixture host;
    ProviderWrapper* wrapper = Tessel::Test::Register(std::make_shared<WinProviderDirectory>());

    const FieldSet fields{kNameField, kPathField};
    Settings::Set(kSettingUseFileSystemDisplayName, false);
    ContentMap content = wrapper->GetContent(dir.u16(), {}, fields, nullptr);
    ASSERT_EQ(content.size(), 2u);
    const std::u16string file = dir.u16() + u"/caf\xDCE9.txt";  // the byte as its escape
    ASSERT_TRUE(content.count(file));
    EXPECT_EQ(content[file][kPathField], any_regular_t(file));
    EXPECT_EQ(content[file][kNameField], any_regular_t(std::u16string(u"caf\xDCE9.txt")));
    std::string text;
    std::getline(std::ifstream(Path::ToNative(file)), text);
    EXPECT_EQ(text, "latin-1");

    const std::u16string folder = dir.u16() + u"/d\xDCFF";
    DirectoryContents contents(folder);
    EXPECT_EQ(wrapper->CanProvideFor(folder, {}, contents, {}), 30);
    EXPECT_EQ(wrapper->GetContent(folder, {}, fields, nullptr).count(folder + u"/inner.txt"), 1u);

    // The switch is read again once the settings changed.
    Settings::Set(kSettingUseFileSystemDisplayName, true);
    content = wrapper->GetContent(dir.u16(), {}, fields, nullptr);
    EXPECT_EQ(content[file][kNameField], any_regular_t(std::u16string(u"caf\uFFFD.txt")));
    Settings::Reset(kSettingUseFileSystemDisplayName);
    content = wrapper->GetContent(dir.u16(), {}, fields, nullptr);
    EXPECT_EQ(content[file][kNameField], any_regular_t(std::u16string(u"caf\xDCE9.txt")));
}

TEST(WinProviderDirectory, UnreadableFolderIsReported) {
    if (geteuid() == 0)
        GTEST_SKIP() << "permissions do not apply to root";
    Tessel::Test::TempDir dir;
    WinProviderDirectory provider;
    std::vector<std::u16string> unavailable;
    provider.SetGetContentUnavailableCallback(std::make_shared<ContentUnavailableCallback>(
        [&](const std::u16string& path) { unavailable.push_back(path); }));
    dir.WriteFile("closed/a.txt");
    fs::permissions(dir.path() / "closed", fs::perms::none);
    EXPECT_TRUE(List(provider, dir.str() + "/closed", {"Name"}).empty());
    EXPECT_EQ(unavailable.size(), 1u);
    dir.WriteFile("closing/a.txt");
    provider.SetGetContentProgressCallback(
        std::make_shared<ContentProgressCallback>([&](const std::u16string&, double) {
            fs::permissions(dir.path() / "closing", fs::perms::none);
        }));
    EXPECT_TRUE(List(provider, dir.str() + "/closing", {"Name"}).empty());
    EXPECT_EQ(unavailable.size(), 2u);
}

TEST(WinProviderDirectory, PathsNearAndBeyondTheSystemLimit) {
    Tessel::Test::TempDir dir;
    const std::string component(199, 'n');
    std::string deep = dir.str();
    std::vector<int> chain{open(dir.str().c_str(), O_RDONLY | O_DIRECTORY)};
    // Each step is made relative to the last, so no call sees the whole path.
    while (deep.size() + 1 + component.size() < 3950) {
        ASSERT_EQ(mkdirat(chain.back(), component.c_str(), 0700), 0);
        chain.push_back(openat(chain.back(), component.c_str(), O_RDONLY | O_DIRECTORY));
        deep += "/" + component;
    }
    const std::string tail(4000 - deep.size() - 1, 't');
    ASSERT_EQ(mkdirat(chain.back(), tail.c_str(), 0700), 0);
    chain.push_back(openat(chain.back(), tail.c_str(), O_RDONLY | O_DIRECTORY));
    deep += "/" + tail;
    ASSERT_EQ(deep.size(), 4000u);
    close(openat(chain.back(), "leaf", O_CREAT | O_WRONLY, 0600));
    ASSERT_EQ(mkdirat(chain.back(), component.c_str(), 0700), 0);  // beyond PATH_MAX

    WinProviderDirectory provider;
    const SDKContentMap content = List(provider, deep, {"Name", "Path", "26", "21"});
    ASSERT_EQ(content.size(), 2u);
    EXPECT_EQ(Text(content.at(deep + "/leaf"), "Path"), deep + "/leaf");
    EXPECT_EQ(content.at(deep + "/leaf").at("26"), any_regular_t(Provider::ByteSize_t(0)));
    DirectoryContents contents(Utf8ToUtf16(deep));
    EXPECT_EQ(provider.CanProvideFor(deep, {}, contents, {}), 30);
    const std::string beyond = deep + "/" + component;
    EXPECT_EQ(provider.CanProvideFor(beyond, {}, contents, {}), 0);
    EXPECT_TRUE(List(provider, beyond, {"Name"}).empty());

    // Removed step by step: a whole-path removal would fail beyond the limit.
    unlinkat(chain.back(), component.c_str(), AT_REMOVEDIR);
    unlinkat(chain.back(), "leaf", 0);
    for (std::size_t i = chain.size() - 1; i > 0; --i) {
        close(chain[i]);
        const std::string& name = i == chain.size() - 1 ? tail : component;
        EXPECT_EQ(unlinkat(chain[i - 1], name.c_str(), AT_REMOVEDIR), 0);
    }
    close(chain.front());
}

#endif  // _WIN32

}  // namespace
