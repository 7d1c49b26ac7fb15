// Windows image decoding through GDI+, with the system's bitmap loader (LoadImageW) as the
// last resort for BMP files. Images are recognised and their headers checked first
// (ImageRecognition.h), exactly as on POSIX, so GDI+ only ever sees data that can hold the
// image the header announces, and never a size beyond the limits.
#include <tessel/platform/ImageDecoding.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <objidl.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

// The GDI+ headers use min and max unqualified.
using std::max;
using std::min;
#include <gdiplus.h>

#include <tessel/platform/ImageRecognition.h>

namespace Tessel::Platform {

namespace {

// GDI+ is started once per process, on first use, and never shut down: shutting it down
// is not allowed while the library is being unloaded, and the process's end frees it.
bool GdiplusStarted() {
    static const bool started = [] {
        Gdiplus::GdiplusStartupInput input;
        ULONG_PTR token = 0;
        return Gdiplus::GdiplusStartup(&token, &input, nullptr) == Gdiplus::Ok;
    }();
    return started;
}

struct StreamRelease {
    void operator()(IStream* stream) const { stream->Release(); }
};
using StreamPointer = std::unique_ptr<IStream, StreamRelease>;

// A stream over a copy of BYTES in movable global memory, which the stream frees.
StreamPointer StreamOver(std::span<const std::uint8_t> bytes) {
    HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
    if (!memory)
        return nullptr;
    void* data = GlobalLock(memory);
    if (!data) {
        GlobalFree(memory);
        return nullptr;
    }
    std::memcpy(data, bytes.data(), bytes.size());
    GlobalUnlock(memory);
    IStream* stream = nullptr;
    if (FAILED(CreateStreamOnHGlobal(memory, TRUE, &stream)) || !stream) {
        GlobalFree(memory);
        return nullptr;
    }
    StreamPointer owned(stream);
    // The block may be larger than asked for; the stream ends where the bytes do.
    ULARGE_INTEGER size;
    size.QuadPart = bytes.size();
    if (FAILED(owned->SetSize(size)))
        return nullptr;
    return owned;
}

// Copies the decoded picture out as 8-bit BGR or BGRA rows, top-down.
std::optional<DecodedBitmap> CopyPixels(Gdiplus::Bitmap& image,
                                        const ImageRecognition& recognition) {
    const UINT width = image.GetWidth(), height = image.GetHeight();
    if (width != recognition.width || height != recognition.height)
        return std::nullopt;
    // Read as straight BGRA in every case; GDI+ converts whatever it decoded.
    Gdiplus::Rect rectangle(0, 0, static_cast<INT>(width), static_cast<INT>(height));
    Gdiplus::BitmapData data{};
    if (image.LockBits(&rectangle, Gdiplus::ImageLockModeRead, PixelFormat32bppARGB, &data) !=
        Gdiplus::Ok)
        return std::nullopt;
    struct Unlock {
        Gdiplus::Bitmap& image;
        Gdiplus::BitmapData& data;
        ~Unlock() { image.UnlockBits(&data); }
    } unlock{image, data};
    const auto* first = static_cast<const std::uint8_t*>(data.Scan0);
    const auto rowAt = [&](UINT y) { return first + static_cast<std::ptrdiff_t>(y) * data.Stride; };

    // Whether alpha is kept follows the file, as on every platform: PNG by its colour type
    // and transparency chunk; GIF when its first frame leaves pixels transparent, which only
    // the pixels tell; BMP as GDI+ reads it (which ignores the fourth byte of plain 32-bit
    // pixels); JPEG never.
    bool alpha = false;
    switch (recognition.format) {
        case ImageFormat::Png:
            alpha = recognition.alpha;
            break;
        case ImageFormat::Gif:
            for (UINT y = 0; y < height && !alpha; ++y) {
                const std::uint8_t* row = rowAt(y);
                for (UINT x = 0; x < width && !alpha; ++x)
                    alpha = row[4 * x + 3] != 255;
            }
            break;
        case ImageFormat::Bmp:
            alpha = Gdiplus::IsAlphaPixelFormat(image.GetPixelFormat());
            break;
        case ImageFormat::Jpeg:
        case ImageFormat::Tga:
            break;
    }
    const unsigned channels = alpha ? 4 : 3;
    std::optional<DecodedBitmap> bitmap = NewDecodedBitmap(width, height, width, height, channels);
    if (!bitmap)
        return std::nullopt;
    for (UINT y = 0; y < height; ++y) {
        const std::uint8_t* in = rowAt(y);
        std::uint8_t* out = bitmap->pixels.data() + y * bitmap->rowBytes;
        if (alpha) {
            std::memcpy(out, in, bitmap->rowBytes);
            // A GIF's transparent pixels carry no colour.
            for (UINT x = 0; recognition.format == ImageFormat::Gif && x < width; ++x) {
                if (out[4 * x + 3] == 0)
                    std::memset(out + 4 * x, 0, 4);
            }
            continue;
        }
        for (UINT x = 0; x < width; ++x, in += 4, out += 3) {
            out[0] = in[0];
            out[1] = in[1];
            out[2] = in[2];
        }
    }
    return bitmap;
}

struct BitmapDelete {
    void operator()(HBITMAP bitmap) const { DeleteObject(bitmap); }
};

}  // namespace

std::optional<DecodedBitmap> DecodeImage(std::span<const std::uint8_t> bytes, std::uint32_t,
                                         std::uint32_t) {
    const std::optional<ImageRecognition> recognition = RecogniseImage(bytes);
    // GDI+ decodes everything at full size and has no TGA decoder.
    if (!recognition || recognition->format == ImageFormat::Tga ||
        !WithinDecodeLimits(recognition->width, recognition->height) || !GdiplusStarted())
        return std::nullopt;
    StreamPointer stream = StreamOver(bytes);
    if (!stream)
        return std::nullopt;
    // The picture holds the stream until it is destroyed, before the stream is released.
    Gdiplus::Bitmap image(stream.get(), FALSE);
    if (image.GetLastStatus() != Gdiplus::Ok)
        return std::nullopt;
    return CopyPixels(image, *recognition);
}

std::optional<DecodedBitmap> LoadBitmapFileWithSystem(const NativeString& path) {
    if (path.empty() || path.find(L'\0') != NativeString::npos)
        return std::nullopt;
    std::unique_ptr<std::remove_pointer_t<HBITMAP>, BitmapDelete> handle(
        static_cast<HBITMAP>(LoadImageW(nullptr, path.c_str(), IMAGE_BITMAP, 0, 0,
                                        LR_LOADFROMFILE | LR_CREATEDIBSECTION)));
    if (!handle)
        return std::nullopt;
    DIBSECTION section{};
    if (GetObjectW(handle.get(), sizeof section, &section) != sizeof section ||
        !section.dsBm.bmBits || section.dsBm.bmPlanes != 1 ||
        (section.dsBm.bmBitsPixel != 24 && section.dsBm.bmBitsPixel != 32))
        return std::nullopt;
    const auto width = static_cast<std::uint32_t>(std::max<LONG>(section.dsBm.bmWidth, 0));
    const auto height = static_cast<std::uint32_t>(std::max<LONG>(section.dsBm.bmHeight, 0));
    if (!WithinDecodeLimits(width, height))
        return std::nullopt;
    // Like GDI+, which reads no alpha from BMP files, only the colours are taken.
    const unsigned pixelBytes = section.dsBm.bmBitsPixel / 8;
    std::optional<DecodedBitmap> bitmap = NewDecodedBitmap(width, height, width, height, 3);
    if (!bitmap)
        return std::nullopt;
    // A DIB section is bottom-up unless its height is negative.
    const bool bottomUp = section.dsBmih.biHeight > 0;
    const auto* bits = static_cast<const std::uint8_t*>(section.dsBm.bmBits);
    for (std::uint32_t y = 0; y < height; ++y) {
        const std::uint8_t* in =
            bits + std::size_t{bottomUp ? height - 1 - y : y} * section.dsBm.bmWidthBytes;
        std::uint8_t* out = bitmap->pixels.data() + y * bitmap->rowBytes;
        for (std::uint32_t x = 0; x < width; ++x, in += pixelBytes, out += 3)
            std::memcpy(out, in, 3);
    }
    return bitmap;
}

}  // namespace Tessel::Platform
