// The folder provider against real folders; the path rules of both platforms are pure and
// tested everywhere.
#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include <tessel/foundation/Executor.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/providers/filesystem/ProjectLockFile.h>
#include <tessel/thumbnails/FileIconThumbnail.h>

#include "support/DeepTree.h"
#include "support/FileKinds.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

#if defined(_WIN32)
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace Tessel;
using Path::PathStyle;
using W = WinProviderDirectory;
// Copied, so that no test takes the address of a member the library does not export.
constexpr int kScore = W::kDirectoryScore;

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
    return text.size() == kShape.size() &&
           std::equal(text.begin(), text.end(), kShape.begin(), [](char c, char shape) {
               return shape == '0' ? c >= '0' && c <= '9' : c == shape;
           });
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
    // clang-format off
    const std::pair<std::u16string, bool> windows[] = {
        {u"\\\\?\\C:", false},      {u"\\\\?\\C:\\", true},           {u"\\\\?\\C:\\Media\\", false},
        {u"C:\\Media", false},      {u"\\\\?\\C:\\Media", true},      {u"\\\\?\\", false},
        {u"\\\\?\\C:\\\\", false},  {u"\\\\?\\V{1}", true},           {u"\\\\server\\share\\", true},
        {u"//server/share", false}, {u"\\\\?\\unc\\s\\share\\", true}, {u"", false}};
    // clang-format on
    for (const auto& [path, valid] : windows) {
        EXPECT_EQ(Path::IsValidDirectoryPath(PathStyle::Windows, path), valid) << Utf16ToUtf8(path);
        EXPECT_EQ(Path::IsValidDirectoryPath(PathStyle::Windows, Utf16ToUtf8(path)), valid);
    }
    const std::pair<std::string, bool> posix[] = {{"/", true},  {"/a b/c", true}, {"", false},
                                                  {"a", false}, {"/a/", false},   {"//", false}};
    for (const auto& [path, valid] : posix)
        EXPECT_EQ(Path::IsValidDirectoryPath(PathStyle::Posix, path), valid) << path;
    // Shown paths lose the long-path prefix (compared exactly) on Windows only.
    // clang-format off
    const std::pair<std::u16string, std::u16string> shown[] = {
        {u"\\\\?\\UNC\\server\\x", u"\\\\server\\x"}, {u"\\\\?\\C:\\x", u"C:\\x"},
        {u"\\\\?\\C:", u"\\\\?\\C:"},                 {u"\\\\?\\unc\\s", u"\\\\?\\unc\\s"}};
    // clang-format on
    for (const auto& [path, expected] : shown)
        EXPECT_EQ(Path::ToDisplayFilePath(PathStyle::Windows, path), expected);
    EXPECT_EQ(Path::ToDisplayFilePath(PathStyle::Posix, std::string_view("/\\\\?\\C:\\x")),
              "/\\\\?\\C:\\x");
}

TEST(WinProviderDirectory, NeverListsHiddenOrDeviceEntriesButAnyLink) {
    const auto listed = [](Platform::EntryKind kind, bool isLink, bool hidden, bool device) {
        return W::IsListedEntry({{}, kind, isLink, hidden, device});
    };
    EXPECT_TRUE(listed(Platform::EntryKind::Other, true, false, false));  // a dangling link
    EXPECT_FALSE(listed(Platform::EntryKind::Other, true, false, true))
        << "a device that is also a reparse point";
    EXPECT_FALSE(listed(Platform::EntryKind::Other, false, false, true));  // FIFO, socket, node
    EXPECT_FALSE(listed(Platform::EntryKind::Directory, true, true, false));
}

