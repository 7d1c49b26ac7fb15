// The pixel buffer: geometry, bottom-up row addressing, locking, bad sizes and disposal.
#include <tessel/media/PelPix.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

namespace Tessel {
namespace {

TEST(PelPix, RowbytesAreFourBytesAPixelRoundedUpToSixteen) {
    struct Case {
        std::uint32_t width;
        std::size_t rowbytes;
    };
    for (const Case c : {Case{1, 16}, Case{3, 16}, Case{4, 16}, Case{5, 32}, Case{8, 32},
                         Case{9, 48}, Case{32768, 131072}}) {
        PelPixHandle buffer = pelpixNew(c.width, 2);
        ASSERT_NE(buffer, nullptr) << c.width;
        EXPECT_EQ(pelpixGetWidth(buffer), c.width);
        EXPECT_EQ(pelpixGetHeight(buffer), 2u);
        EXPECT_EQ(pelpixGetRowbytes(buffer), c.rowbytes) << c.width;
        EXPECT_EQ(pelpixGetPixelAspectRatio(buffer), 1.0);
        pelpixDispose(buffer);
    }
}

TEST(PelPix, RowsAreStoredBottomUpAtRowbytesStrideAndStartCleared) {
    constexpr std::uint32_t kWidth = 3;  // 12 bytes of pixels, 4 of padding per row
    constexpr std::uint32_t kHeight = 5;
    PelPixHandle buffer = pelpixNew(kWidth, kHeight);
    ASSERT_NE(buffer, nullptr);
    {
        PelPixLock lock(buffer);
        const std::size_t rowbytes = pelpixGetRowbytes(buffer);
        ASSERT_NE(lock.Pixels(), nullptr);
        EXPECT_EQ(lock.Row(0), lock.Pixels());  // the first stored row is the bottom row
        EXPECT_EQ(lock.Row(kHeight - 1), lock.Pixels() + (kHeight - 1) * rowbytes);
        // Every byte, padding included, is cleared and belongs to the buffer (ASan checks
        // the last byte of the top row).
        for (std::uint32_t row = 0; row < kHeight; ++row) {
            for (std::size_t byte = 0; byte < rowbytes; ++byte) {
                ASSERT_EQ(lock.Row(row)[byte], 0) << row << "," << byte;
            }
        }
        for (std::uint32_t row = 0; row < kHeight; ++row)
            lock.Row(row)[0] = std::uint8_t(row + 1);
        lock.Row(kHeight - 1)[rowbytes - 1] = 0xEE;
    }
    {
        // Pixels keep their values across unlock and lock.
        PelPixLock again(buffer);
        for (std::uint32_t row = 0; row < kHeight; ++row)
            EXPECT_EQ(again.Row(row)[0], row + 1);
        EXPECT_EQ(again.Row(kHeight - 1)[pelpixGetRowbytes(buffer) - 1], 0xEE);
    }
    EXPECT_FALSE(pelpixIsLocked(buffer));
    pelpixDispose(buffer);
}

TEST(PelPix, LocksNestAndPixelsAreNullWhileUnlocked) {
    PelPixHandle buffer = pelpixNew(2, 2);
    ASSERT_NE(buffer, nullptr);
    EXPECT_FALSE(pelpixIsLocked(buffer));
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
    EXPECT_EQ(pelpixGetPixelAspectRatio(buffer), 0.9);
    pelpixSetPixelAspectRatio(buffer, 0.0);  // not a ratio: ignored
    pelpixSetPixelAspectRatio(buffer, -2.0);
    EXPECT_EQ(pelpixGetPixelAspectRatio(buffer), 0.9);
    pelpixDispose(buffer);
}

TEST(PelPix, ZeroAndAbsurdSizesGiveNullAndCountNothing) {
    const std::int64_t before = pelpixLiveCount();
    constexpr std::uint32_t kHuge = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ(pelpixNew(0, 0), nullptr);
    EXPECT_EQ(pelpixNew(0, 10), nullptr);
    EXPECT_EQ(pelpixNew(10, 0), nullptr);
    EXPECT_EQ(pelpixNew(32769, 1), nullptr);
    EXPECT_EQ(pelpixNew(1, 32769), nullptr);
    EXPECT_EQ(pelpixNew(kHuge, kHuge), nullptr);
    EXPECT_EQ(pelpixNew(kHuge, 1), nullptr);
    EXPECT_EQ(pelpixLiveCount(), before);

    PelPixHandle tallest = pelpixNew(1, 32768);  // the limit itself is allowed
    ASSERT_NE(tallest, nullptr);
    EXPECT_EQ(pelpixGetRowbytes(tallest), 16u);
    pelpixDispose(tallest);
    EXPECT_EQ(pelpixLiveCount(), before);
}

TEST(PelPix, NullHandlesAndHandlesToNoBufferAreHarmless) {
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
}

TEST(PelPix, LiveCountFollowsNewAndDisposeFromManyThreads) {
    const std::int64_t before = pelpixLiveCount();
    std::vector<PelPixHandle> kept;
    for (int i = 0; i < 3; ++i)
        kept.push_back(pelpixNew(4, 4));
    EXPECT_EQ(pelpixLiveCount(), before + 3);

    // Requests make and dispose thumbnails on several executor threads at once.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i)
                pelpixDispose(pelpixNew(8, 8));
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(pelpixLiveCount(), before + 3);

    for (PelPixHandle handle : kept)
        pelpixDispose(handle);
    EXPECT_EQ(pelpixLiveCount(), before);
}

}  // namespace
}  // namespace Tessel
