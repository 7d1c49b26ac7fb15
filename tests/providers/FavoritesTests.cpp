// The favorites provider with the host: listing, removal, normalised paths and persistence.
#include <tessel/providers/filesystem/ProviderFavorites.h>

#include <gtest/gtest.h>
#include <fstream>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/framework/ProviderRequests.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using Favorites = std::list<std::u16string>;
using Path::PathStyle;

// The host's built-in favorites provider, else one registered here.
ProviderWrapper& FavoritesWrapper() {
    const std::u16string id = Utf8ToUtf16(std::string(kProviderIDPrefix) + "ProviderFavorites");
    if (ProviderWrapper* wrapper = ProviderHost::FindProvider(id))
        return *wrapper;
    return *Tessel::Test::Register(std::make_shared<ProviderFavorites>());
}

bool UsePreferences(const fs::path& prefs) {
    Preferences::UseFile(prefs.string());
    return Preferences::Load().IsOk();
}

// A host with the preferences PREFS, counting favorites-changed announcements.
struct FavoritesHost {
    explicit FavoritesHost(const fs::path& prefs) : loaded(UsePreferences(prefs)) {
        EXPECT_TRUE(loaded);
        FavoritesWrapper();
    }
    ~FavoritesHost() {
        listener.Reset();
        Preferences::UseFile({});
    }

    bool loaded;
    Tessel::Test::HostFixture host;
    int announced = 0;
    ScopedListener listener{Messaging::Listen<FavoritesChangedMessage>(
        ProviderHost::sProviderHostStation,
        [this](const FavoritesChangedMessage&) { ++announced; })};
};

Favorites Normal(const Favorites& paths) {
    Favorites normal;
    for (const auto& path : paths)
        normal.push_back(NormalizeFavoritePath(path));
    normal.sort();
    return normal;
}

nlohmann::json OnDisk(const fs::path& prefs) {
    std::ifstream in(prefs);
    return nlohmann::json::parse(in, nullptr, false);
}

nlohmann::json StoredList(const fs::path& prefs) {
    const std::string text = OnDisk(prefs).at(kFavoritesPreference);
    return nlohmann::json::parse(text).at("SerializerWrappedObject");
}

TEST(Favorites, ListsEachFavoriteAndRemovesThroughItsMenuEntry) {
    Tessel::Test::TempDir dir;
    FavoritesHost host(dir.path() / "prefs.json");
    const std::u16string media = Path::Join(dir.longU16(), u"Media");
    const std::u16string odd = Utf8ToUtf16(Utf16ToUtf8(dir.longU16()) + "/caf\xFF");  // not UTF-8
    const std::u16string oddNormal = Path::Join(dir.longU16(), Utf8ToUtf16("caf\xFF"));
    ProviderHost::ModifyFavorites({odd, media, media + Path::kSeparator}, FavoriteOperation::Add);
    EXPECT_EQ(host.announced, 1);
    EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{media, oddNormal}));

    ProviderWrapper& wrapper = FavoritesWrapper();
    const ContentMap content =
        wrapper.GetContent(kFavoritesListPath, any_regular_t(), {kNameField, kPathField}, nullptr);
    ASSERT_EQ(content.size(), 2u);
    EXPECT_EQ(content.at(media).at(kNameField), any_regular_t(std::u16string(u"Media")));
    EXPECT_EQ(content.at(oddNormal).at(kNameField), any_regular_t(std::u16string(u"caf\uFFFD")));
    EXPECT_EQ(content.at(oddNormal).at(kPathField), any_regular_t(oddNormal));
    auto aborted = ProviderContentRequest::CreateClassRef();
    aborted->Abort();  // an abort empties the listing
    EXPECT_TRUE(wrapper.GetContent(kFavoritesListPath, any_regular_t(), {}, aborted.get()).empty());

    Menu menu;
    wrapper.PostProcessContextMenu(menu, {}, {});
    EXPECT_TRUE(menu.Entries().empty()) << "nothing selected, no entry";
    const std::string other = Utf16ToUtf8(Path::Join(dir.longU16(), u"Other"));
    wrapper.PostProcessContextMenu(menu, {other}, SelectedStates(1));
    // Another spelling of a favorite counts as that favorite.
    wrapper.PostProcessContextMenu(menu, {other, Utf16ToUtf8(media) + "/."}, SelectedStates(2));
    ASSERT_EQ(menu.Entries().size(), 2u);
    EXPECT_FALSE(menu.Entries()[0].enabled) << "no selected path is a favorite";
    EXPECT_TRUE(menu.Entries()[1].enabled);

    EXPECT_TRUE(wrapper.OnMenuItemID(ProviderFavorites::kRemoveFromFavoritesID,
                                     {Utf16ToUtf8(media)}, SelectedStates(1)));
    EXPECT_EQ(host.announced, 2);
    EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{oddNormal}));

    // Removing what is no favorite changes nothing, but still announces and saves.
    fs::remove(dir.path() / "prefs.json");
    ProviderHost::ModifyFavorites({u"/not-a-favorite"}, FavoriteOperation::Remove);
    EXPECT_EQ(host.announced, 3);
    EXPECT_EQ(StoredList(dir.path() / "prefs.json").size(), 1u);
}

