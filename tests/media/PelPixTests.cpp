// The pixel buffer (geometry, bottom-up rows, locking, bad sizes, disposal) and the video
// frames made from it: an independent copy, read top-down from bottom-up rows.
#include <tessel/media/PelPix.h>
#include <tessel/media/VideoFrame.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace Tessel {
namespace {

TEST(PelPix, SizesRowbytesAndLimits) {
    const std::int64_t before = pelpixLiveCount();
    constexpr std::uint32_t kHuge = std::numeric_limits<std::uint32_t>::max();
    // Four bytes a pixel rounded up to sixteen; 0 rowbytes: refused, nothing counted.
    struct Case {
        std::uint32_t width, height;
        std::size_t rowbytes;
    };
    for (const Case c : {Case{1, 2, 16}, Case{4, 2, 16}, Case{5, 2, 32}, Case{9, 2, 48},
                         Case{32768, 2, 131072}, Case{1, 32768, 16}, Case{0, 10, 0}, Case{10, 0, 0},
                         Case{32769, 1, 0}, Case{1, 32769, 0}, Case{kHuge, kHuge, 0}}) {
        const OwnedPelPix buffer(pelpixNew(c.width, c.height));
        EXPECT_EQ(pelpixLiveCount(), before + (buffer != nullptr));
        EXPECT_EQ(pelpixGetRowbytes(buffer.get()), c.rowbytes) << c.width << "x" << c.height;
        if (buffer) {
            EXPECT_EQ(pelpixGetWidth(buffer.get()), c.width);
            EXPECT_EQ(pelpixGetHeight(buffer.get()), c.height);
        }
    }
    EXPECT_EQ(pelpixLiveCount(), before);
}

TEST(PelPix, LocksNestAndPixelsAreNullWhileUnlocked) {
    const OwnedPelPix owned(pelpixNew(2, 2));
    PelPixHandle buffer = owned.get();
    EXPECT_EQ(pelpixGetPixels(buffer), nullptr);
    pelpixLockPixels(buffer);
    std::uint8_t* const pixels = pelpixGetPixels(buffer);
    ASSERT_NE(pixels, nullptr);
    pelpixLockPixels(buffer);
    pelpixUnlockPixels(buffer);
    EXPECT_EQ(pelpixGetPixels(buffer), pixels) << "one lock is still held";
    pelpixUnlockPixels(buffer);
    EXPECT_EQ(pelpixGetPixels(buffer), nullptr);
    // An unlock too many is ignored rather than owed: the next lock locks.
    pelpixUnlockPixels(buffer);
    pelpixLockPixels(buffer);
    EXPECT_TRUE(pelpixIsLocked(buffer));
    pelpixUnlockPixels(buffer);
    EXPECT_FALSE(pelpixIsLocked(buffer));
    pelpixSetPixelAspectRatio(buffer, 0.9);
    pelpixSetPixelAspectRatio(buffer, 0.0);  // not a ratio: ignored
    pelpixSetPixelAspectRatio(buffer, -2.0);
    EXPECT_EQ(pelpixGetPixelAspectRatio(buffer), 0.9);
}

TEST(PelPix, NullHandlesAreHarmlessAndTheLiveCountHoldsAcrossThreads) {
    const std::int64_t before = pelpixLiveCount();
    // A handle whose cell holds null, as a host may pass after freeing the buffer itself;
    // disposing frees the cell (LeakSanitizer reports it otherwise) and counts nothing.
    const OwnedPelPix empty(new PelPix*(nullptr));
    for (PelPixHandle handle : {static_cast<PelPixHandle>(nullptr), empty.get()}) {
        EXPECT_EQ(pelpixGetWidth(handle) + pelpixGetHeight(handle) + pelpixGetRowbytes(handle), 0u);
        pelpixLockPixels(handle);
        EXPECT_FALSE(pelpixIsLocked(handle));
        EXPECT_EQ(pelpixGetPixels(handle), nullptr);
        pelpixUnlockPixels(handle);
        pelpixSetPixelAspectRatio(handle, 2.0);
        EXPECT_EQ(pelpixGetPixelAspectRatio(handle), 1.0);
        EXPECT_EQ(MF::CreateVideoFrameFromPelPix(handle), nullptr);
    }
    pelpixDispose(nullptr);
    // Requests make and dispose thumbnails on several executor threads at once.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i)
                const OwnedPelPix made(pelpixNew(8, 8));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(pelpixLiveCount(), before);
}

// A value that names its pixel: which stored row and which column.
std::uint32_t Marker(std::uint32_t x, std::uint32_t storedRow) {
    return 0xA0000000u | (storedRow << 8) | x;
}

TEST(VideoFrame, CopiesPaddedBottomUpRowsAndReadsFromTheTop) {
    constexpr std::uint32_t kWidth = 3;  // rows of 12 bytes padded to 16
    constexpr std::uint32_t kHeight = 4;
    OwnedPelPix buffer(pelpixNew(kWidth, kHeight));
    ASSERT_NE(buffer, nullptr);
    {
        // Every pixel holds its marker and every padding byte 0xEE; a buffer starts cleared,
        // padding included (ASan checks the last byte of the top row).
        PelPixLock lock(buffer.get());
        EXPECT_EQ(lock.Row(0), lock.Pixels()) << "the first stored row is the bottom row";
        for (std::uint32_t row = 0; row < kHeight; ++row) {
            std::uint8_t* bytes = lock.Row(row);
            for (std::size_t byte = 0; byte < 16; ++byte)
                ASSERT_EQ(bytes[byte], 0) << row << "," << byte;
            std::memset(bytes, 0xEE, 16);
            for (std::uint32_t x = 0; x < kWidth; ++x)
                for (int channel = 0; channel < 4; ++channel)
                    bytes[x * 4 + channel] = std::uint8_t(Marker(x, row) >> (8 * channel));
        }
    }
    pelpixSetPixelAspectRatio(buffer.get(), 0.9);
    pelpixLockPixels(buffer.get());  // a lock held by the caller stays held
    MF::IVideoFrameRef frame = MF::CreateVideoFrameFromPelPix(buffer.get());
    ASSERT_NE(frame, nullptr);
    EXPECT_TRUE(pelpixIsLocked(buffer.get()));
    pelpixUnlockPixels(buffer.get());
    EXPECT_FALSE(pelpixIsLocked(buffer.get())) << "the copy must give its own lock back";
    // The buffer may change or go away at once: the frame holds its own pixels.
    {
        PelPixLock lock(buffer.get());
        std::memset(lock.Pixels(), 0, 16 * kHeight);
    }
    buffer.reset();
    EXPECT_EQ(frame->GetRowBytes(), 16u);
    EXPECT_EQ(frame->GetPixelAspectRatio(), 0.9);
    for (std::uint32_t y = 0; y < kHeight; ++y)
        for (std::uint32_t x = 0; x < kWidth; ++x)
            EXPECT_EQ(frame->GetPixelBGRA(x, y), Marker(x, kHeight - 1 - y)) << x << "," << y;
    // Padding is copied too.
    EXPECT_EQ(frame->GetPixels()[(kHeight - 1) * frame->GetRowBytes() + kWidth * 4], 0xEE);
    // Outside the picture there is no pixel, also not in the padding.
    EXPECT_EQ(frame->GetPixelBGRA(kWidth, 0), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0, kHeight), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
}

}  // namespace
}  // namespace Tessel
