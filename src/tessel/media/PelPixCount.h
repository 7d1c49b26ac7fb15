// The number of pixel buffers alive in the process, for the tests that check that
// everything made was disposed. Not installed: it is no part of the library's API.
#pragma once

#include <cstdint>

#include <tessel/platform/Export.h>

namespace Tessel {

TESSEL_API std::int64_t pelpixLiveCount();

}  // namespace Tessel