TEST(Favorites, PathsAreNormalisedByTheRulesOfEitherPlatform) {
    constexpr PathStyle P = PathStyle::Posix, W = PathStyle::Windows;
    const std::tuple<PathStyle, std::u16string, std::u16string> cases[] = {
        {P, u"/a/./b/../b//", u"/a/b"},
        {P, u"/../..", u"/"},
        {P, u"./a/../a", u"a"},
        {P, u"a/..", u"."},
        {P, u"../x/", u"../x"},
        {P, u"/a\\b", u"/a\\b"},  // a backslash is a name character here
        {P, u"/caf\xDCE9/.", u"/caf\xDCE9"},
        {P, u"CLSource://p/./b/", u"CLSource://p/./b/"},
        {P, std::u16string(u"/a\0b", 4), u""},
        {W, u"c:/Media/./x/../y/", u"\\\\?\\C:\\Media\\y"},
        {W, u"\\\\?\\c:\\Media\\..\\..\\Clips\\", u"\\\\?\\C:\\Clips"},
        {W, u"\\\\server\\share\\a\\..\\..", u"\\\\?\\UNC\\server\\share\\"},
        {W, u"\\\\?\\UNC\\server\\share\\x\\.\\", u"\\\\?\\UNC\\server\\share\\x"},
        {W, u"\\\\?\\UNC\\server\\share", u"\\\\?\\UNC\\server\\share"},
        {W, u".\\a\\..\\a", u"a"},
        {W, u"\\a\\.\\b", u"\\a\\b"},
        {W, u"volumes:", u"volumes:"}};
    for (const auto& [style, path, expected] : cases)
        EXPECT_EQ(NormalizeFavoritePath(style, path), expected) << Utf16ToUtf8(path) << int(style);
}

TEST(Favorites, EveryPathSurvivesARestart) {
    Tessel::Test::TempDir dir;
    const fs::path prefs = dir.path() / "prefs.json";
    // An older file (valid UTF-8 paths stored as they are), not yet normalised.
    std::ofstream(prefs) << nlohmann::json{
        {kFavoritesPreference, R"({"SerializerWrappedObject":["/old/./one","/old/one","/b%25"]})"}};
    // Not UTF-8 with a '%'; a lone surrogate of a Windows name; valid names like an escape.
    const Favorites added = {Utf8ToUtf16("/media/caf\xE9 100%"), u"/lone/\xD800-high",
                             u"/emoji/\U0001F600", u"/%uDC80"};
    {
        FavoritesHost host(prefs);
        EXPECT_EQ(ProviderHost::GetFavorites(), Normal({u"/b%25", u"/old/one"}));
        ProviderHost::ModifyFavorites(added, FavoriteOperation::Add);
    }
    // Valid names are stored as they are, the others escaped.
    const nlohmann::json stored = StoredList(prefs);
    std::vector<std::string> escaped;
    for (const auto& entry : stored)
        if (const std::string& text = entry.get_ref<const std::string&>(); text.front() == '\0')
            escaped.push_back(text);
    ASSERT_EQ(escaped.size(), 2u) << stored.dump();
    EXPECT_TRUE(escaped[0].ends_with("%uD800-high") && escaped[1].ends_with("caf%uDCE9 100%25"));
    {
        FavoritesHost host(prefs);
        Favorites all = added;
        all.insert(all.end(), {u"/b%25", u"/old/one"});
        EXPECT_EQ(ProviderHost::GetFavorites(), Normal(all));
        EXPECT_FALSE(ProviderHost::GetFavoritesLoadProblem());
    }

    // Escapes that were not written by a save make the whole value unreadable.
    FavoritesHost host(dir.path() / "other.json");
    for (const char* bad : {"/a%", "/a%u12", "/a%uDC8", "/a%u0041", "/a%zz", "/a\xFF"}) {
        Preferences::SetValue(kFavoritesPreference,
                              R"({"SerializerWrappedObject":["\u0000)" + std::string(bad) + "\"]}");
        EXPECT_EQ(ProviderHost::LoadFavorites().Code(), StatusCode::kMalformed) << bad;
    }
}

