// The pixel buffer: geometry, bottom-up row addressing, locking, bad sizes and disposal.
#include <tessel/media/PelPix.h>

#include <gtest/gtest.h>

#include <cstdint>
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
    for (const Case c : {Case{1, 2, 16}, Case{3, 2, 16}, Case{4, 2, 16}, Case{5, 2, 32},
                         Case{8, 2, 32}, Case{9, 2, 48}, Case{32768, 2, 131072}, Case{1, 32768, 16},
                         Case{0, 0, 0}, Case{0, 10, 0}, Case{10, 0, 0}, Case{32769, 1, 0},
                         Case{1, 32769, 0}, Case{kHuge, kHuge, 0}, Case{kHuge, 1, 0}}) {
        PelPixHandle buffer = pelpixNew(c.width, c.height);
        EXPECT_EQ(buffer != nullptr, c.rowbytes != 0) << c.width << "x" << c.height;
        EXPECT_EQ(pelpixLiveCount(), before + (buffer != nullptr));
        if (!buffer)
            continue;
        EXPECT_EQ(pelpixGetWidth(buffer), c.width);
        EXPECT_EQ(pelpixGetHeight(buffer), c.height);
        EXPECT_EQ(pelpixGetRowbytes(buffer), c.rowbytes) << c.width;
        EXPECT_EQ(pelpixGetPixelAspectRatio(buffer), 1.0);
        pelpixDispose(buffer);
    }
    EXPECT_EQ(pelpixLiveCount(), before);
}

TEST(PelPix, RowsAreStoredBottomUpAtRowbytesStrideAndStartCleared) {
    constexpr std::uint32_t kWidth = 3;  // 12 bytes of pixels, 4 of padding per row
    constexpr std::uint32_t kHeight = 5;
    PelPixHandle buffer = pelpixNew(kWidth, kHeight);
    ASSERT_NE(buffer, nullptr);
    const std::size_t rowbytes = pelpixGetRowbytes(buffer);
    {
        PelPixLock lock(buffer);
        ASSERT_NE(lock.Pixels(), nullptr);
        EXPECT_EQ(lock.Row(0), lock.Pixels());  // the first stored row is the bottom row
        EXPECT_EQ(lock.Row(kHeight - 1), lock.Pixels() + (kHeight - 1) * rowbytes);
        // Every byte, padding included, is cleared and belongs to the buffer (ASan checks
        // the last byte of the top row).
        for (std::uint32_t row = 0; row < kHeight; ++row) {
            for (std::size_t byte = 0; byte < rowbytes; ++byte)
                ASSERT_EQ(lock.Row(row)[byte], 0) << row << "," << byte;
            lock.Row(row)[0] = std::uint8_t(row + 1);
        }
        lock.Row(kHeight - 1)[rowbytes - 1] = 0xEE;
    }
    {
        // Pixels keep their values across unlock and lock.
        PelPixLock again(buffer);
        for (std::uint32_t row = 0; row < kHeight; ++row)
            EXPECT_EQ(again.Row(row)[0], row + 1);
        EXPECT_EQ(again.Row(kHeight - 1)[rowbytes - 1], 0xEE);
    }
    EXPECT_FALSE(pelpixIsLocked(buffer));
    pelpixDispose(buffer);
}

TEST(PelPix, LocksNestAndPixelsAreNullWhileUnlocked) {
    PelPixHandle buffer = pelpixNew(2, 2);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(pelpixGetPixels(buffer), nullptr);

    pelpixLockPixels(buffer);
    std::uint8_t* const pixels = pelpixGetPixels(buffer);
    ASSERT_NE(pixels, nullptr);
    pelpixLockPixels(buffer);
    EXPECT_EQ(pelpixGetPixels(buffer), pixels);
    pelpixUnlockPixels(buffer);
    EXPECT_TRUE(pelpixIsLocked(buffer)) << "one lock is still held";
    EXPECT_EQ(pelpixGetPixels(buffer), pixels);
    pelpixUnlockPixels(buffer);
    EXPECT_FALSE(pelpixIsLocked(buffer));
    EXPECT_EQ(pelpixGetPixels(buffer), nullptr);

    // An unlock too many is ignored rather than owed: the next lock locks.
    pelpixUnlockPixels(buffer);
    pelpixUnlockPixels(buffer);
    pelpixLockPixels(buffer);
    EXPECT_TRUE(pelpixIsLocked(buffer));
    EXPECT_NE(pelpixGetPixels(buffer), nullptr);
    pelpixUnlockPixels(buffer);
    EXPECT_FALSE(pelpixIsLocked(buffer));

    pelpixSetPixelAspectRatio(buffer, 0.9);
    pelpixSetPixelAspectRatio(buffer, 0.0);  // not a ratio: ignored
    pelpixSetPixelAspectRatio(buffer, -2.0);
    EXPECT_EQ(pelpixGetPixelAspectRatio(buffer), 0.9);
    pelpixDispose(buffer);
}

TEST(PelPix, NullHandlesAreHarmlessAndTheLiveCountHoldsAcrossThreads) {
    const std::int64_t before = pelpixLiveCount();
    pelpixDispose(nullptr);

    // A handle whose cell holds null, as a host may pass after freeing the buffer itself.
    auto* empty = new PelPix*(nullptr);
    for (PelPixHandle handle : {static_cast<PelPixHandle>(nullptr), empty}) {
        EXPECT_EQ(pelpixGetWidth(handle), 0u);
        EXPECT_EQ(pelpixGetHeight(handle), 0u);
        EXPECT_EQ(pelpixGetRowbytes(handle), 0u);
        pelpixLockPixels(handle);
        EXPECT_FALSE(pelpixIsLocked(handle));
        EXPECT_EQ(pelpixGetPixels(handle), nullptr);
        pelpixUnlockPixels(handle);
        pelpixSetPixelAspectRatio(handle, 2.0);
        EXPECT_EQ(pelpixGetPixelAspectRatio(handle), 1.0);
    }
    pelpixDispose(empty);  // frees the cell (ASan reports a leak otherwise), counts nothing
    EXPECT_EQ(pelpixLiveCount(), before);

    // Requests make and dispose thumbnails on several executor threads at once.
    PelPixHandle kept = pelpixNew(4, 4);
    EXPECT_EQ(pelpixLiveCount(), before + 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i)
                pelpixDispose(pelpixNew(8, 8));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(pelpixLiveCount(), before + 1);
    pelpixDispose(kept);
    EXPECT_EQ(pelpixLiveCount(), before);
}

}  // namespace
}  // namespace Tessel