TEST(WinProviderDirectory, ClaimsOnlyExistingLongFolderPathsAndAbortsThumbnails) {
    WinProviderDirectory provider;
    Tessel::Test::TempDir dir;
    dir.WriteFile("file.txt");
    DirectoryContents contents(dir.longU16());
    const std::string folder = dir.longStr();
    const std::string root = Path::kNativePathStyle == PathStyle::Windows ? "\\\\?\\C:\\" : "/";
    const std::string file = folder + kSeparator + "file.txt";
    // Drive roots only with their backslash, folders only without one, only long paths (the
    // system's UNC test under Wine calls every "\\?\" path UNC; Windows does not).
    // clang-format off
    std::vector<std::pair<std::string, int>> scores = {
        {folder, kScore}, {root, kScore}, {folder + kSeparator, 0},
        {file, 0}, {folder + kSeparator + "missing", 0}, {"relative", 0}};
    // clang-format on
    if (Path::kNativePathStyle == PathStyle::Windows) {
        scores.insert(scores.end(),
                      {{"\\\\?\\C:", 0}, {"C:\\", 0}, {"\\\\?\\C:\\\\", 0}, {dir.str(), 0}});
    }
    for (const auto& [path, score] : scores)
        EXPECT_EQ(provider.CanProvideFor(path, {}, contents, {}), score) << path;

    // Thumbnails are file icons, square, fitting the box's smaller side.
    for (const std::string& path : {file, root}) {
        PelPixHandle icon = provider.GetThumbnail(path, "", {}, 64, 100, nullptr);
        ASSERT_NE(icon, nullptr) << path;
        EXPECT_EQ(pelpixGetWidth(icon), 64u);
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
    // clang-format off
    const SDKFieldSet cheap{kSDKNameField, kSDKPathField, kSDKExtraPathField, W::kFilePathField,
                            kSDKDirectoryFlagField, W::kReparsePointField,
                            W::kAlternativeFileNameField, W::kProjectLockedField};
    // clang-format on
    const std::string folder = dir.longStr();
    std::uint64_t before = Platform::EntryStatCount();
    EXPECT_EQ(List(provider, folder, cheap).size(), 50u);
    EXPECT_EQ(Platform::EntryStatCount() - before, 0u);
    // An attribute costs POSIX a stat per entry; Windows has it in the find record.
    before = Platform::EntryStatCount();
    EXPECT_EQ(List(provider, folder, {kSDKNameField, W::kReadOnlyField}).size(), 50u);
    const std::uint64_t stats = Platform::EntryStatCount() - before;
    EXPECT_TRUE(Path::kNativePathStyle == PathStyle::Posix ? stats >= 50 : stats == 0) << stats;

    auto request = ProviderContentRequest::CreateClassRef();
    // Aborted while the records are made: the first one was made.
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
        [&](const std::u16string&, double) { request->Abort(); }));
    EXPECT_EQ(List(provider, folder, {kSDKNameField}, request.get()).size(), 1u);
    // Aborted before the read: nothing was gathered (on Windows the first record, ".", is
    // read before the flag is seen, and is no entry).
    EXPECT_TRUE(List(provider, folder, {kSDKNameField}, request.get()).empty());
}

TEST(WinProviderDirectory, FoldersThatCannotBeReadAreReportedAndListNothing) {
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
    EXPECT_TRUE(List(provider, folder, {kSDKNameField}).empty());
    EXPECT_EQ(unavailable, std::vector<std::u16string>{Utf8ToUtf16(folder)});
    provider.SetGetContentProgressCallback(nullptr);
    EXPECT_TRUE(List(provider, folder, {kSDKNameField}).empty());
    EXPECT_EQ(unavailable.size(), 2u);
#if !defined(_WIN32)
    if (geteuid() == 0)
        return;  // permissions do not apply to root
    for (const char* name : {"closed", "closing"})
        dir.WriteFile(std::string(name) + "/a.txt");
    fs::permissions(dir.path() / "closed", fs::perms::none);
    EXPECT_TRUE(List(provider, dir.str() + "/closed", {kSDKNameField}).empty());
    provider.SetGetContentProgressCallback(
        std::make_shared<ContentProgressCallback>([&](const std::u16string&, double) {
            fs::permissions(dir.path() / "closing", fs::perms::none);
        }));
    EXPECT_TRUE(List(provider, dir.str() + "/closing", {kSDKNameField}).empty());
    EXPECT_EQ(unavailable.size(), 4u);
#endif
}

TEST(WinProviderDirectory, FoldersFarBeyondThePathLimitAreClaimedAndListed) {
    Tessel::Test::TempDir dir;
    const Tessel::Test::DeepTree tree(dir.longStr());
    tree.Add("leaf");
    tree.Add("inner", true);
    const std::string deep = tree.Path();
    ASSERT_GT(deep.size(), Tessel::Test::DeepTree::kLimit);
    WinProviderDirectory provider;
    const SDKContentMap content =
        List(provider, deep, {kSDKNameField, kSDKPathField, kSDKDirectoryFlagField, W::kSizeField});
    ASSERT_EQ(Keys(content),
              (std::set<std::string>{deep + kSeparator + "inner", deep + kSeparator + "leaf"}));
    EXPECT_EQ(content.at(deep + kSeparator + "leaf").at(W::kSizeField),
              any_regular_t(Provider::ByteSize_t(0)));
    EXPECT_EQ(Text(content.at(deep + kSeparator + "inner"), kSDKDirectoryFlagField), "D");
    DirectoryContents contents(Utf8ToUtf16(deep));
    EXPECT_EQ(provider.CanProvideFor(deep, {}, contents, {}), kScore);
    EXPECT_EQ(provider.CanProvideFor(deep + kSeparator + "missing", {}, contents, {}), 0);
}

