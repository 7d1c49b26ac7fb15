// Base provider behaviours, and the wrapper's UTF-16 <-> UTF-8 conversions.
#include <gtest/gtest.h>

#include <functional>

#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderWrapper.h>
#include <tessel/media/DirectoryChangeMonitor.h>
#include <tessel/media/PelPixCount.h>
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

using namespace Tessel::Test;

TEST(Provider, ThumbnailExtraPathAndSerialisableValues) {
    EXPECT_EQ(GetThumbnailExtraPath(PropertyMap()), u"");
    const std::pair<any_regular_t, std::u16string> cases[] = {
        {std::u16string(u"/card/A.XML"), u"/card/A.XML"},
        {any_regular_t::array_t{std::u16string(u"/a"), std::u16string(u"/b")}, u"/a"},
        {any_regular_t::array_t{}, u""},
        {true, u""}};  // not a path at all
    for (const auto& [value, expected] : cases) {
        PropertyMap record;
        record[kExtraPathField] = value;
        EXPECT_EQ(GetThumbnailExtraPath(record), expected);
    }
    const any_regular_t size = Provider::ByteSize_t(123456789012ULL);
    EXPECT_NE(size, any_regular_t(std::int64_t(123456789012LL)));  // a size is not a number
    for (const any_regular_t& value : {size, any_regular_t(IconType::Video)}) {
        const auto json = value.ToJson();
        ASSERT_TRUE(json);
        EXPECT_EQ(any_regular_t::FromJson(*json), value) << *json;
    }
}

TEST(Provider, AccessAndMonitoringRules) {
    TestProvider provider("P");
    const auto readsBefore = Platform::DirectoryReadCount();
    EXPECT_TRUE(provider.PathHasAccessPermission("volumes:"));
    EXPECT_EQ(Platform::DirectoryReadCount(), readsBefore);
    EXPECT_FALSE(provider.PathHasAccessPermission("/no/such/place"));
    TempDir dir;
    EXPECT_TRUE(provider.PathHasAccessPermission(dir.str()));
    provider.cloud = true;  // cloud storage is always readable as far as the host knows
    EXPECT_TRUE(provider.PathHasAccessPermission("/no/such/place"));
    // The framecast list is monitored like a folder.
    EXPECT_TRUE(provider.ShouldMonitorPath(u"framecast:") && provider.ShouldMonitorPath(u""));
    EXPECT_FALSE(provider.ShouldMonitorPath(u"cloudsync:"));
    provider.MonitorPath(dir.u16(), {});
    provider.MonitorPath(u"volumes:", {});
    EXPECT_TRUE(MF::DirectoryChangeMonitor::IsMonitoring(dir.u16()));
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoring(u"volumes:"));
    provider.StopMonitoringPath(dir.u16(), {});
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoring(dir.u16()));
}

TEST(Provider, CurrentOrDescendentDirectory) {
    TempDir dir;
    // Paths as the library gets them: native separators (the long-path form on Windows).
    const auto native = [&dir](std::string relative) {
        for (char& c : relative)
            if (c == '/')
                c = static_cast<char>(Tessel::Platform::kNativeSeparator);
        return relative.empty() ? dir.longU16() : dir.longU16() + Utf8ToUtf16(relative);
    };
    dir.MakeDir("a/b/c");
    dir.MakeDir("ab");
    const std::u16string a = native("/a");
    TestProvider provider("P");
    EXPECT_TRUE(provider.IsCurrentOrDescendentDirectory(u"/no/such", u"/no/such"));
    EXPECT_TRUE(provider.IsCurrentOrDescendentDirectory(a, native("/a/b/c")));
    EXPECT_TRUE(provider.IsCurrentOrDescendentDirectory(native(""), a));
    // Not: the parent, a sibling named "a..", a missing folder, a path that climbs out.
    for (const char* other : {"", "/ab", "/a/missing", "/a/b/../../ab"})
        EXPECT_FALSE(provider.IsCurrentOrDescendentDirectory(a, native(other))) << other;
}

TEST(Provider, ManagedPathsAreASortedSetAndCallbacks) {
    TestProvider provider("Favorites");
    provider.AddProviderManagedPaths({u"/b", u"/a", u"/b"});
    provider.RemoveProviderManagedPaths({u"/c", u"/never-there"});
    std::list<std::u16string> paths{u"existing"};
    provider.GetProviderManagedPaths(paths);
    EXPECT_EQ(paths, (std::list<std::u16string>{u"existing", u"/a", u"/b"}));
    provider.Progress(u"/x", 0.5);  // nothing set: nothing happens
    std::vector<double> seen;
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
        [&](const std::u16string&, double progress) { seen.push_back(progress); }));
    provider.Progress(u"/x", 0.25);
    EXPECT_EQ(seen, (std::vector<double>{0.25}));
    std::u16string unavailable;
    provider.SetGetContentUnavailableCallback(std::make_shared<ContentUnavailableCallback>(
        [&](const std::u16string& path) { unavailable = path; }));
    provider.Unavailable(u"/card");
    EXPECT_EQ(unavailable, u"/card");
    // A set pointer holding an empty function is a caller's error.
    provider.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>());
    EXPECT_THROW(provider.Progress(u"/x", 0.1), std::bad_function_call);
}

