// The favorites provider with the host: listing, the remove entry, persistence through the
// preferences (restarts, malformed values kept aside, interrupted saves) and changes from
// several threads.
#include <tessel/providers/filesystem/ProviderFavorites.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Messaging.h>
#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/platform/AtomicFile.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using Favorites = std::list<std::u16string>;

const std::string kSetAsidePrefix = std::string(kFavoritesPreference) + ".unreadable-";

// The favorites provider of the running host: the built-in one once the host registers it,
// else one registered here.
ProviderWrapper& FavoritesWrapper() {
    const std::u16string id = Utf8ToUtf16(std::string(kProviderIDPrefix) + "ProviderFavorites");
    if (ProviderWrapper* wrapper = ProviderHost::FindProvider(id))
        return *wrapper;
    return *Tessel::Test::Register(std::make_shared<ProviderFavorites>());
}

// A host whose preferences live in a temporary folder; the file is read before the host
// starts, as a host application does.
class FavoritesHost {
public:
    explicit FavoritesHost(const std::string& prefsFile) {
        Preferences::UseFile(prefsFile);
        EXPECT_FALSE(Preferences::Load());
        mHost.emplace();
        FavoritesWrapper();
        mListener = ScopedListener(Messaging::Listen<FavoritesChangedMessage>(
            ProviderHost::sProviderHostStation,
            [this](const FavoritesChangedMessage&) { ++announced; }));
    }
    ~FavoritesHost() {
        mListener.Reset();
        mHost.reset();
        Preferences::UseFile({});
    }
    FavoritesHost(const FavoritesHost&) = delete;
    FavoritesHost& operator=(const FavoritesHost&) = delete;

    int announced = 0;

private:
    std::optional<Tessel::Test::HostFixture> mHost;
    ScopedListener mListener;
};

// The favorites value stored in the preferences file on disk, as text.
std::string StoredFavoritesText() {
    EXPECT_FALSE(Preferences::Load());
    const any_regular_t value = Preferences::GetValue(kFavoritesPreference);
    if (const auto* wide = value.get_if<std::u16string>())
        return Utf16ToUtf8(*wide);
    if (const auto* narrow = value.get_if<std::string>())
        return *narrow;
    return "<none>";
}

TEST(Favorites, ListsEachFavoriteAndRemovesThroughItsMenuEntry) {
    Tessel::Test::TempDir dir;
    FavoritesHost host(dir.str() + "/prefs.json");
    const std::u16string media = Utf8ToUtf16(dir.str() + "/Media");
    const std::u16string odd = Utf8ToUtf16(dir.str() + "/caf\xFF");  // not UTF-8
    ProviderHost::ModifyFavorites({odd, media, media}, FavoriteOperation::Add);
    EXPECT_EQ(host.announced, 1);
    EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{media, odd}));

    ProviderWrapper& wrapper = FavoritesWrapper();
    DirectoryContents contents(u"");
    EXPECT_EQ(wrapper.CanProvideFor(kFavoritesListPath, any_regular_t(), contents, {}), 100);
    for (const char16_t* path : {u"Favorites:", u"favorites:/", u""})
        EXPECT_EQ(wrapper.CanProvideFor(path, any_regular_t(), contents, {}), 0);
    const ContentMap content =
        wrapper.GetContent(kFavoritesListPath, any_regular_t(), {kNameField, kPathField}, nullptr);
    ASSERT_EQ(content.size(), 2u);
    EXPECT_EQ(content.at(media).at(kNameField), any_regular_t(std::u16string(u"Media")));
    EXPECT_EQ(content.at(odd).at(kNameField), any_regular_t(std::u16string(u"caf\uFFFD")));
    EXPECT_EQ(content.at(odd).at(kPathField), any_regular_t(odd)) << "the bytes round-trip";
    auto aborted = ProviderContentRequest::CreateClassRef();
    aborted->Abort();
    EXPECT_TRUE(wrapper.GetContent(kFavoritesListPath, any_regular_t(), {}, aborted.get()).empty());

    Menu menu;
    wrapper.PostProcessContextMenu(menu, {}, {});
    EXPECT_TRUE(menu.Entries().empty()) << "nothing selected, no entry";
    const std::string other = dir.str() + "/Other";
    wrapper.PostProcessContextMenu(menu, {other}, SelectedStates(1));
    wrapper.PostProcessContextMenu(menu, {other, Utf16ToUtf8(media)}, SelectedStates(2));
    ASSERT_EQ(menu.Entries().size(), 2u);
    EXPECT_EQ(menu.Entries()[0].id, 31013);
    EXPECT_EQ(menu.Entries()[0].label, u"Remove from Favorites");
    EXPECT_FALSE(menu.Entries()[0].enabled) << "no selected path is a favorite";
    EXPECT_TRUE(menu.Entries()[1].enabled);

    EXPECT_FALSE(wrapper.OnMenuItemID(31012, {Utf16ToUtf8(media)}, SelectedStates(1)));
    EXPECT_TRUE(wrapper.OnMenuItemID(31013, {Utf16ToUtf8(media)}, SelectedStates(1)));
    EXPECT_EQ(host.announced, 2);
    EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{odd}));

    // Removing what is no favorite changes nothing, but still announces and saves.
    fs::remove(dir.path() / "prefs.json");
    ProviderHost::ModifyFavorites({u"/not-a-favorite"}, FavoriteOperation::Remove);
    EXPECT_EQ(host.announced, 3);
    ASSERT_TRUE(fs::exists(dir.path() / "prefs.json"));
    EXPECT_EQ(nlohmann::json::parse(StoredFavoritesText()).at("SerializerWrappedObject").size(),
              1u);
}

