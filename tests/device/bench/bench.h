#pragma once
// The gateway's side of board.h for unit tests without the simulator: what the service asks for is journalled as the
// simulated unit does it, and done as far as the tests need it: files, the log, and reboots.

#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

class Bench {
public:
  void clear();
  void record(std::string_view kind, std::string_view text);
  /// Texts of the rows of one kind, or "kind text" of all rows.
  std::vector<std::string> journal(std::string_view kind);
  /// The file that stands for an absolute path of the gateway's file system.
  static std::filesystem::path gatewayPath(std::string_view path);

  int openDescriptors() const { return m_openDescriptors; }
  int open() { return firstDescriptor + m_openDescriptors++; }
  void close() { --m_openDescriptors; }

private:
  static constexpr int firstDescriptor = 1000;

  std::mutex m_mutex;
  std::vector<std::pair<std::string, std::string>> m_rows; ///< kind and text
  int m_openDescriptors = 0;
};

/// The one that the process works on.
Bench& theUnit();

} // namespace gateway
