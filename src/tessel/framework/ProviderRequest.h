// The base of every asynchronous question to a provider. A request is made through its
// class's factory, initialised with the station its completion message goes to, given its
// parameters, and started; it then runs on an executor thread and always ends by posting
// exactly one completion message (unless the host has shut down and disposed the station).
// Queued requests keep themselves alive until they have run, so a caller may let go of
// its reference at once. Abort is callable from any thread at any time.
//
// Whatever a request's work throws (a provider's own exception, std::bad_alloc, a
// std::bad_function_call from a callback set to an empty function) is caught where the
// executor runs it: the request traces it in the category "Requests" and answers with
// kResultFailed and an empty payload, so the caller still hears back and the host runs on.
#pragma once

#include <atomic>
#include <memory>

#include <tessel/foundation/ClassRef.h>
#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Executor.h>
#include <tessel/foundation/ImmutableString.h>
#include <tessel/foundation/Messaging.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class ProviderWrapper;

class TESSEL_API ProviderRequest : public IUnknownBase,
                                   public std::enable_shared_from_this<ProviderRequest> {
public:
    static constexpr const char* kClassName = "ProviderRequest";

    ~ProviderRequest() override;
    ProviderRequest(const ProviderRequest&) = delete;
    ProviderRequest& operator=(const ProviderRequest&) = delete;

    // Stores the station and the wrapper (null for requests that choose a provider).
    void Initialize(const ImmutableString& station, ProviderWrapper* wrapper);
    // Queues the request on its executor; false (nothing queued) when the host is not
    // initialised.
    virtual bool Start();
    // Sets the abort flag; a second call changes nothing.
    void Abort();
    // True once an abort has been observed; observing consumes the flag but the answer
    // stays true for the rest of the request's life. Meant for the thread running Process.
    bool GetAbort();
    // An abort predicate bound to this request (it holds a strong reference).
    AbortPredicate MakeAbortPredicate();

    const ImmutableString& GetStation() const { return mStation; }
    ProviderWrapper* GetWrapper() const { return mWrapper; }

    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

protected:
    ProviderRequest();
    // The work of the request kind, run on an executor thread; ends with Answer.
    virtual void Process() = 0;
    // Answers with this kind's completion message: an empty payload and kResultFailed.
    virtual void AnswerFailure() = 0;
    bool StartOn(const std::shared_ptr<Executor>& executor);

    // Sends MESSAGE to the station: the request's one answer.
    template <class Msg>
    void Answer(std::shared_ptr<Msg> message) {
        Messaging::Broadcast<Msg>(mStation, std::shared_ptr<const Msg>(std::move(message)));
        mAnswered = true;
    }

private:
    // Process, with every exception caught: a request that failed before it answered
    // answers with AnswerFailure.
    void Run() noexcept;

    ImmutableString mStation;
    ProviderWrapper* mWrapper = nullptr;
    std::atomic<std::int32_t> mAbort{0};
    bool mSeenAbort = false;
    bool mAnswered = false;  // touched only by the thread running Process
};

class TESSEL_API HighPriorityProviderRequest : public ProviderRequest {
public:
    static constexpr const char* kClassName = "HighPriorityProviderRequest";
    bool Start() override;
    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

protected:
    HighPriorityProviderRequest() = default;
};

}  // namespace Tessel