TEST(WinProviderDirectory, FavoritesMenuOnlyWithSelectionAndEnabledForFolders) {
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

    const std::pair<std::vector<std::string>, std::optional<bool>> menus[] = {
        {{}, std::nullopt}, {{file}, false}, {{file, folder}, true}};
    for (const auto& [selection, enabled] : menus) {
        Menu menu;
        wrapper->PostProcessContextMenu(menu, selection, SelectedStates(selection.size()));
        ASSERT_EQ(menu.Entries().size(), enabled ? 1u : 0u);
        EXPECT_TRUE(!enabled || menu.Entries()[0].enabled == *enabled);
    }
    bool enabled = false;
    EXPECT_FALSE(
        wrapper->OnMenuItemIDStatus(W::kRemoveFromFavoritesCommand, {folder}, {{}}, enabled));
    EXPECT_FALSE(wrapper->OnMenuItemID(1, {folder}, {{}}));
    EXPECT_TRUE(wrapper->OnMenuItemID(W::kAddToFavoritesCommand, {folder}, {{}}));
    EXPECT_EQ(ProviderHost::GetFavorites(), std::list<std::u16string>{Utf8ToUtf16(folder)});
    EXPECT_TRUE(wrapper->OnMenuItemID(W::kRemoveFromFavoritesCommand, {folder}, {{}}));
    EXPECT_TRUE(ProviderHost::GetFavorites().empty());
}

#if defined(_WIN32)

TEST(WinProviderDirectory, AttributeShortNameDateAndPathColumnsButNoHiddenOrSystemEntries) {
    Tessel::Test::TempDir dir;
    WinProviderDirectory provider;
    const std::string folder = dir.longStr();
    EXPECT_TRUE(List(provider, folder, provider.GetFieldList()).empty());

    const fs::path locked = dir.WriteFile("locked.txt", "12345");
    for (const auto& [name, attribute] : {std::pair{"hidden.txt", FILE_ATTRIBUTE_HIDDEN},
                                          std::pair{"system.txt", FILE_ATTRIBUTE_SYSTEM},
                                          std::pair{"hidden.lnk", FILE_ATTRIBUTE_HIDDEN}})
        ASSERT_TRUE(SetFileAttributesW(dir.WriteFile(name, "not read").c_str(), attribute));
    ASSERT_TRUE(SetFileAttributesW(dir.MakeDir("hidden-folder").c_str(), FILE_ATTRIBUTE_HIDDEN));
    dir.MakeDir("sub");
    dir.WriteFile("a rather long name.text");
    ASSERT_TRUE(
        SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE));
    const std::string base = folder + "\\";
    const std::set<std::string> expected{base + "a rather long name.text", base + "locked.txt",
                                         base + "sub"};
    const SDKContentMap none = List(provider, folder, {});
    EXPECT_EQ(Keys(none), expected);
    for (const auto& [key, record] : none)
        EXPECT_TRUE(record.empty()) << key;
    // Two attribute columns alone, and Hidden alone.
    const SDKPropertyMap letters =
        List(provider, folder, {W::kArchiveField, W::kReadOnlyField}).at(base + "locked.txt");
    EXPECT_EQ(Text(letters, W::kArchiveField) + Text(letters, W::kReadOnlyField), "AR");
    EXPECT_EQ(letters.size(), 2u);
    const SDKContentMap hidden = List(provider, folder, {W::kHiddenField});
    EXPECT_EQ(Text(hidden.at(base + "locked.txt"), W::kHiddenField), "");

    const SDKContentMap all = List(provider, folder, provider.GetFieldList());
    ASSERT_EQ(Keys(all), expected);
    const SDKPropertyMap& file = all.at(base + "locked.txt");
    // File Path has no long-path prefix; the file is not "Normal" with archive and read-only
    // set; "locked.txt" fits 8.3 and has no alias.
    EXPECT_EQ(Text(file, W::kFilePathField) + "|" + Text(file, W::kNormalFileField) + "|" +
                  Text(file, W::kAlternativeFileNameField),
              dir.str() + "\\locked.txt||");
    EXPECT_EQ(file.at(W::kSizeField), any_regular_t(Provider::ByteSize_t(5)));
    for (const char* key : {kSDKCreationDateField, W::kLastAccessDateField, W::kLastWriteDateField})
        EXPECT_TRUE(IsDateText(Text(file, key))) << key << ": " << Text(file, key);

    EXPECT_EQ(Text(all.at(base + "sub"), kSDKDirectoryFlagField), "D");
    EXPECT_NE(Text(all.at(base + "a rather long name.text"), W::kAlternativeFileNameField), "");
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

