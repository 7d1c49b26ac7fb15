// Runs the library's requests for the tool: starts one, pumps the main thread until its
// completion message arrives, and turns Ctrl-C into an abort of the request.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>

namespace Tessel::Tool {

// The tool's own station, registered on first use.
const ImmutableString& ToolStation();

std::optional<GetProviderListMessage> RunProviderList(const std::u16string& path);
std::optional<GetContentMessage> RunContent(ProviderWrapper& wrapper, const std::u16string& path,
                                            const FieldSet& fields);
std::optional<GetDefaultContentMessage> RunDefaultContent(
    std::shared_ptr<DefaultContentRequestData> data);
std::optional<GetThumbnailMessage> RunThumbnail(ProviderWrapper& wrapper,
                                                std::shared_ptr<ProviderThumbnailRequestData> data);

}  // namespace Tessel::Tool
