// Feeds arbitrary bytes to the XDCAM clip table reader as the content of a disc's INDEX.XML,
// and turns what it reads into the disc's known files. Besides memory and UB faults it checks
// that a refused file leaves no clip behind. Xerces is set up as a host does it, through
// ProviderHost::Initialize, with none of the library's providers.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/cards/ProviderXDCAM.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Tessel::MainThread::SetCurrent();
    Tessel::Settings::Set(Tessel::kSettingRegisterBuiltInProviders, Tessel::any_regular_t(false));
    Tessel::ProviderHost::Initialize();
    return 0;
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