TEST(WinProviderDirectory, ShortcutsAreListedUnderTheirTargetsTheLaterInWalkOrderWinning) {
    Tessel::Test::TempDir dir;
    const fs::path listed = dir.MakeDir("listed");
    const fs::path elsewhere = dir.MakeDir("elsewhere\\target folder");
    // A share that does not exist: the shortcut still holds its path, as one made while the
    // share was reachable does.
    ASSERT_TRUE(MakeShortcut(listed / "share.lnk", L"\\\\server\\share\\folder"));
    ASSERT_TRUE(MakeShortcut(listed / "local.LNK", elsewhere.native()));
    // A shortcut to an entry of the same folder: of two records for one path the one later in
    // walk order (upper-cased names: "A.LNK" < "B.TXT"), not in byte order ("B.txt" <
    // "a.lnk"), is kept.
    dir.WriteFile("listed\\B.txt", "1234567");
    ASSERT_TRUE(MakeShortcut(listed / "a.lnk", (listed / "B.txt").native()));
    dir.WriteFile("listed\\broken.lnk", "not a shell link");
    dir.MakeDir("listed\\folder.lnk");

    const std::string folder = LongForm(listed);
    const std::string base = folder + "\\";
    const std::string share = "\\\\?\\UNC\\server\\share\\folder";
    const std::string local = LongForm(elsewhere);
    const std::set<std::string> expected{share, local, base + "B.txt", base + "broken.lnk",
                                         base + "folder.lnk"};
    WinProviderDirectory provider;
    const SDKFieldSet fields{kSDKNameField, kSDKPathField, W::kFilePathField,
                             kSDKDirectoryFlagField, W::kSizeField};
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
    EXPECT_EQ(Text(shared, kSDKNameField) + "|" + Text(shared, W::kFilePathField),
              "folder|\\\\server\\share\\folder");
    EXPECT_EQ(Text(shared, kSDKDirectoryFlagField), "");  // the entry itself is the link file
    EXPECT_EQ(Text(here.at(local), W::kFilePathField), elsewhere.string());
    EXPECT_EQ(here.at(base + "B.txt").at(W::kSizeField), any_regular_t(Provider::ByteSize_t(7)))
        << "the file itself, later than the link to it";
    EXPECT_EQ(Text(here.at(base + "folder.lnk"), kSDKDirectoryFlagField), "D");
}

#else  // POSIX

