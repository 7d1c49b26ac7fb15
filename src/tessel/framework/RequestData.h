// Parameter records of the requests that take one. They are shared between the caller and
// the request and come back in the completion message, so the caller can match an answer
// to its question.
#pragma once

#include <cstdint>
#include <string>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API DefaultContentRequestData {
public:
    DefaultContentRequestData() = default;
    DefaultContentRequestData(std::u16string path, any_regular_t state, std::u16string providerID,
                              bool restrictProvidersToMedia)
        : mPath(std::move(path)),
          mState(std::move(state)),
          mProviderID(std::move(providerID)),
          mRestrictProvidersToMedia(restrictProvidersToMedia) {}
    DefaultContentRequestData(const DefaultContentRequestData&) = default;
    DefaultContentRequestData& operator=(const DefaultContentRequestData&) = default;
    virtual ~DefaultContentRequestData();

    const std::u16string& GetPath() const { return mPath; }
    const any_regular_t& GetProviderState() const { return mState; }
    const std::u16string& GetProviderID() const { return mProviderID; }
    bool GetRestrictProvidersToMedia() const { return mRestrictProvidersToMedia; }

private:
    std::u16string mPath;
    any_regular_t mState;
    std::u16string mProviderID;
    bool mRestrictProvidersToMedia = false;
};

class TESSEL_API HasPossibleDirectoryContentRequestData {
public:
    HasPossibleDirectoryContentRequestData() = default;
    HasPossibleDirectoryContentRequestData(std::u16string path, any_regular_t state)
        : mPath(std::move(path)), mState(std::move(state)) {}
    HasPossibleDirectoryContentRequestData(const HasPossibleDirectoryContentRequestData&) = default;
    HasPossibleDirectoryContentRequestData& operator=(
        const HasPossibleDirectoryContentRequestData&) = default;
    virtual ~HasPossibleDirectoryContentRequestData();

    const std::u16string& GetPath() const { return mPath; }
    const any_regular_t& GetProviderState() const { return mState; }

private:
    std::u16string mPath;
    any_regular_t mState;
};

class TESSEL_API ProviderThumbnailRequestData {
public:
    ProviderThumbnailRequestData() = default;
    ProviderThumbnailRequestData(std::u16string itemPath, std::u16string extraPath,
                                 any_regular_t state, std::int32_t width, std::int32_t height)
        : mItemPath(std::move(itemPath)),
          mExtraPath(std::move(extraPath)),
          mState(std::move(state)),
          mWidth(width),
          mHeight(height) {}
    ProviderThumbnailRequestData(const ProviderThumbnailRequestData&) = default;
    ProviderThumbnailRequestData& operator=(const ProviderThumbnailRequestData&) = default;
    virtual ~ProviderThumbnailRequestData();

    const std::u16string& GetItemPath() const { return mItemPath; }
    const std::u16string& GetExtraPath() const { return mExtraPath; }
    const any_regular_t& GetProviderState() const { return mState; }
    std::int32_t GetWidth() const { return mWidth; }
    std::int32_t GetHeight() const { return mHeight; }

private:
    std::u16string mItemPath;
    std::u16string mExtraPath;
    any_regular_t mState;
    std::int32_t mWidth = 0;
    std::int32_t mHeight = 0;
};

}  // namespace Tessel
