// Feeds arbitrary bytes to the XDCAM clip table reader as the content of a disc's INDEX.XML,
// and turns what it reads into the disc's known files. Besides memory and UB faults it checks
// that a refused file leaves no clip behind. Xerces is set up as a host does it, through
// ProviderHost::Initialize, with none of the library's providers.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <tessel/providers/cards/ProviderXDCAM.h>

#include "FuzzHost.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return Tessel::Fuzz::StartHostWithoutProviders();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::vector<Tessel::XDCAMClipTableEntry> clips;
    if (!Tessel::ReadXDCAMClipTableFromBytes(bytes, u"INDEX.XML", clips)) {
        if (!clips.empty())
            std::abort();  // a refused file adds no clip
        return 0;
    }
    (void)Tessel::XDCAMKnownFiles(u"DISC", clips);
    return 0;
}