TEST(Favorites, AMalformedValueIsReportedAndKeptAsideWhenTheListIsSaved) {
    const std::vector<nlohmann::json> malformed{"{not json",
                                                R"(["/a"])",
                                                R"({"other": ["/a"]})",
                                                R"({"SerializerWrappedObject": "/a"})",
                                                R"({"SerializerWrappedObject": ["/a", 5]})",
                                                std::string(100000, '[') + std::string(100000, ']'),
                                                42,
                                                nlohmann::json::array({"/a"})};
    for (const nlohmann::json& value : malformed) {
        SCOPED_TRACE(value.dump().substr(0, 60));
        Tessel::Test::TempDir dir;
        const fs::path prefs = dir.path() / "prefs.json";
        const nlohmann::json original = {{kFavoritesPreference, value}, {"other", 1}};
        std::ofstream(prefs) << original.dump();
        FavoritesHost host(prefs);

        EXPECT_TRUE(ProviderHost::GetFavorites().empty());
        const auto problem = ProviderHost::GetFavoritesLoadProblem();
        ASSERT_TRUE(problem);
        EXPECT_TRUE(problem->setAsidePreference.starts_with(std::string(kFavoritesPreference) +
                                                            ".unreadable-"));
        EXPECT_EQ(OnDisk(prefs), original) << "reading writes nothing";

        // The save that replaces the list keeps the old value under the name reported.
        ProviderHost::ModifyFavorites({u"new"}, FavoriteOperation::Add);
        const nlohmann::json saved = OnDisk(prefs);
        EXPECT_EQ(saved.at(kFavoritesPreference), R"({"SerializerWrappedObject":["new"]})");
        EXPECT_EQ(any_regular_t::FromJson(saved.at(problem->setAsidePreference).dump())->ToJson(),
                  any_regular_t::FromJson(value.dump())->ToJson());
        EXPECT_EQ(saved.at("other"), 1);
    }

    Tessel::Test::TempDir dir;
    FavoritesHost host(dir.path() / "prefs.json");
    // Empty values are an empty list, not a problem.
    for (any_regular_t empty :
         {any_regular_t(u""), any_regular_t(std::string()), any_regular_t()}) {
        Preferences::SetValue(kFavoritesPreference, empty);
        EXPECT_TRUE(ProviderHost::LoadFavorites().IsOk());
        EXPECT_FALSE(ProviderHost::GetFavoritesLoadProblem());
    }
    // A second unreadable value finds a free name.
    std::vector<std::string> keys;
    for (const char16_t* text : {u"{", u"}"}) {
        Preferences::SetValue(kFavoritesPreference, std::u16string(text));
        EXPECT_EQ(ProviderHost::LoadFavorites().Code(), StatusCode::kMalformed);
        keys.push_back(ProviderHost::GetFavoritesLoadProblem()->setAsidePreference);
        ProviderHost::ModifyFavorites({}, FavoriteOperation::Add);
        EXPECT_EQ(Preferences::GetValue(keys.back()), any_regular_t(std::u16string(text)));
    }
    EXPECT_NE(keys[0], keys[1]);

    // A value of a type this build does not know stays, and the list is not saved.
    const nlohmann::json future = {{"$type", "favorites-v9"}, {"value", {"/a"}}};
    std::ofstream(dir.path() / "future.json") << nlohmann::json{{kFavoritesPreference, future}};
    ASSERT_TRUE(UsePreferences(dir.path() / "future.json"));
    EXPECT_EQ(ProviderHost::LoadFavorites().Code(), StatusCode::kMalformed);
    EXPECT_EQ(ProviderHost::GetFavoritesLoadProblem()->setAsidePreference, "");
    ProviderHost::ModifyFavorites({u"b"}, FavoriteOperation::Add);
    EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{u"b"})) << "changed for this run";
    EXPECT_TRUE(Preferences::Save().IsOk());  // whatever else saves keeps the value as it was
    EXPECT_EQ(OnDisk(dir.path() / "future.json").at(kFavoritesPreference), future);
}

}  // namespace
}  // namespace Tessel
