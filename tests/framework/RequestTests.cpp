// Asynchronous requests: one answer per request, on the main thread, with the right result
// code; aborts; failures; shutdown with requests in flight.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>
#include <stdexcept>
#include <thread>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/media/PelPixCount.h>

#include "support/CaptureTrace.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

using namespace Tessel::Test;

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

std::shared_ptr<DefaultContentRequestData> DefaultFor(const std::u16string& path,
                                                      const std::u16string& providerId = u"",
                                                      bool mediaOnly = false) {
    return std::make_shared<DefaultContentRequestData>(path, any_regular_t(), providerId,
                                                       mediaOnly);
}

// Runs START and returns the one message of type Msg it brings to the test station.
template <class Msg>
Msg AnswerTo(const std::function<void()>& start) {
    Inbox<Msg> inbox;
    start();
    EXPECT_TRUE(inbox.WaitFor(1));
    return inbox.messages.empty() ? Msg() : inbox.messages.front();
}

template <class Msg>
ScopedListener CollectCodes(std::vector<ResultCode>& codes) {
    return ScopedListener(Messaging::Listen<Msg>(
        kStation, [&codes](const Msg& message) { codes.push_back(message.result); }));
}

// A request made, parameterised and aborted before it is started.
template <class Request, class... Params>
ClassRef<Request> Aborted(ProviderWrapper* wrapper, Params&&... params) {
    ClassRef<Request> request = Request::CreateClassRef();
    request->Initialize(kStation, wrapper);
    request->SetRequestParams(std::forward<Params>(params)...);
    request->Abort();
    return request;
}

TEST(Requests, ListRequestsAnswerWithCodesAndAbortsEmptyTheList) {
    HostFixture host;
    const auto list = [](const ClassRef<ProviderListRequest>& request = nullptr) {
        return AnswerTo<GetProviderListMessage>([&] {
            request ? (void)request->Start()
                    : (void)ProviderHost::RequestProviderList(u"/x", {}, kStation);
        });
    };
    EXPECT_EQ(list().result, kResultNothingFound);
    Register(std::make_shared<TestProvider>("Low", 30));
    Register(std::make_shared<TestProvider>("High", 100));
    const GetProviderListMessage found = list();
    EXPECT_EQ(found.result, kResultSuccess);
    EXPECT_EQ(found.scores, (std::vector<int>{100, 30}));
    // Aborted while the second of three providers is asked: nothing of the pass is kept.
    ClassRef<ProviderListRequest> request = ProviderListRequest::CreateClassRef();
    auto aborter = std::make_shared<TestProvider>("Aborter");
    aborter->scoreFunction = [&](const std::string&, DirectoryContents&, const AbortPredicate&) {
        request->Abort();
        return 60;
    };
    Register(aborter);
    auto last = std::make_shared<TestProvider>("Last", 70);
    Register(last);
    request->Initialize(kStation, nullptr);
    request->SetRequestParams(u"/x", {});
    const GetProviderListMessage aborted = list(request);
    EXPECT_EQ(aborted.result, kResultAborted);
    EXPECT_TRUE(aborted.providers.empty());
    // Aborted before it runs: answered all the same, without asking anyone.
    EXPECT_EQ(list(Aborted<ProviderListRequest>(nullptr, u"/x", any_regular_t())).result,
              kResultAborted);
    EXPECT_EQ(last->canProvideCalls.load(), 0);
}

