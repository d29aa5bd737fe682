#pragma once
// What a served file shows, element by element.

#include <set>
#include <string>
#include <string_view>

namespace contents {

/// The paths ("TEST_CONFIG/LED/ALL_LEDS") of the elements that only one of two served files has, or whose texts or
/// attributes differ.
std::set<std::string> differences(std::string_view file, std::string_view other);

} // namespace contents
