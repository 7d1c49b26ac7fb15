// Sets an environment variable of the test process on every platform.
#pragma once

#include <string>

namespace Tessel::Test {

void SetEnvironment(const char* name, const std::string& value);

}  // namespace Tessel::Test
