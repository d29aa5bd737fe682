#include "simulator/words.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <stdexcept>

namespace gateway {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr char comment = '#';
constexpr std::size_t hexDigits = 2;

struct Escape {
  char letter;
  char meaning;
};
constexpr Escape escapes[] = {{'"', '"'}, {'\\', '\\'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};

bool isControl(char character) {
  const auto code = static_cast<unsigned char>(character);
  return code < ' ' || code == 0x7F;
}

bool isPlain(const std::string& word) {
  return !word.empty() && word[0] != comment && std::ranges::none_of(word, [](char character) {
    return isControl(character) || std::string_view(" \"'\\").find(character) != std::string_view::npos;
  });
}

std::string escaped(char character) {
  const auto* const found = std::ranges::find(escapes, character, &Escape::meaning);
  if (found != std::end(escapes))
    return {'\\', found->letter};
  if (!isControl(character))
    return {character};
  char text[8];
  std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(character));
  return text;
}

std::string quoted(const std::string& word) {
  if (isPlain(word))
    return word;
  std::string text = "\"";
  for (const char character : word)
    text += escaped(character);
  return text + '"';
}

/// Takes a line apart from left to right.
class Splitter {
public:
  explicit Splitter(std::string_view line) : m_rest(line) {}

  std::vector<std::string> words() {
    std::vector<std::string> words;
    for (skipBlanks(); !m_rest.empty() && m_rest[0] != comment; skipBlanks())
      words.push_back(word());
    return words;
  }

private:
  void skipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(blanks), m_rest.size())); }

  char take() {
    if (m_rest.empty())
      throw std::invalid_argument("a quote isn't closed");
    const char character = m_rest[0];
    m_rest.remove_prefix(1);
    return character;
  }

  std::string word() {
    std::string text;
    while (!m_rest.empty() && blanks.find(m_rest[0]) == std::string_view::npos) {
      const char character = take();
      if (character == '\'')
        takeSingleQuoted(text);
      else if (character == '"')
        takeQuoted(text);
      else
        text += character;
    }
    return text;
  }

  void takeSingleQuoted(std::string& text) {
    for (char character = take(); character != '\''; character = take())
      text += character;
  }

  void takeQuoted(std::string& text) {
    for (char character = take(); character != '"'; character = take())
      text += character == '\\' ? escape() : character;
  }

  char escape() {
    const char letter = take();
    if (letter == 'x')
      return hexadecimal();
    const auto* const found = std::ranges::find(escapes, letter, &Escape::letter);
    if (found == std::end(escapes))
      throw std::invalid_argument(std::string("there is no escape \\") + letter);
    return found->meaning;
  }

  char hexadecimal() {
    unsigned code = 0;
    const std::string_view digits = m_rest.substr(0, hexDigits);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (error != std::errc() || end != digits.data() + hexDigits)
      throw std::invalid_argument("\\x needs two hexadecimal digits");
    m_rest.remove_prefix(hexDigits);
    return static_cast<char>(code);
  }

  std::string_view m_rest;
};

} // namespace

std::string joinWords(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words)
    line.append(line.empty() ? "" : " ").append(quoted(word));
  return line;
}

std::vector<std::string> splitWords(std::string_view line) {
  return Splitter(line).words();
}

} // namespace gateway
