// PNG encoding of pixel buffers and video frames, for tools that show thumbnails to people.
// The stored rows are bottom-up BGRA; a PNG is written top row first as 8-bit RGBA, or as
// 8-bit RGB when every pixel is opaque.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/media/PelPix.h>
#include <tessel/media/VideoFrame.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

// Empty for a null handle, a null frame or a picture without pixels.
TESSEL_API std::vector<std::uint8_t> EncodePng(PelPixHandle handle);
TESSEL_API std::vector<std::uint8_t> EncodePng(const MF::IVideoFrame& frame);

// Writes FRAME to PATH (UTF-8) as PNG, replacing the file atomically. On failure PATH is
// untouched.
TESSEL_API Status WritePngFile(const MF::IVideoFrame& frame, const std::string& path);

}  // namespace Tessel
