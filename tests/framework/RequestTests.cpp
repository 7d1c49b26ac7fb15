// Asynchronous requests: one completion message per queued request, on the main thread,
// with the right result code; aborts; releases; shutdown with requests in flight.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

using Tessel::Test::HostFixture;
using Tessel::Test::PumpUntil;
using Tessel::Test::Register;
using Tessel::Test::TestProvider;

const ImmutableString kStation("Tessel.tests.requests");

// Collects the messages of one type delivered on the test station.
template <class Msg>
struct Inbox {
    Inbox() {
        Messaging::RegisterStation(kStation);
        listener = ScopedListener(Messaging::Listen<Msg>(kStation, [this](const Msg& m) {
            EXPECT_TRUE(MainThread::IsCurrent());
            messages.push_back(m);
        }));
    }
    bool WaitFor(std::size_t count) {
        return PumpUntil([&] { return messages.size() >= count; });
    }
    std::vector<Msg> messages;
    ScopedListener listener;
};

template <class Map>
std::vector<std::u16string> Keys(const Map& content) {
    std::vector<std::u16string> keys;
    for (const auto& [key, record] : content)
        keys.push_back(key);
    return keys;
}

std::shared_ptr<DefaultContentRequestData> DefaultFor(const std::u16string& path,
                                                      const std::u16string& providerId = u"",
                                                      bool mediaOnly = false) {
    return std::make_shared<DefaultContentRequestData>(path, any_regular_t(), providerId,
                                                       mediaOnly);
}

TEST(Requests, ClassReferencesAnswerForTheirBases) {
    auto list = ProviderListRequest::CreateClassRef();
    EXPECT_TRUE(list->QueryMap("ProviderListRequest"));
    EXPECT_TRUE(list->QueryMap("HighPriorityProviderRequest"));
    EXPECT_TRUE(list->QueryMap("ProviderRequest"));
    EXPECT_FALSE(list->QueryMap("ProviderThumbnailRequest"));
    EXPECT_STREQ(list->GetUnknownTypeName(), "ProviderListRequest");
    ClassRef<ProviderRequest> base = list;
    EXPECT_TRUE(QueryClassRef<ProviderListRequest>(base));
    EXPECT_FALSE(QueryClassRef<ProviderThumbnailRequest>(base));
    auto thumb = ProviderThumbnailRequest::CreateClassRef();
    EXPECT_FALSE(thumb->QueryMap("HighPriorityProviderRequest"));
}

TEST(Requests, ListRequestsAnswerWithCodes) {
    HostFixture host;
    Inbox<GetProviderListMessage> inbox;
    ProviderHost::RequestProviderList(u"/nobody/claims", {}, kStation);  // released at once
    ASSERT_TRUE(inbox.WaitFor(1));
    EXPECT_EQ(inbox.messages[0].result, kResultNothingFound);
    EXPECT_TRUE(inbox.messages[0].providers.empty());

    Register(std::make_shared<TestProvider>("Low", 30));
    Register(std::make_shared<TestProvider>("High", 100));
    ProviderHost::RequestProviderList(u"/x", {}, kStation);
    ASSERT_TRUE(inbox.WaitFor(2));
    EXPECT_EQ(inbox.messages[1].result, kResultSuccess);
    EXPECT_EQ(inbox.messages[1].path, u"/x");
    ASSERT_EQ(inbox.messages[1].providers.size(), 2u);
    EXPECT_EQ(inbox.messages[1].scores, (std::vector<int>{100, 30}));
}

TEST(Requests, AbortBeforeRunningStillAnswersOnce) {
    HostFixture host;
    auto provider = std::make_shared<TestProvider>("P", 30);
    ProviderWrapper* wrapper = Register(provider);
    Inbox<GetProviderListMessage> lists;
    Inbox<GetContentMessage> contents;

    auto list = ProviderListRequest::CreateClassRef();
    list->Initialize(kStation, nullptr);
    list->SetRequestParams(u"/x", {});
    list->Abort();
    ASSERT_TRUE(list->Start());
    ASSERT_TRUE(lists.WaitFor(1));
    EXPECT_EQ(lists.messages[0].result, kResultAborted);
    EXPECT_TRUE(lists.messages[0].providers.empty());
    EXPECT_EQ(provider->canProvideCalls.load(), 0);

    auto content = ProviderContentRequest::CreateClassRef();
    content->Initialize(kStation, wrapper);
    content->SetRequestParams(u"/x", {}, {kNameField});
    EXPECT_FALSE(content->GetAbort());
    content->Abort();
    content->Abort();
    // An observed abort stays observed.
    EXPECT_TRUE(content->GetAbort());
    EXPECT_TRUE(content->GetAbort());
    EXPECT_TRUE(content->MakeAbortPredicate()());
    content->Start();
    ASSERT_TRUE(contents.WaitFor(1));
    EXPECT_EQ(contents.messages[0].result, kResultAborted);
    EXPECT_EQ(contents.messages[0].request, content);
    EXPECT_EQ(provider->contentCalls.load(), 0);
}

