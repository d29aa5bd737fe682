#include "simulator/panel/json.h"

namespace gateway {

namespace {

constexpr unsigned firstWideCharacter = 0x80;
constexpr unsigned leadByteLimit = 0xC3; // the last one of a character up to 255
constexpr unsigned leadByteStart = 0xC2;
constexpr unsigned continuationBits = 6;
constexpr unsigned continuationMask = (1U << continuationBits) - 1;

bool isContinuation(unsigned char byte) {
  return (byte & ~continuationMask) == 0x80;
}

} // namespace

std::string utf8Of(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char byte : bytes) {
    const unsigned code = static_cast<unsigned char>(byte);
    if (code < firstWideCharacter) {
      text += byte;
      continue;
    }
    text += static_cast<char>(0xC0U | (code >> continuationBits));
    text += static_cast<char>(0x80U | (code & continuationMask));
  }
  return text;
}

std::optional<std::string> bytesOf(std::string_view utf8) {
  std::string bytes;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const unsigned lead = static_cast<unsigned char>(utf8[i]);
    if (lead < firstWideCharacter) {
      bytes += utf8[i];
      continue;
    }
    if (lead < leadByteStart || lead > leadByteLimit || i + 1 == utf8.size())
      return std::nullopt;
    const auto next = static_cast<unsigned char>(utf8[++i]);
    if (!isContinuation(next))
      return std::nullopt;
    bytes += static_cast<char>(((lead & continuationMask) << continuationBits) | (next & continuationMask));
  }
  return bytes;
}

} // namespace gateway
