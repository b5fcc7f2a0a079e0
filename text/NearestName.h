#pragma once

#include <span>
#include <string>
#include <string_view>

// What to say to someone who mistyped a name.

namespace Text {

/// The name of `names` that is closest to `wanted`, by the number of characters to insert, delete,
/// replace or swap; letter case does not count. Empty if none is close, that is within a third of
/// the length of `wanted` (at least one character), or if `names` is empty. Of two equally close
/// names the first wins. The view is that of `names`.
std::string_view nearestName( std::string_view wanted, std::span<const std::string_view> names );

/// "; the nearest name is ..." to put behind an error text, or nothing if no name is near.
std::string nearestHint( std::string_view wanted, std::span<const std::string_view> names );

/// What to say to someone who gave a name that does not exist: "the nearest is NAME", or the names
/// there are, if none is near and there are few of them. Empty otherwise.
std::string nameHint( std::string_view wanted, std::span<const std::string_view> names );

} // namespace Text
