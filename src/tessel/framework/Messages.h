// Completion messages of the requests, and the notifications of the provider host. All
// are posted to ProviderHost::sProviderHostStation (or the station a request was given)
// and delivered on the host's main thread. Every completion message ends with a result
// code: kResultSuccess, kResultNothingFound, kResultAborted (its payload is then empty or
// partial and must be ignored) or kResultFailed (the request's work threw; the payload is
// empty).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tessel/foundation/ClassRef.h>
#include <tessel/foundation/Messaging.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/RequestData.h>
#include <tessel/media/VideoFrame.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class ProviderWrapper;
class ProviderContentRequest;

struct MessageNameForGetProviderListMessage {};
struct MessageNameForGetContentMessage {};
struct MessageNameForGetDefaultContentMessage {};
struct MessageNameForGetThumbnailMessage {};
struct MessageNameForHasPossibleDirectoryContentMessage {};
struct MessageNameForFavoritesChanged {};
struct MessageNameForRequestForceUpdateMessage {};

struct TESSEL_API GetProviderListMessage : MessageBase {
    using Name = MessageNameForGetProviderListMessage;
    std::u16string path;
    std::vector<ProviderWrapper*> providers;  // best first
    ResultCode result = kResultSuccess;
    std::vector<int> scores;  // the providers' scores, parallel to `providers`
};

struct TESSEL_API GetContentMessage : MessageBase {
    using Name = MessageNameForGetContentMessage;
    ContentMap content;
    std::u16string path;
    FieldSet fields;
    const ProviderWrapper* wrapper = nullptr;
    ClassRef<ProviderContentRequest> request;
    ResultCode result = kResultSuccess;
};

struct TESSEL_API GetDefaultContentMessage : MessageBase {
    using Name = MessageNameForGetDefaultContentMessage;
    ContentMap content;
    FieldSet fields;
    const ProviderWrapper* wrapper = nullptr;  // the provider that produced the content
    std::shared_ptr<DefaultContentRequestData> data;
    ResultCode result = kResultSuccess;
};

struct TESSEL_API GetThumbnailMessage : MessageBase {
    using Name = MessageNameForGetThumbnailMessage;
    MF::IVideoFrameRef frame;  // null when there is none
    std::shared_ptr<ProviderThumbnailRequestData> data;
    ResultCode result = kResultSuccess;
};

struct TESSEL_API HasPossibleDirectoryContentMessage : MessageBase {
    using Name = MessageNameForHasPossibleDirectoryContentMessage;
    std::u16string path;
    bool answer = false;
    std::shared_ptr<HasPossibleDirectoryContentRequestData> data;
    ResultCode result = kResultSuccess;
};

struct TESSEL_API FavoritesChangedMessage : MessageBase {
    using Name = MessageNameForFavoritesChanged;
};

struct TESSEL_API RequestForceUpdateMessage : MessageBase {
    using Name = MessageNameForRequestForceUpdateMessage;
};

}  // namespace Tessel
