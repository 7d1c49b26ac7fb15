#include "support/Environment.h"

#include <cstdlib>

namespace Tessel::Test {

void SetEnvironment(const char* name, const std::string& value) {
#if defined(_WIN32)
    _putenv_s(name, value.c_str());
#else
    setenv(name, value.c_str(), 1);
#endif
}

}  // namespace Tessel::Test
