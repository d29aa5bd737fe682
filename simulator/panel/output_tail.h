#pragma once
// The last lines of what a unit's service has printed, and what it prints on.

#include <sys/types.h>

#include <deque>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/// One thread.
class OutputTail {
public:
  static constexpr std::size_t keptLines = 100;
  static constexpr std::size_t longestLine = 4096; ///< bytes; what is longer goes on in a line of its own

  explicit OutputTail(const std::filesystem::path& folder);
  ~OutputTail();
  OutputTail(const OutputTail&) = delete;
  OutputTail& operator=(const OutputTail&) = delete;

  /// The lines that have come since the last call; of a flood a part, and the rest the next time.
  std::vector<std::string> poll();
  /// The newest lines that poll() has given.
  const std::deque<std::string>& newest() const { return m_newest; }

private:
  bool isReplaced() const;
  void open();
  bool readOn(std::vector<std::string>& lines);
  void split(std::string_view bytes, std::vector<std::string>& lines);
  void endLine(std::vector<std::string>& lines);

  const std::filesystem::path m_file;
  int m_descriptor = -1;
  std::string m_begun; ///< a line that hasn't ended
  std::deque<std::string> m_newest;
};

} // namespace gateway
