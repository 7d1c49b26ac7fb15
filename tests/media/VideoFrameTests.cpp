// Video frames made from pixel buffers: an independent copy, read top-down from bottom-up rows.
#include <tessel/media/VideoFrame.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include <tessel/media/PelPix.h>

namespace Tessel::MF {
namespace {

// A value that names its pixel: which stored row and which column.
std::uint32_t Marker(std::uint32_t x, std::uint32_t storedRow) {
    return 0xA0000000u | (storedRow << 8) | x;
}

// Fills every pixel with its marker and every padding byte with 0xEE.
void Fill(PelPixHandle buffer) {
    PelPixLock lock(buffer);
    const std::size_t rowbytes = pelpixGetRowbytes(buffer);
    for (std::uint32_t row = 0; row < pelpixGetHeight(buffer); ++row) {
        std::uint8_t* bytes = lock.Row(row);
        std::memset(bytes, 0xEE, rowbytes);
        for (std::uint32_t x = 0; x < pelpixGetWidth(buffer); ++x)
            for (int channel = 0; channel < 4; ++channel)
                bytes[x * 4 + channel] = std::uint8_t(Marker(x, row) >> (8 * channel));
    }
}

TEST(VideoFrame, CopiesPaddedBottomUpRowsAndReadsFromTheTop) {
    constexpr std::uint32_t kWidth = 3;  // rows of 12 bytes padded to 16
    constexpr std::uint32_t kHeight = 4;
    PelPixHandle buffer = pelpixNew(kWidth, kHeight);
    ASSERT_NE(buffer, nullptr);
    Fill(buffer);
    pelpixSetPixelAspectRatio(buffer, 0.9);

    IVideoFrameRef frame = CreateVideoFrameFromPelPix(buffer);
    ASSERT_NE(frame, nullptr);
    EXPECT_FALSE(pelpixIsLocked(buffer)) << "the copy must give its lock back";

    // The buffer may change or go away at once: the frame holds its own pixels.
    {
        PelPixLock lock(buffer);
        std::memset(lock.Pixels(), 0, pelpixGetRowbytes(buffer) * kHeight);
    }
    pelpixDispose(buffer);

    EXPECT_EQ(frame->GetWidth(), kWidth);
    EXPECT_EQ(frame->GetHeight(), kHeight);
    EXPECT_EQ(frame->GetRowBytes(), 16u);
    EXPECT_EQ(frame->GetPixelFormat(), PixelFormat::BGRA8BottomUp);
    EXPECT_EQ(frame->GetPixelAspectRatio(), 0.9);
    for (std::uint32_t y = 0; y < kHeight; ++y)
        for (std::uint32_t x = 0; x < kWidth; ++x)
            EXPECT_EQ(frame->GetPixelBGRA(x, y), Marker(x, kHeight - 1 - y)) << x << "," << y;
    // The top-left pixel is the first pixel of the last stored row; padding is copied too.
    const std::uint8_t* topRow = frame->GetPixels() + (kHeight - 1) * frame->GetRowBytes();
    EXPECT_EQ(topRow[0], 0x00);  // B of Marker(0, 3) = 0xA0000300
    EXPECT_EQ(topRow[1], 0x03);  // G
    EXPECT_EQ(topRow[3], 0xA0);  // A
    EXPECT_EQ(topRow[kWidth * 4], 0xEE);

    // Outside the picture there is no pixel, also not in the padding.
    EXPECT_EQ(frame->GetPixelBGRA(kWidth, 0), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0, kHeight), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
}

TEST(VideoFrame, ALockHeldByTheCallerStaysHeldAndNoBufferGivesNoFrame) {
    PelPixHandle buffer = pelpixNew(1, 1);
    ASSERT_NE(buffer, nullptr);
    pelpixLockPixels(buffer);
    pelpixGetPixels(buffer)[2] = 0x7F;  // R
    IVideoFrameRef frame = CreateVideoFrameFromPelPix(buffer);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->GetPixelBGRA(0, 0), 0x007F0000u);
    EXPECT_TRUE(pelpixIsLocked(buffer));
    pelpixUnlockPixels(buffer);
    pelpixDispose(buffer);

    EXPECT_EQ(CreateVideoFrameFromPelPix(nullptr), nullptr);
    auto* empty = new PelPix*(nullptr);
    EXPECT_EQ(CreateVideoFrameFromPelPix(empty), nullptr);
    pelpixDispose(empty);
}

}  // namespace
}  // namespace Tessel::MF
