// Feeds arbitrary bytes to the XDCAM disc readers: as the disc's DISCMETA.XML, and as a clip's
// non-real-time metadata (M01.XML) with the start timecode the listing shows from it. Besides
// memory and UB faults it checks that a refused file leaves the records empty. Xerces is set up
// as a host does it, through ProviderHost::Initialize, with none of the library's providers.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <tessel/providers/cards/ProviderXDCAM.h>
#include <tessel/providers/cards/SonyClipMetadata.h>

#include "FuzzHost.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return Tessel::Fuzz::StartHostWithoutProviders();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Tessel::XDCAMDiscMeta disc;
    if (!Tessel::ReadXDCAMDiscMetaFromBytes(bytes, u"DISCMETA.XML", disc) &&
        !disc.lastUpdate.empty())
        std::abort();
    Tessel::SonyClipMetadata clip;
    if (Tessel::ReadSonyClipMetadataFromBytes(bytes, u"C0001M01.XML", clip))
        (void)Tessel::SonyDisplayStartTimecode(clip);
    return 0;
}
