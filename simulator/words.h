#pragma once
// Words on one line, as the journal shows an action and a scenario is written.

#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/// The words with blanks between them. A word is quoted, with `\"`, `\\`, `\n`, `\r`, `\t` and `\xNN` in it, when it is
/// empty or holds what would not be read back as it is.
std::string joinWords(const std::vector<std::string>& words);

/// The words of a line, up to a `#` at the start of a word. Quotes are those of joinWords(), or single ones with
/// nothing special in them. Throws std::invalid_argument for a quote that isn't closed and an escape that there isn't.
std::vector<std::string> splitWords(std::string_view line);

} // namespace gateway
