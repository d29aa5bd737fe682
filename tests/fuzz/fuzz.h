#pragma once
// What the fuzz targets share: the way out with a finding, and how an input is taken apart.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

/// One input of a fuzz target. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the process as a finding, naming it, unless `holds`.
void require(bool holds, const char* what);

/// The bytes of an input, taken one after the other. Behind the end everything is 0 or empty.
class Input {
public:
  Input(const std::uint8_t* data, std::size_t size) : m_rest(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return m_rest.empty(); }

  std::uint8_t byte() {
    const std::string_view taken = text(1);
    return taken.empty() ? 0 : static_cast<std::uint8_t>(taken[0]);
  }

  /// The next `length` bytes, or what is left.
  std::string_view text(std::size_t length) {
    const std::string_view taken = m_rest.substr(0, length);
    m_rest.remove_prefix(taken.size());
    return taken;
  }

  std::string_view rest() { return text(m_rest.size()); }

  /// Up to the next `end`, which is taken as well.
  std::string_view upTo(char end) {
    const std::string_view taken = text(std::min(m_rest.find(end), m_rest.size()));
    text(1);
    return taken;
  }

private:
  std::string_view m_rest;
};

/// A writable text in memory of exactly its size, which ends at the first NUL, as one from the station does.
class WritableText {
public:
  explicit WritableText(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    m_text = std::make_unique<char[]>(text.size() + 1);
    text.copy(m_text.get(), text.size());
  }
  char* get() { return m_text.get(); }

private:
  std::unique_ptr<char[]> m_text;
};

} // namespace fuzz
