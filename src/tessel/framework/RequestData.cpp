#include <tessel/framework/RequestData.h>

namespace Tessel {

DefaultContentRequestData::~DefaultContentRequestData() = default;
HasPossibleDirectoryContentRequestData::~HasPossibleDirectoryContentRequestData() = default;
ProviderThumbnailRequestData::~ProviderThumbnailRequestData() = default;

}  // namespace Tessel
