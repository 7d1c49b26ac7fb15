// tessel thumb: thumbnails of items as PNG files, or one on the standard output.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "Commands.h"

namespace Tessel::Tool {

int RunThumbnail(const CommandOptions& options, std::ostream& out, std::ostream& err);

// Reads "WxH" (each 0..16384; 0 keeps the image's own size on that side).
std::optional<std::pair<std::uint32_t, std::uint32_t>> ParseThumbnailSize(const std::string& text);

}  // namespace Tessel::Tool
