#pragma once
// What the panel sends and is sent. Texts of the unit are bytes; in JSON each byte is the character of the same number.

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace gateway {

using Json = nlohmann::json;

/// Bytes as UTF-8.
std::string utf8Of(std::string_view bytes);
/// The bytes that a UTF-8 text stands for; nothing when it has a character over 255, or isn't UTF-8.
std::optional<std::string> bytesOf(std::string_view utf8);

} // namespace gateway