TEST(Requests, AbortDuringSelectionGivesAnEmptyList) {
    HostFixture host;
    Inbox<GetProviderListMessage> inbox;
    ClassRef<ProviderListRequest> request = ProviderListRequest::CreateClassRef();
    Register(std::make_shared<TestProvider>("First", 50));
    auto aborter = std::make_shared<TestProvider>("Aborter");
    aborter->scoreFunction = [&](const std::string&, DirectoryContents&, const AbortPredicate&) {
        request->Abort();  // the user gives up while the second provider is asked
        return 60;
    };
    Register(aborter);
    auto third = std::make_shared<TestProvider>("Third", 70);
    Register(third);
    request->Initialize(kStation, nullptr);
    request->SetRequestParams(u"/x", {});
    request->Start();
    ASSERT_TRUE(inbox.WaitFor(1));
    EXPECT_EQ(inbox.messages[0].result, kResultAborted);
    EXPECT_TRUE(inbox.messages[0].providers.empty());
    EXPECT_EQ(third->canProvideCalls.load(), 0);
}

TEST(Requests, ContentThumbnailAndPossibleContent) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("a.mov");
    dir.MakeDir("sub");
    HostFixture host;
    auto provider = std::make_shared<TestProvider>("P", 30);
    ProviderWrapper* wrapper = Register(provider);
    Inbox<GetContentMessage> contents;
    Inbox<GetThumbnailMessage> thumbs;
    Inbox<HasPossibleDirectoryContentMessage> possible;

    wrapper->RequestContent(dir.u16(), {}, {kNameField}, kStation);
    provider->contentFunction = nullptr;
    ASSERT_TRUE(contents.WaitFor(1));
    EXPECT_EQ(contents.messages[0].result, kResultSuccess);
    EXPECT_EQ(contents.messages[0].content.size(), 2u);
    EXPECT_EQ(contents.messages[0].wrapper, wrapper);

    auto empty = std::make_shared<TestProvider>("Empty", 1);
    empty->contentFunction = [](const std::string&, const SDKFieldSet&, ProviderRequest*) {
        return SDKContentMap();
    };
    Register(empty)->RequestContent(u"/x", {}, {kNameField}, kStation);
    ASSERT_TRUE(contents.WaitFor(2));
    EXPECT_EQ(contents.messages[1].result, kResultSuccess);  // empty is still a success
    EXPECT_TRUE(contents.messages[1].content.empty());

    auto data =
        std::make_shared<ProviderThumbnailRequestData>(u"/x/a.mov", u"", any_regular_t(), 4, 2);
    wrapper->RequestThumbnail(data, kStation);
    ASSERT_TRUE(thumbs.WaitFor(1));
    EXPECT_EQ(thumbs.messages[0].result, kResultSuccess);
    EXPECT_EQ(thumbs.messages[0].data, data);
    ASSERT_TRUE(thumbs.messages[0].frame);
    provider->thumbnailFunction = [](const std::string&, std::uint32_t, std::uint32_t) {
        return PelPixHandle(nullptr);
    };
    wrapper->RequestThumbnail(data, kStation);
    ASSERT_TRUE(thumbs.WaitFor(2));
    EXPECT_EQ(thumbs.messages[1].result, kResultNothingFound);
    EXPECT_FALSE(thumbs.messages[1].frame);

    // Aborted before it runs: the provider is not asked, and nothing is left undisposed.
    std::atomic<int> thumbnailCalls{0};
    provider->thumbnailFunction = [&](const std::string&, std::uint32_t, std::uint32_t) {
        ++thumbnailCalls;
        return pelpixNew(4, 2);
    };
    const std::int64_t live = pelpixLiveCount();
    auto early = ProviderThumbnailRequest::CreateClassRef();
    early->Initialize(kStation, wrapper);
    early->SetRequestParams(data);
    early->Abort();
    early->Start();
    ASSERT_TRUE(thumbs.WaitFor(3));
    EXPECT_EQ(thumbs.messages[2].result, kResultAborted);
    EXPECT_FALSE(thumbs.messages[2].frame);
    EXPECT_EQ(thumbnailCalls, 0);
    wrapper->RequestThumbnail(data, kStation);
    ASSERT_TRUE(thumbs.WaitFor(4));
    EXPECT_EQ(thumbnailCalls, 1);
    thumbs.messages.clear();
    EXPECT_EQ(pelpixLiveCount(), live);
    provider->thumbnailFunction = nullptr;

    auto question =
        std::make_shared<HasPossibleDirectoryContentRequestData>(dir.u16(), any_regular_t());
    ProviderHost::RequestHasPossibleDirectoryContent(question, kStation);
    ASSERT_TRUE(possible.WaitFor(1));
    EXPECT_TRUE(possible.messages[0].answer);
    EXPECT_EQ(possible.messages[0].result, kResultSuccess);
    EXPECT_EQ(possible.messages[0].data, question);

    // An abort shows as "nothing found", never as aborted.
    auto aborted = HasPossibleDirectoryContentRequest::CreateClassRef();
    aborted->Initialize(kStation, nullptr);
    aborted->SetRequestParams(question);
    aborted->Abort();
    aborted->Start();
    ASSERT_TRUE(possible.WaitFor(2));
    EXPECT_FALSE(possible.messages[1].answer);
    EXPECT_EQ(possible.messages[1].result, kResultNothingFound);
}

