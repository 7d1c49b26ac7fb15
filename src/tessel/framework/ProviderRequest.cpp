#include <tessel/framework/ProviderRequest.h>

#include <cstring>

#include <tessel/framework/ProviderHost.h>

namespace Tessel {

ProviderRequest::ProviderRequest() = default;
ProviderRequest::~ProviderRequest() = default;

void ProviderRequest::Initialize(const ImmutableString& station, ProviderWrapper* wrapper) {
    mStation = station;
    mWrapper = wrapper;
}

bool ProviderRequest::Start() { return StartOn(ProviderHost::GetProviderExecutor()); }

bool ProviderRequest::StartOn(const std::shared_ptr<Executor>& executor) {
    if (!executor) return false;
    // The task holds the request alive until Process has run, whoever else lets go of it.
    std::shared_ptr<ProviderRequest> self = shared_from_this();
    return executor->Post([self = std::move(self)] { self->Process(); });
}

void ProviderRequest::Abort() {
    std::int32_t expected = 0;
    mAbort.compare_exchange_strong(expected, 1);
}

bool ProviderRequest::GetAbort() {
    if (mSeenAbort) return true;
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
