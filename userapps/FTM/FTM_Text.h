#pragma once
// Texts that come from outside: numbers read from them, and copies that always end.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

/// The decimal number at the start of a text, as atoi() reads it; one that an int can't hold is the nearest that it
/// can.
inline int decimalValue(const char* text) {
  const long long value = std::strtoll(text, nullptr, 10);
  constexpr long long lowest = std::numeric_limits<int>::min();
  constexpr long long highest = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(value, lowest, highest));
}

/// Copies a text of at most `length` characters, ended by a NUL or not, into `field`: cut to what it holds, the rest
/// of it cleared.
template <std::size_t size>
void copyText(char (&field)[size], const char* text, std::size_t length) {
  const std::size_t kept = std::min(strnlen(text, length), size - 1);
  std::memcpy(field, text, kept);
  std::memset(field + kept, 0, size - kept);
}