// Answers for paths under /ok, may not read /ok/secret, and is project-based for /project.
class FilterProvider : public TestProvider {
public:
    FilterProvider() : TestProvider("Filter") {
        scoreFunction = [](const std::string& path, DirectoryContents&, const AbortPredicate&) {
            return path.rfind("/ok", 0) == 0 ? 30 : 0;
        };
        contentFunction = [](const std::string&, const SDKFieldSet& fields, ProviderRequest*) {
            EXPECT_EQ(fields, (SDKFieldSet{kSDKNameField, kSDKPathField}));
            SDKContentMap content;
            for (const char* path : {"/ok/a", "/ok/secret", "/elsewhere", "/project/p"}) {
                content[path][kSDKPathField] = Utf8ToUtf16(path);
                content[path][kSDKNameField] = std::string(path);
            }
            content["/ok/nopath"][kSDKNameField] = std::string("no path");
            return content;
        };
    }
    bool PathHasAccessPermission(const std::string& path) override { return path != "/ok/secret"; }
};

TEST(Requests, DefaultContentKeepsOnlyItemsThatOpen) {
    HostFixture host;
    Register(std::make_shared<FilterProvider>());
    auto project = std::make_shared<TestProvider>("Project");
    project->projectBased = true;
    project->scoreFunction = [](const std::string& path, DirectoryContents&,
                                const AbortPredicate&) {
        return path.rfind("/project", 0) == 0 ? 100 : 0;
    };
    Register(project);
    Inbox<GetDefaultContentMessage> inbox;

    ProviderHost::RequestDefaultProviderContent(DefaultFor(u"/ok"), kStation);
    ASSERT_TRUE(inbox.WaitFor(1));
    const auto& answer = inbox.messages[0];
    EXPECT_EQ(answer.result, kResultSuccess);
    EXPECT_EQ(answer.fields, (FieldSet{kNameField, kPathField}));
    EXPECT_EQ(Keys(answer.content), (std::vector<std::u16string>{u"/ok/a", u"/project/p"}));

    ProviderHost::RequestDefaultProviderContent(DefaultFor(u"/ok", u"", true), kStation);
    ASSERT_TRUE(inbox.WaitFor(2));
    EXPECT_EQ(Keys(inbox.messages[1].content), (std::vector<std::u16string>{u"/ok/a"}));

    auto nobody = DefaultFor(u"/none");
    ProviderHost::RequestDefaultProviderContent(nobody, kStation);
    ASSERT_TRUE(inbox.WaitFor(3));
    EXPECT_EQ(inbox.messages[2].result, kResultNothingFound);
    EXPECT_EQ(inbox.messages[2].data, nobody);
}

