#include "support/CaptureTrace.h"

#include <cstdio>
#include <fstream>
#include <sstream>

#include <tessel/foundation/Trace.h>

#include "support/TempDir.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace Tessel::Test {

std::optional<std::string> CaptureTrace(const char* category, const std::function<void()>& body) {
#if defined(_WIN32)
    Trace::Enable(category);
    body();
    Trace::Disable(category);
    return std::nullopt;
#else
    TempDir dir;
    const std::filesystem::path file = dir.path() / "stderr.txt";
    std::fflush(stderr);
    const int saved = dup(fileno(stderr));
    std::FILE* target = std::fopen(file.string().c_str(), "wb");
    dup2(fileno(target), fileno(stderr));
    std::fclose(target);
    Trace::Enable(category);
    body();
    Trace::Disable(category);
    std::fflush(stderr);
    dup2(saved, fileno(stderr));
    close(saved);
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
#endif
}

}  // namespace Tessel::Test
