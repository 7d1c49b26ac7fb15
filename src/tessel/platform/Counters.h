// Process-wide counters of the platform layer's work, for the tests and benchmarks that
// check that a pass reads a folder once and stats no entry it need not. Not installed: they
// are no part of the library's API.
#pragma once

#include <cstdint>

#include <tessel/platform/Export.h>

namespace Tessel::Platform {

// How many directory reads ReadDirectory and ReadDirectoryWithDetails have made.
TESSEL_API std::uint64_t DirectoryReadCount();
// How many stats of directory entries (and of the parts of paths the file-icon code walks)
// have been made.
TESSEL_API std::uint64_t EntryStatCount();

}  // namespace Tessel::Platform