TEST(Requests, ContentThumbnailAndPossibleContent) {
    TempDir dir;
    dir.WriteFile("a.mov");
    dir.MakeDir("sub");
    HostFixture host;
    auto provider = std::make_shared<TestProvider>("P", 30);
    ProviderWrapper* wrapper = Register(provider);
    const auto content = [&](const std::u16string& path) {
        return AnswerTo<GetContentMessage>(
            [&] { wrapper->RequestContent(path, {}, {kNameField}, kStation); });
    };
    const GetContentMessage listed = content(dir.u16());
    EXPECT_EQ(listed.result, kResultSuccess);
    EXPECT_EQ(listed.content.size(), 2u);
    const GetContentMessage empty = content(u"/no/such/folder");
    EXPECT_EQ(empty.result, kResultSuccess);  // empty is still a success
    EXPECT_TRUE(empty.content.empty());
    // Aborted before it runs; an observed abort stays observed.
    auto aborted =
        Aborted<ProviderContentRequest>(wrapper, u"/x", any_regular_t(), FieldSet{kNameField});
    aborted->Abort();
    EXPECT_TRUE(aborted->GetAbort() && aborted->MakeAbortPredicate()());
    EXPECT_EQ(AnswerTo<GetContentMessage>([&] { aborted->Start(); }).result, kResultAborted);
    EXPECT_EQ(provider->contentCalls.load(), 2);
    const std::int64_t live = pelpixLiveCount();
    auto data =
        std::make_shared<ProviderThumbnailRequestData>(u"/a.mov", u"", any_regular_t(), 4, 2);
    const auto thumbnail = [&](const ClassRef<ProviderThumbnailRequest>& request = nullptr) {
        return AnswerTo<GetThumbnailMessage>([&] {
            request ? (void)request->Start() : (void)wrapper->RequestThumbnail(data, kStation);
        });
    };
    const GetThumbnailMessage made = thumbnail();
    EXPECT_EQ(made.result, kResultSuccess);
    EXPECT_TRUE(made.frame);
    std::atomic<int> thumbnailCalls{0};
    provider->thumbnailFunction = [&](const std::string&, std::uint32_t, std::uint32_t) {
        ++thumbnailCalls;
        return PelPixHandle(nullptr);
    };
    EXPECT_EQ(thumbnail().result, kResultNothingFound);
    EXPECT_EQ(thumbnail(Aborted<ProviderThumbnailRequest>(wrapper, data)).result, kResultAborted);
    EXPECT_EQ(thumbnailCalls, 1);
    EXPECT_EQ(pelpixLiveCount(), live);
    auto question =
        std::make_shared<HasPossibleDirectoryContentRequestData>(dir.u16(), any_regular_t());
    const auto possible = AnswerTo<HasPossibleDirectoryContentMessage>(
        [&] { ProviderHost::RequestHasPossibleDirectoryContent(question, kStation); });
    EXPECT_TRUE(possible.answer);
    EXPECT_EQ(possible.result, kResultSuccess);
    // An abort shows as "nothing found", never as aborted.
    const auto abortedQuestion = AnswerTo<HasPossibleDirectoryContentMessage>(
        [&] { Aborted<HasPossibleDirectoryContentRequest>(nullptr, question)->Start(); });
    EXPECT_FALSE(abortedQuestion.answer);
    EXPECT_EQ(abortedQuestion.result, kResultNothingFound);
}

// Answers for paths under /ok and may not read /ok/secret.
class FilterProvider : public TestProvider {
public:
    FilterProvider() : TestProvider("Filter") {
        scoreFunction = [](const std::string& path, DirectoryContents&, const AbortPredicate&) {
            return path.rfind("/ok", 0) == 0 ? 30 : 0;
        };
        contentFunction = [](const std::string&, const SDKFieldSet& fields, ProviderRequest*) {
            EXPECT_EQ(fields, (SDKFieldSet{kSDKNameField, kSDKPathField}));
            SDKContentMap content;
            for (const char* path : {"/ok/a", "/ok/secret", "/elsewhere", "/project/p"})
                content[path][kSDKPathField] = Utf8ToUtf16(path);
            content["/ok/nopath"][kSDKNameField] = std::string("no path");
            return content;
        };
    }
    bool PathHasAccessPermission(const std::string& path) override { return path != "/ok/secret"; }
};

TEST(Requests, DefaultContentKeepsOnlyItemsThatOpenFromTheNamedProvider) {
    HostFixture host;
    ProviderWrapper* filter = Register(std::make_shared<FilterProvider>());
    auto project = std::make_shared<TestProvider>("Project");
    project->projectBased = true;
    project->scoreFunction = [](const std::string& path, DirectoryContents&,
                                const AbortPredicate&) {
        return path.rfind("/project", 0) == 0 || path == "/ok/other" ? 100 : 0;
    };
    ProviderWrapper* best = Register(project);
    const auto ask = [](const std::shared_ptr<DefaultContentRequestData>& data) {
        return AnswerTo<GetDefaultContentMessage>(
            [&] { ProviderHost::RequestDefaultProviderContent(data, kStation); });
    };
    const auto keys = [](const GetDefaultContentMessage& message) {
        std::vector<std::u16string> keys;
        for (const auto& item : message.content)
            keys.push_back(item.first);
        return keys;
    };
    const GetDefaultContentMessage all = ask(DefaultFor(u"/ok"));
    EXPECT_EQ(all.result, kResultSuccess);
    EXPECT_EQ(all.fields, (FieldSet{kNameField, kPathField}));
    EXPECT_EQ(keys(all), (std::vector<std::u16string>{u"/ok/a", u"/project/p"}));
    EXPECT_EQ(keys(ask(DefaultFor(u"/ok", u"", true))), (std::vector<std::u16string>{u"/ok/a"}));
    EXPECT_EQ(ask(DefaultFor(u"/none")).result, kResultNothingFound);
    EXPECT_EQ(ask(DefaultFor(u"/ok/other")).wrapper, best);
    EXPECT_EQ(ask(DefaultFor(u"/ok/other", filter->GetIdentification())).wrapper, filter);
    EXPECT_EQ(ask(DefaultFor(u"/ok/other", u"no-such-provider")).wrapper, best);
}

