#include "Requests.h"

#include <chrono>

#include <tessel/foundation/MainThread.h>

#include "Interrupt.h"

namespace Tessel::Tool {

const ImmutableString& ToolStation() {
    static const ImmutableString station("Tessel.toolstation");
    Messaging::RegisterStation(station);
    return station;
}

namespace {

// Waits for the message of REQUEST and hands it to HANDLE while it is delivered (a listing
// can be large: it is used where it stands rather than copied). MATCHES tells whether a
// message answers it. Without a running host nothing will ever come, so the wait gives up
// when the request was not queued. True when an answer came.
template <class Msg, class Request>
bool AwaitWith(const ClassRef<Request>& request, bool started,
               const std::function<bool(const Msg&)>& matches,
               const std::function<void(const Msg&)>& handle) {
    if (!started)
        return false;
    bool answered = false;
    ScopedListener listener(Messaging::Listen<Msg>(ToolStation(), [&](const Msg& message) {
        if (answered || !matches(message))
            return;
        answered = true;
        handle(message);
    }));
    bool aborted = false;
    while (!answered) {
        MainThread::RunOne(std::chrono::milliseconds(50));
        if (!aborted && InterruptRequested()) {
            request->Abort();
            aborted = true;
        }
    }
    return true;
}

template <class Msg, class Request>
std::optional<Msg> Await(const ClassRef<Request>& request, bool started,
                         const std::function<bool(const Msg&)>& matches) {
    std::optional<Msg> answer;
    AwaitWith<Msg>(request, started, matches, [&](const Msg& message) { answer = message; });
    return answer;
}

}  // namespace

// Messages reach the tool only while it pumps its main thread, so listening right after
// the start cannot miss an answer.
std::optional<GetProviderListMessage> RunProviderList(const std::u16string& path) {
    auto request = ProviderHost::RequestProviderList(path, any_regular_t(), ToolStation());
    return Await<GetProviderListMessage>(
        request, ProviderHost::GetHighPriorityProviderExecutor() != nullptr,
        [&](const GetProviderListMessage& m) { return m.path == path; });
}

bool RunContent(ProviderWrapper& wrapper, const std::u16string& path, const FieldSet& fields,
                const std::function<void(const GetContentMessage&)>& onAnswer) {
    auto request = wrapper.RequestContent(path, any_regular_t(), fields, ToolStation());
    return AwaitWith<GetContentMessage>(
        request, ProviderHost::GetHighPriorityProviderExecutor() != nullptr,
        [&](const GetContentMessage& m) { return m.request == request; }, onAnswer);
}

std::optional<GetContentMessage> RunContent(ProviderWrapper& wrapper, const std::u16string& path,
                                            const FieldSet& fields) {
    std::optional<GetContentMessage> answer;
    RunContent(wrapper, path, fields, [&](const GetContentMessage& m) { answer = m; });
    return answer;
}

std::optional<GetDefaultContentMessage> RunDefaultContent(
    std::shared_ptr<DefaultContentRequestData> data) {
    const ImmutableString& station = ToolStation();
    auto request = ProviderHost::RequestDefaultProviderContent(data, station);
    return Await<GetDefaultContentMessage>(
        request, ProviderHost::GetHighPriorityProviderExecutor() != nullptr,
        [&](const GetDefaultContentMessage& m) { return m.data == data; });
}

std::optional<GetThumbnailMessage> RunThumbnail(
    ProviderWrapper& wrapper, std::shared_ptr<ProviderThumbnailRequestData> data) {
    auto request = wrapper.RequestThumbnail(data, ToolStation());
    return Await<GetThumbnailMessage>(request, ProviderHost::GetProviderExecutor() != nullptr,
                                      [&](const GetThumbnailMessage& m) { return m.data == data; });
}

}  // namespace Tessel::Tool