TEST(Favorites, EmptyValuesRestartsAndAnInterruptedSave) {
    Tessel::Test::TempDir dir;
    const fs::path prefs = dir.path() / "prefs.json";
    {
        FavoritesHost host(prefs.string());
        for (any_regular_t empty :
             {any_regular_t(std::u16string()), any_regular_t(std::string()), any_regular_t()}) {
            Preferences::SetValue(kFavoritesPreference, empty);
            EXPECT_FALSE(ProviderHost::LoadFavorites());
            EXPECT_TRUE(ProviderHost::GetFavorites().empty());
            EXPECT_FALSE(ProviderHost::GetFavoritesLoadProblem());
        }
        ProviderHost::ModifyFavorites({u"/b", u"/a"}, FavoriteOperation::Add);
    }
    // A save that died before its rename leaves a partial temporary file beside the old one.
    const fs::path stale = dir.path() / (Platform::AtomicTemporaryPrefix(prefs.native()) +
                                         fs::path("crashed").native());
    std::ofstream(stale) << R"({"be.prefs.mediabrowser.favorites": "{\"SerializerWr)";
    fs::last_write_time(stale, fs::file_time_type::clock::now() - std::chrono::hours(2));
    const fs::path young =
        dir.path() / (Platform::AtomicTemporaryPrefix(prefs.native()) + fs::path("now").native());
    std::ofstream(young) << "{";
    {
        FavoritesHost host(prefs.string());
        EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{u"/a", u"/b"}));
        EXPECT_FALSE(ProviderHost::GetFavoritesLoadProblem());
        EXPECT_FALSE(fs::exists(stale)) << "an old leftover is cleared away";
        EXPECT_TRUE(fs::exists(young)) << "a young one may be another process's save";
        ProviderHost::ModifyFavorites({u"/c"}, FavoriteOperation::Add);
        EXPECT_EQ(StoredFavoritesText(), R"({"SerializerWrappedObject":["/a","/b","/c"]})");
    }
}

