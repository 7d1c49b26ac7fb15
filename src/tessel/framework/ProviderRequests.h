// The five request kinds. Each is made by ProviderHost or ProviderWrapper (which
// initialise, parameterise and start it) and answers with one completion message.
//   list, content, default content:        high-priority executor
//   thumbnail, has-possible-content:       low-priority executor
#pragma once

#include <memory>
#include <string>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/ProviderRequest.h>
#include <tessel/framework/RequestData.h>
#include <tessel/platform/Export.h>

namespace Tessel {

struct GetContentMessage;

class TESSEL_API ProviderListRequest : public HighPriorityProviderRequest {
public:
    static constexpr const char* kClassName = "ProviderListRequest";
    static ClassRef<ProviderListRequest> CreateClassRef();
    void SetRequestParams(const std::u16string& path, const any_regular_t& state);
    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

protected:
    void Process() override;
    void AnswerFailure() override;

    ProviderListRequest() = default;  // made only by CreateClassRef

private:
    std::u16string mPath;
    any_regular_t mState;
};

class TESSEL_API ProviderContentRequest : public HighPriorityProviderRequest {
public:
    static constexpr const char* kClassName = "ProviderContentRequest";
    static ClassRef<ProviderContentRequest> CreateClassRef();
    void SetRequestParams(const std::u16string& path, const any_regular_t& state,
                          const FieldSet& fields);
    const std::u16string& GetPath() const { return mPath; }
    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

protected:
    void Process() override;
    void AnswerFailure() override;

    ProviderContentRequest() = default;  // made only by CreateClassRef

private:
    // The message about this request, with an empty payload.
    std::shared_ptr<GetContentMessage> NewMessage(ResultCode result);

    std::u16string mPath;
    any_regular_t mState;
    FieldSet mFields;
};

class TESSEL_API ProviderDefaultContentRequest : public HighPriorityProviderRequest {
public:
    static constexpr const char* kClassName = "ProviderDefaultContentRequest";
    static ClassRef<ProviderDefaultContentRequest> CreateClassRef();
    void SetRequestParams(std::shared_ptr<DefaultContentRequestData> data);
    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

    // Keeps only the items that can themselves be opened: an item goes when it has no
    // "Path" string, when no provider answers for it (project-based ones not counted when
    // RESTRICTTOMEDIA), or when WRAPPER may not read it.
    static void RemoveNonContainerContent(ContentMap& content, const ProviderWrapper* wrapper,
                                          bool restrictToMedia);

protected:
    void Process() override;
    void AnswerFailure() override;

    ProviderDefaultContentRequest() = default;  // made only by CreateClassRef

private:
    std::shared_ptr<DefaultContentRequestData> mData;
};

class TESSEL_API ProviderThumbnailRequest : public ProviderRequest {
public:
    static constexpr const char* kClassName = "ProviderThumbnailRequest";
    static ClassRef<ProviderThumbnailRequest> CreateClassRef();
    void SetRequestParams(std::shared_ptr<ProviderThumbnailRequestData> data);
    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

protected:
    void Process() override;
    void AnswerFailure() override;

    ProviderThumbnailRequest() = default;  // made only by CreateClassRef

private:
    std::shared_ptr<ProviderThumbnailRequestData> mData;
};

class TESSEL_API HasPossibleDirectoryContentRequest : public ProviderRequest {
public:
    static constexpr const char* kClassName = "HasPossibleDirectoryContentRequest";
    static ClassRef<HasPossibleDirectoryContentRequest> CreateClassRef();
    void SetRequestParams(std::shared_ptr<HasPossibleDirectoryContentRequestData> data);
    bool QueryMap(std::string_view className) const override;
    const char* GetUnknownTypeName() const override;

protected:
    void Process() override;
    void AnswerFailure() override;

    HasPossibleDirectoryContentRequest() = default;  // made only by CreateClassRef

private:
    std::shared_ptr<HasPossibleDirectoryContentRequestData> mData;
};

}  // namespace Tessel
