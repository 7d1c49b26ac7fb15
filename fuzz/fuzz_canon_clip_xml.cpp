// Feeds arbitrary bytes to the Canon clip reader as a clip's XML file and, when they parse, fills
// a record with every field the listing shows from it (timecode, duration at the clip's rate,
// dates). Besides memory and UB faults it checks that a refused file leaves the record empty.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <tessel/metadata/XMPFields.h>
#include <tessel/providers/cards/ProviderCanonXF.h>

#include "FuzzHost.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return Tessel::Fuzz::StartHostWithoutProviders();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Tessel::CanonClipRecord clip;
    if (!Tessel::ReadCanonClipRecordFromBytes(bytes, u"AA0001.XML", clip)) {
        if (clip.duration != 0 || !clip.startTimecode.empty() || clip.good)
            std::abort();  // a refused file must not half-fill the record
        return 0;
    }
    static const Tessel::SDKFieldSet kFields = Tessel::GetXMPFieldNames();
    Tessel::SDKPropertyMap record;
    Tessel::FillCanonClipValues(record, kFields, clip);
    return 0;
}
