#include <tessel/framework/ProviderRequests.h>

#include <tessel/foundation/Messaging.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/framework/ProviderWrapper.h>

namespace Tessel {

namespace {

// A factory reaching the private constructor of each request kind.
template <class T>
ClassRef<T> MakeRequest() {
    struct Made : T {};
    return std::make_shared<Made>();
}

}  // namespace

#define TESSEL_REQUEST_IDENTITY(Class, Base)                         \
    bool Class::QueryMap(std::string_view className) const {         \
        return className == kClassName || Base::QueryMap(className); \
    }                                                                \
    const char* Class::GetUnknownTypeName() const {                  \
        static const char* const name = kClassName;                  \
        return name;                                                 \
    }                                                                \
    ClassRef<Class> Class::CreateClassRef() {                        \
        return MakeRequest<Class>();                                 \
    }

TESSEL_REQUEST_IDENTITY(ProviderListRequest, HighPriorityProviderRequest)
TESSEL_REQUEST_IDENTITY(ProviderContentRequest, HighPriorityProviderRequest)
TESSEL_REQUEST_IDENTITY(ProviderDefaultContentRequest, HighPriorityProviderRequest)
TESSEL_REQUEST_IDENTITY(ProviderThumbnailRequest, ProviderRequest)
TESSEL_REQUEST_IDENTITY(HasPossibleDirectoryContentRequest, ProviderRequest)
#undef TESSEL_REQUEST_IDENTITY

void ProviderListRequest::SetRequestParams(const std::u16string& path, const any_regular_t& state) {
    mPath = path;
    mState = state;
}

void ProviderListRequest::Process() {
    auto message = std::make_shared<GetProviderListMessage>();
    message->path = mPath;
    message->result = kResultNothingFound;
    if (!GetAbort()) {
        message->providers = ProviderHost::SelectProviders(
            mPath, mState, this, MakeAbortPredicate(), false, &message->scores);
        message->result = message->providers.empty() ? kResultNothingFound : kResultSuccess;
    }
    if (GetAbort()) {
        message->providers.clear();
        message->scores.clear();
        message->result = kResultAborted;
    }
    Answer(std::move(message));
}

void ProviderListRequest::AnswerFailure() {
    auto message = std::make_shared<GetProviderListMessage>();
    message->path = mPath;
    message->result = kResultFailed;
    Answer(std::move(message));
}

void ProviderContentRequest::SetRequestParams(const std::u16string& path,
                                              const any_regular_t& state, const FieldSet& fields) {
    mPath = path;
    mState = state;
    mFields = fields;
}

std::shared_ptr<GetContentMessage> ProviderContentRequest::NewMessage(ResultCode result) {
    auto message = std::make_shared<GetContentMessage>();
    message->path = mPath;
    message->fields = mFields;
    message->wrapper = GetWrapper();
    message->request = std::static_pointer_cast<ProviderContentRequest>(shared_from_this());
    message->result = result;
    return message;
}

void ProviderContentRequest::AnswerFailure() {
    Answer(NewMessage(kResultFailed));
}

void ProviderContentRequest::Process() {
    auto message = NewMessage(kResultSuccess);
    if (!GetAbort() && GetWrapper()) {
        message->content = GetWrapper()->GetContent(mPath, mState, mFields, this);
    }
    if (GetAbort())
        message->result = kResultAborted;
    Answer(std::move(message));
}

void ProviderDefaultContentRequest::SetRequestParams(
    std::shared_ptr<DefaultContentRequestData> data) {
    mData = std::move(data);
}

void ProviderDefaultContentRequest::RemoveNonContainerContent(ContentMap& content,
                                                              const ProviderWrapper* wrapper,
                                                              bool restrictToMedia) {
    for (auto it = content.begin(); it != content.end();) {
        const PropertyMap& record = it->second;
        std::u16string path;
        if (auto p = record.find(kPathField); p != record.end()) {
            if (const auto* wide = p->second.get_if<std::u16string>())
                path = *wide;
        }
        any_regular_t state;
        if (auto s = record.find(kStateField); s != record.end())
            state = s->second;
        const bool remove = path.empty() ||
                            !ProviderHost::HasProvider(path, state, restrictToMedia) ||
                            (wrapper && !wrapper->PathHasAccessPermission(path));
        it = remove ? content.erase(it) : std::next(it);
    }
}

void ProviderDefaultContentRequest::AnswerFailure() {
    auto message = std::make_shared<GetDefaultContentMessage>();
    message->data = mData;
    message->fields = {kNameField, kPathField};
    message->result = kResultFailed;
    Answer(std::move(message));
}

void ProviderDefaultContentRequest::Process() {
    auto message = std::make_shared<GetDefaultContentMessage>();
    message->data = mData;
    message->fields = {kNameField, kPathField};
    message->result = kResultNothingFound;
    const DefaultContentRequestData data = mData ? *mData : DefaultContentRequestData();
    if (!GetAbort()) {
        std::vector<ProviderWrapper*> providers = ProviderHost::SelectProviders(
            data.GetPath(), data.GetProviderState(), this, MakeAbortPredicate(), false);
        if (!providers.empty()) {
            ProviderWrapper* chosen = providers.front();
            if (data.GetProviderID() != ProviderHost::sBestProvider) {
                for (ProviderWrapper* candidate : providers) {
                    if (candidate->GetIdentification() == data.GetProviderID()) {
                        chosen = candidate;
                        break;
                    }
                }
            }
            message->wrapper = chosen;
            message->content =
                chosen->GetContent(data.GetPath(), data.GetProviderState(), message->fields, this);
            RemoveNonContainerContent(message->content, chosen, data.GetRestrictProvidersToMedia());
            message->result = kResultSuccess;
        }
    }
    if (GetAbort())
        message->result = kResultAborted;
    Answer(std::move(message));
}

void ProviderThumbnailRequest::SetRequestParams(
    std::shared_ptr<ProviderThumbnailRequestData> data) {
    mData = std::move(data);
}

void ProviderThumbnailRequest::Process() {
    auto message = std::make_shared<GetThumbnailMessage>();
    message->data = mData;
    if (!GetAbort() && GetWrapper() && mData) {
        message->frame = GetWrapper()->GetThumbnail(
            mData->GetItemPath(), mData->GetExtraPath(), mData->GetProviderState(),
            static_cast<std::uint32_t>(std::max(0, mData->GetWidth())),
            static_cast<std::uint32_t>(std::max(0, mData->GetHeight())), this);
    }
    message->result = message->frame ? kResultSuccess : kResultNothingFound;
    if (GetAbort())
        message->result = kResultAborted;
    Answer(std::move(message));
}

void ProviderThumbnailRequest::AnswerFailure() {
    auto message = std::make_shared<GetThumbnailMessage>();
    message->data = mData;
    message->result = kResultFailed;
    Answer(std::move(message));
}

void HasPossibleDirectoryContentRequest::SetRequestParams(
    std::shared_ptr<HasPossibleDirectoryContentRequestData> data) {
    mData = std::move(data);
}

void HasPossibleDirectoryContentRequest::Process() {
    auto message = std::make_shared<HasPossibleDirectoryContentMessage>();
    message->data = mData;
    const HasPossibleDirectoryContentRequestData data =
        mData ? *mData : HasPossibleDirectoryContentRequestData();
    message->path = data.GetPath();
    // An abort shows as an empty selection: false with "nothing found".
    std::vector<ProviderWrapper*> providers = ProviderHost::SelectProviders(
        data.GetPath(), data.GetProviderState(), this, MakeAbortPredicate(), false);
    if (providers.empty()) {
        message->answer = false;
        message->result = kResultNothingFound;
    } else {
        message->answer = providers.front()->GetHasPossibleDirectoryContent(
            data.GetPath(), data.GetProviderState());
        message->result = kResultSuccess;
    }
    Answer(std::move(message));
}

void HasPossibleDirectoryContentRequest::AnswerFailure() {
    auto message = std::make_shared<HasPossibleDirectoryContentMessage>();
    message->data = mData;
    message->path = mData ? mData->GetPath() : std::u16string();
    message->result = kResultFailed;
    Answer(std::move(message));
}

}  // namespace Tessel
