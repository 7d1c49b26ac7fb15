// The folder provider against real folders: what is listed and what never is (hidden
// entries, FIFOs, sockets), the column values, names that are not UTF-8 through the host
// side, the stat-free name listing, aborts, folders that cannot be read or vanish, deep
// paths, and the favorites menu. The path rules of both platforms are pure and tested
// everywhere.
#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string_view>

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

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace Tessel;
using Path::PathStyle;

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

// "2024-03-05 09:07:02.045"
bool IsDateText(const std::string& text) {
    // "YYYY-MM-DD HH:MM:SS.mmm": digits everywhere but the separators.
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

#if !defined(_WIN32)

TEST(WinProviderDirectory, TableScoresNamesAndIcons) {
    WinProviderDirectory provider;
    const SDKFieldSet fields = provider.GetFieldList();
    ASSERT_EQ(fields.size(), 30u);
    EXPECT_TRUE(fields.count("Directory") && fields.count("26") && fields.count("33"));

    ASSERT_EQ(Localizer::LoadTable(
                  R"({"$$$/Pelimar/Provider/WinDirectory/Column/ReadOnly": "Schreibgeschützt"})"),
              std::nullopt);
    auto labels = provider.GetFieldLabelList();
    Localizer::ClearTable();
    ASSERT_EQ(labels.size(), 30u);
    EXPECT_EQ(labels[u"12"], u"Schreibgeschützt");

    Tessel::Test::TempDir dir;
    dir.WriteFile("file.txt");
    DirectoryContents contents(dir.u16());
    for (const std::string& path : {dir.str(), std::string("/")})
        EXPECT_EQ(provider.CanProvideFor(path, {}, contents, {}), 30) << path;
    for (const std::string& path : {dir.str() + "/", dir.str() + "/file.txt",
                                    dir.str() + "/missing", std::string("relative")})
        EXPECT_EQ(provider.CanProvideFor(path, {}, contents, {}), 0) << path;

    // Thumbnails are file icons, square, fitting the box's smaller side.
    for (const std::string& path : {dir.str() + "/file.txt", std::string("/")}) {
        PelPixHandle icon = provider.GetThumbnail(path, "", {}, 64, 100, nullptr);
        ASSERT_NE(icon, nullptr) << path;
        EXPECT_EQ(pelpixGetWidth(icon), ChooseIconSize(64, 256));
        EXPECT_EQ(pelpixGetHeight(icon), pelpixGetWidth(icon));
        pelpixDispose(icon);
    }
    auto aborted = ProviderThumbnailRequest::CreateClassRef();
    aborted->Abort();
    EXPECT_EQ(provider.GetThumbnail(dir.str(), "", {}, 64, 64, aborted.get()), nullptr);
}

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
    EXPECT_EQ(file.size(), 24u);  // every column but the six metadata ones
    const std::map<std::string, std::string> expectedText{
        {"Name", "b.txt"}, {"Path", base + "b.txt"}, {"02", base + "b.txt"}, {"ExtraPath", ""},
        {"18", ""},        {"Directory", ""},        {"09", "Normal"},       {"08", ""},
        {"33", ""},        {"27", "<absent>"}};
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
    ASSERT_EQ(WriteProjectLockFile(base + "Cut.plproj", {"Jane Doe", "bay-3", {}}), std::nullopt);
    ASSERT_EQ(WriteProjectLockFile(base + "Upper.PLPROJ", {"Max", "", {}}), std::nullopt);

    WinProviderDirectory provider;
    const SDKContentMap content =
        List(provider, dir.str(),
             {"03", "08", "09", "12", "14", "CreationDate", "20", "21", "26", "33"});

    const SDKPropertyMap& locked = content.at(base + "read-only.txt");
    EXPECT_EQ(Text(locked, "12"), "R");
    EXPECT_EQ(Text(locked, "03"), "");  // no DOS attributes on this file system
    EXPECT_EQ(Text(locked, "08"), "");
    EXPECT_EQ(Text(locked, "09"), "");  // read-only is not normal
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
    EXPECT_TRUE(IsDateText(Text(record, "21"))) << Text(record, "21");
    const std::string created = Text(record, "CreationDate");
    EXPECT_TRUE(created.empty() || IsDateText(created)) << created;

    EXPECT_EQ(Text(content.at(base + "Cut.plproj"), "33"), "Jane Doe");
    EXPECT_EQ(Text(content.at(base + "Free.plproj"), "33"), "");
    EXPECT_EQ(Text(content.at(base + "Upper.PLPROJ"), "33"), "");  // the extension is exact
}

