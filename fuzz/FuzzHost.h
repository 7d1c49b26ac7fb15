// The set-up of the fuzz targets that read card files: the host is started as an application
// starts it (which also allows XML parsing), with none of the library's providers, so that
// each input reaches only the reader under test.
#pragma once

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>
#include <tessel/framework/ProviderHost.h>

namespace Tessel::Fuzz {

inline int StartHostWithoutProviders() {
    MainThread::SetCurrent();
    Settings::Set(kSettingRegisterBuiltInProviders, any_regular_t(false));
    ProviderHost::Initialize();
    return 0;
}

}  // namespace Tessel::Fuzz