TEST(WinProviderDirectory, ColumnsOfEveryKindOfEntryButNeverHiddenOnesFifosOrSockets) {
    Tessel::Test::TempDir dir;
    WinProviderDirectory provider;
    EXPECT_TRUE(List(provider, dir.str(), provider.GetFieldList()).empty());
    dir.WriteFile("b.txt", "12345");
    dir.WriteFile(".hidden");
    dir.MakeDir("sub");
    dir.MakeDir(".git");
    fs::create_directory_symlink("sub", dir.path() / "link-to-sub");
    fs::create_symlink("missing", dir.path() / "dangling");
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "fifo"));
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(dir.path() / "socket"));
    fs::permissions(dir.WriteFile("read-only.txt", "x"), fs::perms::owner_read);
    fs::resize_file(dir.WriteFile("sparse.bin"), 1 << 20);
    const fs::path dated = dir.WriteFile("dated.txt");
    const std::int64_t accessTime = 1709629622045000;  // 2024-03-05 09:07:02.045 UTC
    const std::int64_t writeTime = -1234567;           // 1969-12-31 23:59:58.765 UTC
    const timespec times[2] = {{accessTime / 1000000, (accessTime % 1000000) * 1000},
                               {-2, 765433000}};
    ASSERT_EQ(utimensat(AT_FDCWD, dated.c_str(), times, 0), 0);
    const std::string base = dir.str() + "/";
    for (const char* name : {"Cut.plproj", "Upper.PLPROJ"}) {
        dir.WriteFile(name);
        ASSERT_TRUE(WriteProjectLockFile(base + name, {"Jane Doe", "bay-3", {}}).IsOk());
    }

    Tessel::Test::FifoReaderWatch watch(dir.path() / "fifo");
    const SDKContentMap none = List(provider, dir.str(), {});
    const SDKContentMap all = List(provider, dir.str(), provider.GetFieldList());
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
    std::set<std::string> expected;
    for (const char* name :
         {"Cut.plproj", "Cut.plproj.lock", "Upper.PLPROJ", "Upper.PLPROJ.lock", "b.txt", "dangling",
          "dated.txt", "link-to-sub", "read-only.txt", "sparse.bin", "sub"})
        expected.insert(base + name);
    EXPECT_EQ(Keys(none), expected);
    for (const auto& [key, record] : none)
        EXPECT_TRUE(record.empty()) << key;
    ASSERT_EQ(Keys(all), expected);

    // No DOS attributes here (Archive, Hidden); no short names; the lock holder of a project
    // (the extension is exact: ".PLPROJ" is none); folders and links have no size.
    // clang-format off
    const std::tuple<const char*, const char*, std::string> texts[] = {
        {"b.txt", W::kFilePathField, base + "b.txt"}, {"b.txt", W::kNormalFileField, "Normal"},
        {"b.txt", W::kArchiveField, ""}, {"link-to-sub", kSDKDirectoryFlagField, "D"},
        {"link-to-sub", W::kReparsePointField, "Reparse Point"},
        {"dangling", W::kReparsePointField, "Reparse Point"},
        {"dangling", kSDKDirectoryFlagField, ""}, {"read-only.txt", W::kReadOnlyField, "R"},
        {"read-only.txt", W::kNormalFileField, ""},
        {"dated.txt", W::kLastAccessDateField, Platform::FormatLocalTime(accessTime)},
        {"dated.txt", W::kLastWriteDateField, Platform::FormatLocalTime(writeTime)},
        {"Cut.plproj", W::kProjectLockedField, "Jane Doe"},
        {"Upper.PLPROJ", W::kProjectLockedField, ""}};
    // clang-format on
    for (const auto& [name, key, text] : texts)
        EXPECT_EQ(Text(all.at(base + name), key), text) << name << " " << key;
    const std::pair<const char*, std::uint64_t> sizes[] = {
        {"b.txt", 5}, {"sparse.bin", 1 << 20}, {"sub", 0}, {"link-to-sub", 0}};
    for (const auto& [name, size] : sizes)
        EXPECT_EQ(all.at(base + name).at(W::kSizeField), any_regular_t(Provider::ByteSize_t(size)));
    const std::string created = Text(all.at(base + "dated.txt"), kSDKCreationDateField);
    EXPECT_TRUE(created.empty() || IsDateText(created)) << created;
}

TEST(WinProviderDirectory, NameNotInUtf8OpensThroughTheHostSide) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("caf\xE9.txt", "latin-1");
    dir.WriteFile("d\xFF/inner.txt");
    Tessel::Test::HostFixture host;
    ProviderWrapper* wrapper = Tessel::Test::Register(std::make_shared<WinProviderDirectory>());
    const FieldSet fields{kNameField, kPathField};
    const std::u16string file = dir.u16() + u"/caf\xDCE9.txt";  // the byte as its escape
    const auto name = [&] {
        ContentMap content = wrapper->GetContent(dir.u16(), {}, fields, nullptr);
        EXPECT_EQ(content.size(), 2u);
        EXPECT_EQ(content[file][kPathField], any_regular_t(file));
        return content[file][kNameField];
    };
    Settings::Set(kSettingUseFileSystemDisplayName, false);
    EXPECT_EQ(name(), any_regular_t(std::u16string(u"caf\xDCE9.txt")));
    std::string text;
    std::getline(std::ifstream(Path::ToNative(file)), text);
    EXPECT_EQ(text, "latin-1");
    // The switch is read again once the settings changed.
    Settings::Set(kSettingUseFileSystemDisplayName, true);
    EXPECT_EQ(name(), any_regular_t(std::u16string(u"caf\uFFFD.txt")));
    Settings::Reset(kSettingUseFileSystemDisplayName);
    EXPECT_EQ(name(), any_regular_t(std::u16string(u"caf\xDCE9.txt")));

    const std::u16string folder = dir.u16() + u"/d\xDCFF";
    DirectoryContents contents(folder);
    EXPECT_EQ(wrapper->CanProvideFor(folder, {}, contents, {}), kScore);
    EXPECT_EQ(wrapper->GetContent(folder, {}, fields, nullptr).count(folder + u"/inner.txt"), 1u);
}

#endif  // _WIN32

}  // namespace
