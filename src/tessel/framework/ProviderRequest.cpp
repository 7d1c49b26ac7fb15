#include <tessel/framework/ProviderRequest.h>

#include <cstring>
#include <exception>
#include <string>

#include <tessel/foundation/Trace.h>
#include <tessel/framework/ProviderHost.h>

namespace Tessel {

namespace {

const std::string_view kTraceCategory = Trace::DeclareCategory("Requests");

}  // namespace

ProviderRequest::ProviderRequest() = default;
ProviderRequest::~ProviderRequest() = default;

void ProviderRequest::Initialize(const ImmutableString& station, ProviderWrapper* wrapper) {
    mStation = station;
    mWrapper = wrapper;
}

bool ProviderRequest::Start() {
    return StartOn(ProviderHost::GetProviderExecutor());
}

bool ProviderRequest::StartOn(const std::shared_ptr<Executor>& executor) {
    if (!executor)
        return false;
    // The task holds the request alive until Process has run, whoever else lets go of it.
    std::shared_ptr<ProviderRequest> self = shared_from_this();
    return executor->Post([self = std::move(self)] { self->Run(); });
}

void ProviderRequest::Run() noexcept {
    std::exception_ptr failure;
    try {
        Process();
        return;
    } catch (...) {
        failure = std::current_exception();
    }
    // Each step on its own: a trace that cannot be written must not cost the answer.
    try {
        if (Trace::IsEnabled(kTraceCategory)) {
            std::string what = "an exception of unknown type";
            try {
                std::rethrow_exception(failure);
            } catch (const std::exception& error) {
                what = error.what();
            } catch (...) {
            }
            Trace::Write(kTraceCategory, std::string(GetUnknownTypeName()) + " failed: " + what);
        }
    } catch (...) {
    }
    try {
        if (!mAnswered)
            AnswerFailure();
    } catch (...) {
        // Out of memory even for the answer: nothing more can be done on this thread.
    }
}

void ProviderRequest::Abort() {
    std::int32_t expected = 0;
    mAbort.compare_exchange_strong(expected, 1);
}

bool ProviderRequest::GetAbort() {
    if (mSeenAbort)
        return true;
    mSeenAbort = mAbort.exchange(0) == 1;
    return mSeenAbort;
}

AbortPredicate ProviderRequest::MakeAbortPredicate() {
    std::shared_ptr<ProviderRequest> self = shared_from_this();
    return [self = std::move(self)] { return self->GetAbort(); };
}

bool ProviderRequest::QueryMap(std::string_view className) const {
    return className == kClassName;
}

const char* ProviderRequest::GetUnknownTypeName() const {
    static const char* const name = kClassName;
    return name;
}

bool HighPriorityProviderRequest::Start() {
    return StartOn(ProviderHost::GetHighPriorityProviderExecutor());
}

bool HighPriorityProviderRequest::QueryMap(std::string_view className) const {
    return className == kClassName || ProviderRequest::QueryMap(className);
}

const char* HighPriorityProviderRequest::GetUnknownTypeName() const {
    static const char* const name = kClassName;
    return name;
}

}  // namespace Tessel
