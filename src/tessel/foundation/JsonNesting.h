// Library-internal helpers shared by the foundation's JSON readers (not part of the API).
#pragma once

#include <cstddef>
#include <string_view>

namespace Tessel::detail {

// How deeply any_regular_t values may nest (arrays and dictionaries) in ToJson/FromJson.
inline constexpr std::size_t kMaxValueDepth = 256;
// How deeply the JSON text may nest before it is parsed: every value level may add a tagged
// wrapper object, and registered types bring a little nesting of their own.
inline constexpr std::size_t kMaxJsonTextDepth = 2 * kMaxValueDepth + 16;

// True when the brackets of TEXT, outside strings, nest no deeper than LIMIT. For valid JSON
// this is its exact nesting depth, so code that walks parsed JSON recursively stays within a
// known stack budget even on hostile input.
bool JsonNestingWithin(std::string_view text, std::size_t limit);

}  // namespace Tessel::detail
