// The pixel buffer (geometry, locking, bad sizes, disposal) and the video frames copied from it.
#include <tessel/media/PelPix.h>
#include <tessel/media/PelPixCount.h>
#include <tessel/media/VideoFrame.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>
#include <tuple>
#include <vector>

namespace Tessel {
namespace {

TEST(PelPix, SizesLimitsNullHandlesAndTheLiveCountAcrossThreads) {
    const std::int64_t before = pelpixLiveCount();
    constexpr std::uint32_t kHuge = std::numeric_limits<std::uint32_t>::max();
    // Four bytes a pixel rounded up to sixteen; 0 rowbytes: refused, nothing counted.
    using Case = std::tuple<std::uint32_t, std::uint32_t, std::size_t>;
    for (const auto& [width, height, rowbytes] :
         {Case{1, 2, 16}, Case{4, 2, 16}, Case{5, 2, 32}, Case{9, 2, 48}, Case{32768, 2, 131072},
          Case{1, 32768, 16}, Case{0, 10, 0}, Case{10, 0, 0}, Case{32769, 1, 0}, Case{1, 32769, 0},
          Case{kHuge, kHuge, 0}}) {
        const OwnedPelPix buffer(pelpixNew(width, height));
        EXPECT_EQ(pelpixLiveCount(), before + (buffer != nullptr));
        EXPECT_EQ(pelpixGetRowbytes(buffer.get()), rowbytes) << width << "x" << height;
        EXPECT_TRUE(!buffer || (pelpixGetWidth(buffer.get()) == width &&
                                pelpixGetHeight(buffer.get()) == height));
    }
    // A handle whose cell holds null (the host freed the buffer): disposing frees the cell.
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
    // Executor threads make and dispose thumbnails at once.
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

// A value that names its pixel: which stored row and which column.
std::uint32_t Marker(std::uint32_t x, std::uint32_t storedRow) {
    return 0xA0000000u | (storedRow << 8) | x;
}

TEST(VideoFrame, CopiesPaddedBottomUpRowsAndReadsFromTheTop) {
    constexpr std::uint32_t kWidth = 3, kHeight = 4;  // rows of 12 bytes padded to 16
    OwnedPelPix buffer(pelpixNew(kWidth, kHeight));
    {
        // A buffer starts cleared, padding included; then pixels get markers, padding 0xEE.
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
    std::memset(PelPixLock(buffer.get()).Pixels(), 0, 16 * kHeight);  // the frame has a copy
    buffer.reset();
    EXPECT_EQ(frame->GetRowBytes(), 16u);
    EXPECT_EQ(frame->GetPixelAspectRatio(), 0.9);
    for (std::uint32_t y = 0; y < kHeight; ++y)
        for (std::uint32_t x = 0; x < kWidth; ++x)
            EXPECT_EQ(frame->GetPixelBGRA(x, y), Marker(x, kHeight - 1 - y)) << x << "," << y;
    EXPECT_EQ(frame->GetPixels()[(kHeight - 1) * 16 + kWidth * 4], 0xEE);  // padding copied
    // Outside the picture there is no pixel, also not in the padding.
    EXPECT_EQ(frame->GetPixelBGRA(kWidth, 0), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0, kHeight), 0u);
    EXPECT_EQ(frame->GetPixelBGRA(0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
}

}  // namespace
}  // namespace Tessel