TEST(ProviderWrapper, ConvertsStringsKeepsUtf16KeyOrderAndDisposesThumbnails) {
    auto provider = std::make_shared<TestProvider>("P", 10);
    std::string seenPath;
    SDKFieldSet seenFields;
    provider->contentFunction = [&](const std::string& path, const SDKFieldSet& fields,
                                    ProviderRequest*) {
        seenPath = path;
        seenFields = fields;
        SDKContentMap content;
        content["/m/\xF0\x9F\x98\x80"][kSDKNameField] = std::string("smile");  // U+1F600
        content["/m/\xEF\xBC\x81"][kSDKNameField] = std::string("bang");       // U+FF01
        content["/m/bad\xFF"][kSDKNameField] = std::string("bad");
        return content;
    };
    ProviderWrapper wrapper(provider);
    ContentMap content = wrapper.GetContent(u"/m", {}, {kNameField, u"Caf\u00e9"}, nullptr);
    EXPECT_EQ(seenPath, "/m");
    EXPECT_EQ(seenFields, (SDKFieldSet{"Name", "Caf\xC3\xA9"}));
    // UTF-8 puts U+FF01 (EF..) before U+1F600 (F0..); the host's map orders by UTF-16 units.
    std::vector<std::u16string> keys;
    for (const auto& item : content)
        keys.push_back(item.first);
    ASSERT_EQ(keys, (std::vector<std::u16string>{u"/m/bad\xDCFF", u"/m/\U0001F600", u"/m/\uFF01"}));
    EXPECT_EQ(Utf16ToUtf8(keys[0]), "/m/bad\xFF");  // the escaped byte converts back
    // Thumbnail buffers are always disposed.
    const auto live = pelpixLiveCount();
    MF::IVideoFrameRef frame = wrapper.GetThumbnail(u"/a", u"", {}, 4, 2, nullptr);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetPixelBGRA(3, 1), 0x11223344u);
    // No handle, or a handle to no buffer (its cell disposed all the same): no frame.
    for (bool emptyHandle : {false, true}) {
        provider->thumbnailFunction = [=](const std::string&, std::uint32_t, std::uint32_t) {
            return emptyHandle ? new PelPix*(nullptr) : PelPixHandle(nullptr);
        };
        EXPECT_FALSE(wrapper.GetThumbnail(u"/a", u"", {}, 4, 2, nullptr));
    }
    EXPECT_EQ(pelpixLiveCount(), live);
}

class MenuAndViewsProvider : public TestProvider,
                             public MenuProviderInterface,
                             public CustomUIProviderInterface {
public:
    MenuAndViewsProvider() : TestProvider("Menus") {}
    void PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                const SelectedStates&) override {
        menu.AppendSeparator();
        menu.Append(MenuEntry::Command(31012, u"Reveal", !paths.empty()));
    }
    bool OnMenuItemID(std::int32_t id, const SelectedPaths&, const SelectedStates&) override {
        return id == 31012;
    }
    bool OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths, const SelectedStates&,
                            bool& enabled) override {
        enabled = !paths.empty();
        return id == 31012;
    }
    bool HasCustomSidebarUI(const std::u16string&, const any_regular_t&) override { return true; }
};

TEST(ProviderWrapper, CapabilitiesAreFoundOnlyWhenTheProviderHasThem) {
    ProviderWrapper plain(std::make_shared<TestProvider>("Plain"));
    Menu menu;
    menu.Append(MenuEntry::Command(1, u"Open"));
    plain.PostProcessContextMenu(menu, {"/a"}, {{}});
    EXPECT_EQ(menu.Entries().size(), 1u);
    bool enabled = true;
    EXPECT_FALSE(plain.OnMenuItemID(31012, {"/a"}, {{}}) ||
                 plain.OnMenuItemIDStatus(31012, {"/a"}, {{}}, enabled));
    EXPECT_FALSE(plain.HasCustomSidebarUI(u"/a", {}) || plain.GetCustomContentUI(u"/a", {}) ||
                 plain.GetProjectItemProvider());
    ProviderWrapper wrapper(std::make_shared<MenuAndViewsProvider>());
    wrapper.PostProcessContextMenu(menu, {"/a"}, {{}});
    ASSERT_EQ(menu.Entries().size(), 3u);
    EXPECT_TRUE(wrapper.OnMenuItemID(31012, {"/a"}, {{}}));
    EXPECT_TRUE(wrapper.HasCustomSidebarUI(u"/a", {}));
}

}  // namespace
}  // namespace Tessel
