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
// The same, handing the answer to ON_ANSWER as it is delivered instead of copying it out;
// false when no answer can come.
bool RunContent(ProviderWrapper& wrapper, const std::u16string& path, const FieldSet& fields,
                const std::function<void(const GetContentMessage&)>& onAnswer);
std::optional<GetDefaultContentMessage> RunDefaultContent(
    std::shared_ptr<DefaultContentRequestData> data);
std::optional<GetThumbnailMessage> RunThumbnail(ProviderWrapper& wrapper,
                                                std::shared_ptr<ProviderThumbnailRequestData> data);

}  // namespace Tessel::Tool
