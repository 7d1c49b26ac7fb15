// Feeds arbitrary bytes to the media-profile reader as a card's MEDIAPRO.XML, and splits the uris
// it finds as the XDCAM EX listing does to find takes and their clips. Besides memory and UB
// faults it checks that a refused file leaves the profile empty. Xerces is set up as a host does
// it, through ProviderHost::Initialize, with none of the library's providers.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <tessel/providers/cards/SonyMediaProfile.h>

#include "FuzzHost.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return Tessel::Fuzz::StartHostWithoutProviders();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Tessel::SonyMediaProfile profile;
    if (!Tessel::ReadSonyMediaProfileFromBytes(bytes, u"MEDIAPRO.XML", profile)) {
        if (!profile.materials.empty())
            std::abort();  // a refused file must not half-fill the profile
        return 0;
    }
    for (const Tessel::SonyMediaMaterial& material : profile.materials) {
        (void)Tessel::SonyMediaFolders(material.uri);
        for (const std::u16string& component : material.components)
            (void)Tessel::SonyMediaFolders(component);
    }
    return 0;
}
