// A custom view that a provider contributes to the host's sidebar or content area. The
// view describes itself as a document the host can show (the browser panel embeds it).
#pragma once

#include <memory>
#include <string>

#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API CustomUIView {
public:
    virtual ~CustomUIView();
    // A stable identifier, unique per provider ("cloudsync.login").
    virtual std::string GetIdentifier() const = 0;
    virtual std::u16string GetTitle() const = 0;
    // The media type of GetDocument ("text/html", "text/plain").
    virtual std::string GetMediaType() const = 0;
    virtual std::string GetDocument() const = 0;
};

using CustomUIViewRef = std::shared_ptr<CustomUIView>;

}  // namespace Tessel
