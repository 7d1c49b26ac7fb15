// Registration, ranking, favorites and the host's life cycle.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

using namespace Tessel::Test;

std::vector<std::u16string> Ids(const std::vector<ProviderWrapper*>& wrappers) {
    std::vector<std::u16string> ids;
    for (auto* w : wrappers)
        ids.push_back(w->GetIdentification());
    return ids;
}

std::u16string Id(const char* className) {
    return Utf8ToUtf16(std::string(kProviderIDPrefix) + className);
}

TEST(ProviderHost, RanksByScoreWithTiesInRegistrationOrder) {
    HostFixture host;
    auto silent = std::make_shared<TestProvider>("Never", 0);
    auto negative = std::make_shared<TestProvider>("Negative", -1);
    for (auto p : {std::make_shared<TestProvider>("Directory", 30), silent,
                   std::make_shared<TestProvider>("CardA", 100), negative,
                   std::make_shared<TestProvider>("CardB", 100),
                   std::make_shared<TestProvider>("Foreign", 40)})
        Register(p);
    EXPECT_TRUE(ProviderHost::GetProviderList(u"", {}).empty());
    EXPECT_EQ(silent->canProvideCalls.load(), 0) << "an empty path asks nobody";
    const auto ranked = ProviderHost::GetProviderList(u"/anything", {});
    EXPECT_EQ(Ids(ranked), (std::vector<std::u16string>{Id("CardA"), Id("CardB"), Id("Foreign"),
                                                        Id("Directory")}));
    EXPECT_EQ(ProviderHost::FindProvider(Id("Foreign")), ranked[2]);
    EXPECT_EQ(ProviderHost::FindProvider(u"nobody"), nullptr);
    // -1 is not a claim for selection, but any non-zero answer counts for HasProvider.
    silent->projectBased = true;
    negative->projectBased = true;
    EXPECT_TRUE(ProviderHost::HasProvider(u"/anything", {}, false));
    EXPECT_TRUE(ProviderHost::HasProjectBasedProvider(u"/anything", {}));
    negative->projectBased = false;
    EXPECT_FALSE(ProviderHost::HasProjectBasedProvider(u"/anything", {}));
}

TEST(ProviderHost, ProvidersAlwaysGetACallableAbortPredicate) {
    HostFixture host;
    auto provider = std::make_shared<TestProvider>("Caller");
    std::vector<bool> aborted;
    provider->scoreFunction = [&](const std::string&, DirectoryContents&,
                                  const AbortPredicate& abort) {
        aborted.push_back(abort());  // an empty predicate would throw
        return 10;
    };
    provider->projectBased = true;
    provider->cloud = true;
    ProviderWrapper* wrapper = Register(provider);
    EXPECT_EQ(ProviderHost::GetProviderList(u"/x", {}).size(), 1u);
    EXPECT_TRUE(ProviderHost::HasProvider(u"/x", {}, false));
    EXPECT_TRUE(ProviderHost::HasProjectBasedProvider(u"/x", {}));
    EXPECT_TRUE(ProviderHost::HasCloudStorageProvider(u"/x"));
    DirectoryContents contents(u"/x");
    EXPECT_EQ(wrapper->CanProvideFor(u"/x", {}, contents, {}), 10);
    EXPECT_EQ(aborted, std::vector<bool>(5, false));
}

TEST(ProviderHost, OnePassReadsTheFolderOnceWhateverTheProvidersAsk) {
    TempDir dir;
    for (int i = 0; i < 50; ++i)
        dir.WriteFile("f" + std::to_string(i));
    dir.MakeDir("CONTENTS");
    HostFixture host;
    for (int i = 0; i < 20; ++i) {
        auto provider = std::make_shared<TestProvider>("P" + std::to_string(i));
        provider->scoreFunction = [i](const std::string&, DirectoryContents& contents,
                                      const AbortPredicate& abort) {
            const auto files = contents.GetFileList(abort);
            const auto dirs = contents.GetDirectoryList(abort);
            return (i == 7 && files.size() == 50 && dirs.size() == 1) ? 100 : 0;
        };
        Register(provider);
    }
    const auto before = Platform::DirectoryReadCount();
    const auto ranked = ProviderHost::GetProviderList(dir.u16(), {});
    EXPECT_EQ(Platform::DirectoryReadCount() - before, 1u);
    EXPECT_EQ(Ids(ranked), (std::vector<std::u16string>{Id("P7")}));
}

