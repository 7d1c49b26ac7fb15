// Feeds arbitrary bytes to the AVCHD clip information reader as the content of a card's .CPI
// file, and turns what it reads into the values shown for a shot. Besides memory and UB faults
// it checks that a refused file leaves nothing behind.
#include <cstdint>
#include <cstdlib>
#include <span>

#include <tessel/providers/cards/AVCHDMetadata.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Tessel::AVCHDClipInfo info;
    info.makerID = 1;
    if (!Tessel::ReadAVCHDClipInfo(std::span<const std::uint8_t>(data, size), info)) {
        if (info.makerID != 0 || !info.globalClipID.empty() || info.videoFormat != 0)
            std::abort();  // a refused file reads as nothing
        return 0;
    }
    (void)Tessel::AVCHDShotValues(nullptr, 0, &info);
    return 0;
}
