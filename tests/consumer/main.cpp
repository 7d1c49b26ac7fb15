// Uses an installed Tessel through its public headers only; exits non-zero on a wrong answer.
#include <cstdio>
#include <cstring>
#include <string>

#include <tessel/Version.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/platform/Status.h>

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "tessel_consumer: %s\n", what);
        ++failures;
    }
}

}  // namespace

int main() {
    const std::string version = std::to_string(TESSEL_VERSION_MAJOR) + "." +
                                std::to_string(TESSEL_VERSION_MINOR) + "." +
                                std::to_string(TESSEL_VERSION_PATCH);
    Check(version == Tessel::kVersionString, "the version macros and kVersionString differ");
#ifdef TESSEL_PACKAGE_VERSION
    // Built through find_package: the package's version and the header's are one.
    Check(std::strcmp(TESSEL_PACKAGE_VERSION, Tessel::kVersionString) == 0,
          "Version.h does not name the installed package's version");
#endif
    const Tessel::Status missing(Tessel::StatusCode::kNotFound, "no such card");
    Check(!missing.IsOk() && Tessel::Status().IsOk(), "Status does not tell failure from success");

    const std::string name = "Clip \xc3\xa9t\xc3\xa9 \xf0\x9f\x8e\xac.MXF";
    const std::u16string wide = Tessel::Utf8ToUtf16(name);
    Check(wide.size() == 15, "Utf8ToUtf16 gives the wrong number of code units");
    Check(Tessel::Utf16ToUtf8(wide) == name, "UTF-8 does not survive a round trip");
    // A POSIX file name that is not valid UTF-8 still comes back as the same bytes.
    const std::string bytes = "take\xff.mov";
    Check(!Tessel::IsValidUtf8(bytes), "IsValidUtf8 accepts a stray byte");
    Check(Tessel::Utf16ToUtf8(Tessel::Utf8ToUtf16(bytes)) == bytes,
          "an invalid byte does not survive a round trip");

    // The host's start and stop, on the thread it names as its main thread.
    Tessel::MainThread::SetCurrent();
    Tessel::ProviderHost::Initialize();
    Check(Tessel::ProviderHost::IsInitialized(), "ProviderHost::Initialize did not start");
    Tessel::ProviderHost::Shutdown();
    Check(!Tessel::ProviderHost::IsInitialized(), "ProviderHost::Shutdown did not stop");

    if (failures == 0) {
        std::printf("tessel_consumer: ok\n");
    }
    return failures == 0 ? 0 : 1;
}