// Whatever a provider throws, every kind of request answers, with a trace line, and the host
// runs on: a throw while ranking is "nothing found", while listing or drawing a failure.
TEST(Requests, AProviderThatThrowsIsAnsweredAsFailedInEveryKind) {
    HostFixture host;
    auto provider = std::make_shared<TestProvider>("Thrower", 30);
    ProviderWrapper* wrapper = Register(provider);
    std::function<void()> fail;
    provider->scoreFunction = [&](const std::string&, DirectoryContents&, const AbortPredicate&) {
        fail();
        return 30;
    };
    provider->contentFunction = [&](const std::string&, const SDKFieldSet&, ProviderRequest*) {
        fail();
        return SDKContentMap();
    };
    provider->thumbnailFunction = [&](const std::string&, std::uint32_t, std::uint32_t) {
        fail();
        return PelPixHandle(nullptr);
    };
    std::vector<ResultCode> codes;
    Messaging::RegisterStation(kStation);
    ScopedListener listeners[] = {
        CollectCodes<GetProviderListMessage>(codes), CollectCodes<GetContentMessage>(codes),
        CollectCodes<GetDefaultContentMessage>(codes), CollectCodes<GetThumbnailMessage>(codes),
        CollectCodes<HasPossibleDirectoryContentMessage>(codes)};
    const auto requestEveryKind = [&] {
        codes.clear();
        ProviderHost::RequestProviderList(u"/x", {}, kStation);
        wrapper->RequestContent(u"/x", {}, {kNameField}, kStation);
        ProviderHost::RequestDefaultProviderContent(DefaultFor(u"/x"), kStation);
        wrapper->RequestThumbnail(
            std::make_shared<ProviderThumbnailRequestData>(u"/x", u"", any_regular_t(), 4, 2),
            kStation);
        ProviderHost::RequestHasPossibleDirectoryContent(
            std::make_shared<HasPossibleDirectoryContentRequestData>(u"/x", any_regular_t()),
            kStation);
        return PumpUntil([&] { return codes.size() == 5; });
    };
    const std::function<void()> failures[] = {
        [] { throw std::runtime_error("provider trouble"); },
        [] { throw std::bad_alloc(); },
        [&] {  // a callback set to an empty function
            provider->SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>());
            provider->Progress(u"/x", 0.5);
        },
        [] { throw 42; },
    };
    const std::vector<ResultCode> expected{kResultNothingFound, kResultNothingFound,
                                           kResultNothingFound, kResultFailed, kResultFailed};
    for (const auto& failure : failures) {
        fail = failure;
        ASSERT_TRUE(requestEveryKind());
        std::sort(codes.begin(), codes.end());  // the two executors answer in any order
        EXPECT_EQ(codes, expected);
        EXPECT_TRUE(ProviderHost::GetProviderList(u"/x", {}).empty());  // on this thread too
    }
    fail = failures[0];
    const auto trace = CaptureTrace("Requests", [&] { requestEveryKind(); });
    if (trace) {
        EXPECT_NE(trace->find("ProviderContentRequest failed: provider trouble"), std::string::npos)
            << *trace;
    }
    fail = [] {};
    ASSERT_TRUE(requestEveryKind());
    EXPECT_EQ(std::count(codes.begin(), codes.end(), kResultFailed), 0) << "the host runs on";
}

TEST(Requests, EveryQueuedRequestAnswersExactlyOnceFromAnyThread) {
    HostFixture host;
    ProviderWrapper* wrapper = Register(std::make_shared<TestProvider>("P", 30));
    Inbox<GetProviderListMessage> lists;
    Inbox<GetContentMessage> contents;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                auto list = ProviderHost::RequestProviderList(
                    Utf8ToUtf16("/p" + std::to_string(t) + "_" + std::to_string(i)), {}, kStation);
                auto content = wrapper->RequestContent(u"/none", {}, {kNameField}, kStation);
                if (i % 3 == 0) {
                    list->Abort();
                    content->Abort();
                }
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(contents.WaitFor(100) && lists.WaitFor(100));
    MainThread::RunPending();
    EXPECT_EQ(contents.messages.size(), 100u);
    std::set<std::u16string> paths;
    for (const auto& m : lists.messages)
        paths.insert(m.path);
    EXPECT_EQ(paths.size(), 100u);
    EXPECT_EQ(lists.messages.size(), 100u);
}

TEST(Requests, ShutdownWithRequestsInFlightDeliversNothingMore) {
    MainThread::SetCurrent();
    ProviderHost::Initialize();
    auto slow = std::make_shared<TestProvider>("Slow", 30);
    std::atomic<bool> entered{false}, release{false};
    slow->contentFunction = [&](const std::string&, const SDKFieldSet&, ProviderRequest*) {
        entered = true;
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return SDKContentMap();
    };
    ProviderWrapper* wrapper = Register(slow);
    const ImmutableString& station = ProviderHost::sProviderHostStation;
    int delivered = 0;
    ScopedListener listener(Messaging::Listen<GetContentMessage>(
        station, [&](const GetContentMessage&) { ++delivered; }));
    std::vector<std::weak_ptr<ProviderContentRequest>> requests;
    for (int i = 0; i < 30; ++i)
        requests.push_back(wrapper->RequestContent(u"/x", {}, {kNameField}, station));
    while (!entered)
        std::this_thread::yield();
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        release = true;
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