TEST(Favorites, AMalformedValueIsReportedKeptAsideAndNeverOverwritten) {
    const std::vector<nlohmann::json> malformed{
        "{not json",
        R"(["/a"])",
        R"({"other": ["/a"]})",
        R"({"SerializerWrappedObject": "/a"})",
        R"({"SerializerWrappedObject": ["/a", 5]})",
        std::string(100000, '[') + std::string(100000, ']'),
        42,
        nlohmann::json::array({"/a"}),
    };
    for (const nlohmann::json& value : malformed) {
        SCOPED_TRACE(value.dump().substr(0, 60));
        Tessel::Test::TempDir dir;
        const fs::path prefs = dir.path() / "prefs.json";
        std::ofstream(prefs) << nlohmann::json{{kFavoritesPreference, value}, {"other", 1}}.dump();
        FavoritesHost host(prefs.string());

        EXPECT_TRUE(ProviderHost::GetFavorites().empty());
        const auto problem = ProviderHost::GetFavoritesLoadProblem();
        ASSERT_TRUE(problem);
        EXPECT_EQ(problem->message, "JSON not well-formed");
        ASSERT_EQ(problem->setAsidePreference.rfind(kSetAsidePrefix, 0), 0u)
            << problem->setAsidePreference;

        // Already on disk before anything else writes, and kept by later saves.
        ProviderHost::ModifyFavorites({u"/new"}, FavoriteOperation::Add);
        EXPECT_EQ(StoredFavoritesText(), R"({"SerializerWrappedObject":["/new"]})");
        const any_regular_t kept = Preferences::GetValue(problem->setAsidePreference);
        EXPECT_EQ(kept.ToJson(),
                  std::optional<std::string>(any_regular_t::FromJson(value.dump())->ToJson()));
        EXPECT_EQ(Preferences::GetValue("other"), any_regular_t(1));
    }

    // Loading answers the message itself, and a second unreadable value finds a free name.
    Tessel::Test::TempDir dir;
    FavoritesHost host(dir.str() + "/prefs.json");
    std::vector<std::string> keys;
    for (const char16_t* text : {u"{", u"}"}) {
        Preferences::SetValue(kFavoritesPreference, std::u16string(text));
        EXPECT_EQ(ProviderHost::LoadFavorites(),
                  std::optional<std::string>("JSON not well-formed"));
        keys.push_back(ProviderHost::GetFavoritesLoadProblem()->setAsidePreference);
        EXPECT_EQ(Preferences::GetValue(keys.back()), any_regular_t(std::u16string(text)));
    }
    EXPECT_NE(keys[0], keys[1]);
}

TEST(Favorites, AValueOfAnUnknownTypeStaysAndTheListIsNotSaved) {
    Tessel::Test::TempDir dir;
    const fs::path prefs = dir.path() / "prefs.json";
    const nlohmann::json future = {{"$type", "favorites-v9"}, {"value", {"/a"}}};
    std::ofstream(prefs) << nlohmann::json{{kFavoritesPreference, future}}.dump();
    FavoritesHost host(prefs.string());
    EXPECT_TRUE(ProviderHost::GetFavorites().empty());
    ASSERT_TRUE(ProviderHost::GetFavoritesLoadProblem());
    EXPECT_EQ(ProviderHost::GetFavoritesLoadProblem()->setAsidePreference, "");

    ProviderHost::ModifyFavorites({u"/b"}, FavoriteOperation::Add);
    EXPECT_EQ(host.announced, 1);
    EXPECT_EQ(ProviderHost::GetFavorites(), (Favorites{u"/b"})) << "changed for this run";
    ASSERT_FALSE(Preferences::Save());  // whatever else saves keeps the value as it was
    std::ifstream in(prefs);
    const nlohmann::json onDisk = nlohmann::json::parse(in);
    EXPECT_EQ(onDisk.at(kFavoritesPreference), future);
}

TEST(Favorites, ChangesFromFourThreadsAreAllKeptAndTheLastSaveHoldsThem) {
    Tessel::Test::TempDir dir;
    FavoritesHost host(dir.str() + "/prefs.json");
    constexpr int kThreads = 4;
    constexpr int kPerThread = 20;
    const auto pathOf = [](int t, int i) {
        return Utf8ToUtf16("/t" + std::to_string(t) + "/" + std::to_string(i));
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &pathOf] {
            for (int i = 0; i < kPerThread; ++i) {
                const std::u16string path = pathOf(t, i);
                ProviderHost::ModifyFavorites({path}, FavoriteOperation::Add);
                // Every other one goes again, while the other threads add theirs.
                if (i % 2 == 0)
                    ProviderHost::ModifyFavorites({path}, FavoriteOperation::Remove);
                if (i == 7)
                    (void)ProviderHost::GetFavorites();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    const int calls = kThreads * (kPerThread + kPerThread / 2);
    EXPECT_TRUE(Tessel::Test::PumpUntil([&] { return host.announced == calls; }));

    Favorites expected;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 1; i < kPerThread; i += 2)
            expected.push_back(pathOf(t, i));
    }
    expected.sort();
    EXPECT_EQ(ProviderHost::GetFavorites(), expected);

    const nlohmann::json stored = nlohmann::json::parse(StoredFavoritesText());
    Favorites saved;
    for (const auto& path : stored.at("SerializerWrappedObject"))
        saved.push_back(Utf8ToUtf16(path.get<std::string>()));
    EXPECT_EQ(saved, expected);
}

}  // namespace
}  // namespace Tessel