TEST(Requests, DefaultContentPrefersTheNamedProvider) {
    HostFixture host;
    auto make = [](const char* name, int score) {
        auto p = std::make_shared<TestProvider>(name, score);
        p->contentFunction = [name](const std::string&, const SDKFieldSet&, ProviderRequest*) {
            SDKContentMap content;
            content["/"][kSDKPathField] = std::u16string(u"/");
            content["/"][kSDKNameField] = std::string(name);
            return content;
        };
        return p;
    };
    ProviderWrapper* best = Register(make("Best", 100));
    ProviderWrapper* other = Register(make("Other", 30));
    Inbox<GetDefaultContentMessage> inbox;
    const std::u16string ids[] = {u"", other->GetIdentification(), u"no-such-provider"};
    for (const auto& id : ids)
        ProviderHost::RequestDefaultProviderContent(DefaultFor(u"/x", id), kStation);
    ASSERT_TRUE(inbox.WaitFor(3));
    std::map<std::u16string, const ProviderWrapper*> chosen;
    for (const auto& m : inbox.messages)
        chosen[m.data->GetProviderID()] = m.wrapper;
    EXPECT_EQ(chosen[u""], best);
    EXPECT_EQ(chosen[other->GetIdentification()], other);
    EXPECT_EQ(chosen[u"no-such-provider"], best);
}

TEST(Requests, EveryQueuedRequestAnswersExactlyOnceFromAnyThread) {
    HostFixture host;
    ProviderWrapper* wrapper = Register(std::make_shared<TestProvider>("P", 30));
    Inbox<GetProviderListMessage> lists;
    Inbox<GetContentMessage> contents;
    constexpr int kThreads = 4;
    constexpr int kEach = 25;
    std::vector<std::thread> threads;
    std::atomic<int> started{0};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                auto list = ProviderHost::RequestProviderList(
                    Utf8ToUtf16("/p" + std::to_string(t) + "_" + std::to_string(i)), {}, kStation);
                auto content = wrapper->RequestContent(u"/none", {}, {kNameField}, kStation);
                if (i % 3 == 0) {
                    list->Abort();
                    content->Abort();
                }
                started += 2;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(PumpUntil([&] {
        return lists.messages.size() + contents.messages.size() == std::size_t(started.load());
    }));
    MainThread::RunPending();
    EXPECT_EQ(lists.messages.size(), std::size_t(kThreads * kEach));
    EXPECT_EQ(contents.messages.size(), std::size_t(kThreads * kEach));
    std::set<std::u16string> paths;
    for (const auto& m : lists.messages)
        paths.insert(m.path);
    EXPECT_EQ(paths.size(), std::size_t(kThreads * kEach));
}

TEST(Requests, ShutdownWithRequestsInFlightDeliversNothingMore) {
    MainThread::SetCurrent();
    ProviderHost::Initialize();
    auto slow = std::make_shared<TestProvider>("Slow", 30);
    std::mutex mutex;
    std::condition_variable cv;
    bool release = false;
    std::atomic<int> entered{0};
    slow->contentFunction = [&](const std::string&, const SDKFieldSet&, ProviderRequest*) {
        ++entered;
        std::unique_lock lock(mutex);
        cv.wait_for(lock, std::chrono::seconds(10), [&] { return release; });
        return SDKContentMap();
    };
    ProviderWrapper* wrapper = Register(slow);
    const ImmutableString& station = ProviderHost::sProviderHostStation;
    int delivered = 0;
    ScopedListener listener(Messaging::Listen<GetContentMessage>(
        station, [&](const GetContentMessage&) { ++delivered; }));
    std::vector<std::weak_ptr<ProviderContentRequest>> requests;
    for (int i = 0; i < 30; ++i) {
        requests.push_back(wrapper->RequestContent(u"/x", {}, {kNameField}, station));
    }
    while (entered.load() == 0)
        std::this_thread::yield();
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::lock_guard lock(mutex);
        release = true;
        cv.notify_all();
    });
    ProviderHost::Shutdown();  // waits for the running ones, drops the queued ones
    releaser.join();
    MainThread::RunPending();
    EXPECT_EQ(delivered, 0);
    for (const auto& weak : requests)
        EXPECT_TRUE(weak.expired());  // nothing leaked
}

}  // namespace
}  // namespace Tessel
