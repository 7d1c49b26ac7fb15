// Feeds arbitrary bytes to the P2 clip reader as the content of a clip XML file, and, when
// they parse, reads the start timecode the listing shows from them. Besides memory and UB
// faults it checks that a refused file leaves the record empty. Xerces is set up as a host
// does it, through ProviderHost::Initialize, with none of the library's providers.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <tessel/providers/cards/ProviderP2.h>

#include "FuzzHost.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return Tessel::Fuzz::StartHostWithoutProviders();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Tessel::P2ClipRecord record;
    if (!Tessel::ReadP2ClipRecordFromBytes(bytes, u"CLIP.XML", record)) {
        if (!record.clipName.empty() && record.globalClipID.empty())
            std::abort();  // a refused file must not half-fill the record
        return 0;
    }
    (void)Tessel::P2DisplayStartTimecode(record);
    return 0;
}