TEST(ProviderHost, LifeCycle) {
    MainThread::SetCurrent();
    ProviderHost::Shutdown();  // before Initialize: nothing happens
    EXPECT_FALSE(ProviderHost::IsInitialized());
    // Requests started before Initialize (or after Shutdown) queue nothing.
    auto early = ProviderListRequest::CreateClassRef();
    early->Initialize(ProviderHost::sProviderHostStation, nullptr);
    early->SetRequestParams(u"/x", {});
    EXPECT_FALSE(early->Start());
    Settings::Set(kSettingContentLowPriorityThreads, 3);
    ProviderHost::Initialize();
    const std::size_t builtIn = ProviderHost::GetAllProviders().size();
    auto low = ProviderHost::GetProviderExecutor();
    ASSERT_TRUE(low);
    EXPECT_EQ(low->GetWorkerCount(), 3);
    Register(std::make_shared<TestProvider>("Extra", 1));
    ProviderHost::Initialize();  // a second call changes nothing
    EXPECT_EQ(ProviderHost::GetAllProviders().size(), builtIn + 1);
    EXPECT_EQ(ProviderHost::GetProviderExecutor(), low);
    EXPECT_TRUE(Messaging::IsStationRegistered(ProviderHost::sProviderHostStation));
    ProviderHost::Shutdown();
    EXPECT_TRUE(ProviderHost::GetAllProviders().empty());
    EXPECT_FALSE(ProviderHost::GetProviderExecutor());
    EXPECT_FALSE(Messaging::IsStationRegistered(ProviderHost::sProviderHostStation));
    EXPECT_FALSE(early->Start());
    ProviderHost::Initialize();  // runs again in full
    EXPECT_EQ(ProviderHost::GetAllProviders().size(), builtIn);
    ProviderHost::Shutdown();
    Settings::Reset(kSettingContentLowPriorityThreads);
}

std::shared_ptr<TestProvider> FavoritesProvider() {
    auto provider = std::make_shared<TestProvider>("Favorites");
    provider->scoreFunction = [](const std::string& path, DirectoryContents&,
                                 const AbortPredicate&) {
        return path == kSDKFavoritesListPath ? 100 : 0;
    };
    return provider;
}

TEST(ProviderHost, FavoritesNeedTheirProviderAndEveryChangeIsAnnounced) {
    TempDir dir;
    Preferences::UseFile(dir.str() + "/prefs.json");
    HostFixture host;
    int announced = 0;
    ScopedListener listener(Messaging::Listen<FavoritesChangedMessage>(
        ProviderHost::sProviderHostStation, [&](const FavoritesChangedMessage&) { ++announced; }));
    ProviderHost::ModifyFavorites({u"/a"}, FavoriteOperation::Add);  // no provider yet: nothing
    EXPECT_EQ(announced, 0);
    EXPECT_TRUE(ProviderHost::GetFavorites().empty());
    Register(FavoritesProvider());
    ProviderHost::ModifyFavorites({u"b", u"a"}, FavoriteOperation::Add);
    EXPECT_EQ(announced, 1);  // on the main thread: delivered at once
    EXPECT_EQ(ProviderHost::GetFavorites(), (std::list<std::u16string>{u"a", u"b"}));
    ProviderHost::ModifyFavorites({u"a"}, static_cast<FavoriteOperation>(7));
    EXPECT_EQ(announced, 2);  // an unknown operation changes nothing but still announces
    EXPECT_EQ(ProviderHost::GetFavorites().size(), 2u);
    ProviderHost::ModifyFavorites({u"a"}, FavoriteOperation::Remove);
    EXPECT_EQ(ProviderHost::GetFavorites(), (std::list<std::u16string>{u"b"}));
    // Changed from other threads, the announcements arrive on the main thread.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 10; ++i)
                ProviderHost::ModifyFavorites({Utf8ToUtf16("/t" + std::to_string(t * 10 + i))},
                                              FavoriteOperation::Add);
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_TRUE(PumpUntil([&] { return announced == 3 + 40; }));
    EXPECT_EQ(ProviderHost::GetFavorites().size(), 41u);
    // The saved list comes back after a restart.
    ProviderHost::Shutdown();
    ASSERT_TRUE(Preferences::Load().IsOk());
    ProviderHost::Initialize();
    Register(FavoritesProvider());
    EXPECT_TRUE(ProviderHost::LoadFavorites().IsOk());
    EXPECT_EQ(ProviderHost::GetFavorites().size(), 41u);
    Preferences::UseFile({});
}

}  // namespace
}  // namespace Tessel