TEST(WinProviderDirectory, NamesAndPathsOnlyMakeNoStatsAndAbortKeepsWhatWasGathered) {
    Tessel::Test::TempDir dir;
    for (int i = 0; i < 40; ++i)
        dir.WriteFile("file-" + std::to_string(i));
    for (int i = 0; i < 10; ++i)
        dir.MakeDir("folder-" + std::to_string(i));
    WinProviderDirectory provider;
    const SDKFieldSet cheap{"Name", "Path", "ExtraPath", "02", "Directory", "13", "18", "33"};

    std::uint64_t before = Platform::EntryStatCount();
    EXPECT_EQ(List(provider, dir.str(), cheap).size(), 50u);
    EXPECT_EQ(Platform::EntryStatCount() - before, 0u);

    before = Platform::EntryStatCount();
    EXPECT_EQ(List(provider, dir.str(), {"Name", "12"}).size(), 50u);
    EXPECT_GE(Platform::EntryStatCount() - before, 50u);

    auto request = ProviderContentRequest::CreateClassRef();
    // Aborted while the records are made: the first one was made.
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
        [&](const std::u16string&, double) { request->Abort(); }));
    EXPECT_EQ(List(provider, dir.str(), {"Name"}, request.get()).size(), 1u);
    // Aborted before the read: nothing was gathered.
    EXPECT_TRUE(List(provider, dir.str(), {"Name"}, request.get()).empty());
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
    std::ifstream opened(Path::ToNative(file));
    std::string text;
    std::getline(opened, text);
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

TEST(WinProviderDirectory, UnreadableOrVanishingFolderIsReported) {
    Tessel::Test::TempDir dir;
    const fs::path folder = dir.MakeDir("folder");
    dir.WriteFile("folder/a.txt");
    WinProviderDirectory provider;
    std::vector<std::u16string> unavailable;
    provider.SetGetContentUnavailableCallback(std::make_shared<ContentUnavailableCallback>(
        [&](const std::u16string& path) { unavailable.push_back(path); }));

    // Removed while it is listed (between reading and the end of the listing).
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
        [&](const std::u16string&, double) { fs::remove_all(folder); }));
    EXPECT_TRUE(List(provider, folder.string(), {"Name"}).empty());
    EXPECT_EQ(unavailable, std::vector<std::u16string>{Utf8ToUtf16(folder.string())});
    provider.SetGetContentProgressCallback(nullptr);
    EXPECT_TRUE(List(provider, folder.string(), {"Name"}).empty());
    EXPECT_EQ(unavailable.size(), 2u);

    if (geteuid() == 0)
        GTEST_SKIP() << "permissions do not apply to root";
    dir.WriteFile("closed/a.txt");
    fs::permissions(dir.path() / "closed", fs::perms::none);
    EXPECT_TRUE(List(provider, dir.str() + "/closed", {"Name"}).empty());
    EXPECT_EQ(unavailable.size(), 3u);
    dir.WriteFile("closing/a.txt");
    provider.SetGetContentProgressCallback(
        std::make_shared<ContentProgressCallback>([&](const std::u16string&, double) {
            fs::permissions(dir.path() / "closing", fs::perms::none);
        }));
    EXPECT_TRUE(List(provider, dir.str() + "/closing", {"Name"}).empty());
    EXPECT_EQ(unavailable.size(), 4u);
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

    // Removed step by step too: a whole-path removal would fail beyond the limit.
    unlinkat(chain.back(), component.c_str(), AT_REMOVEDIR);
    unlinkat(chain.back(), "leaf", 0);
    for (std::size_t i = chain.size() - 1; i > 0; --i) {
        close(chain[i]);
        const std::string& name = i == chain.size() - 1 ? tail : component;
        EXPECT_EQ(unlinkat(chain[i - 1], name.c_str(), AT_REMOVEDIR), 0);
    }
    close(chain.front());
}

TEST(WinProviderDirectory, FavoritesMenu) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("file.txt");
    const std::string folder = dir.MakeDir("folder").string();
    const std::string file = dir.str() + "/file.txt";
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
    EXPECT_EQ(menu.Entries()[0].id, 31012);
    EXPECT_EQ(menu.Entries()[0].label, u"Add to Favorites");
    EXPECT_FALSE(menu.Entries()[0].enabled);
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

#endif  // !_WIN32

}  // namespace
