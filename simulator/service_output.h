#pragma once
// What the service prints: kept in the unit's folder, and printed on.

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace gateway {

constexpr const char* outputFile = "output.log";                ///< in the unit's folder
constexpr const char* olderOutputFile = "output.log.1";         ///< what output.log was before it grew too long
constexpr std::size_t longestOutputFile = std::size_t{1} << 20; ///< bytes

/// Prints texts on a thread of its own, so that nobody has to wait for a slow terminal.
class Printer {
public:
  /// Prints to a descriptor, which stays open.
  static std::shared_ptr<Printer> start(int descriptor);

  /// Takes a text to print. What a terminal can't keep up with is left out.
  void print(std::string_view text);
  /// Ends when all is printed, or the terminal doesn't take it in time.
  void finish();

private:
  explicit Printer(int descriptor) : m_descriptor(descriptor) {}
  void run();
  bool write(std::string_view text) const;

  const int m_descriptor;
  std::mutex m_mutex; ///< guards what follows
  std::condition_variable m_changed;
  std::string m_waiting;
  bool m_isLeavingOut = false;
  bool m_isEnding = false;
  bool m_hasEnded = false;
};

/// The line from the services of a unit to the folder and to standard output. The signals that the process waits for
/// have to be blocked before.
class ServiceOutput {
public:
  explicit ServiceOutput(const std::filesystem::path& folder);
  /// Prints the rest.
  ~ServiceOutput();
  ServiceOutput(const ServiceOutput&) = delete;
  ServiceOutput& operator=(const ServiceOutput&) = delete;

  /// What a service gets as its standard output and error.
  int descriptor() const { return m_serviceEnd; }
  /// Puts a line of the supervisor's own behind what the service has printed so far. Any thread.
  void say(const std::string& line);

private:
  void relay();
  void passOn();
  void keep(std::string_view text);
  void startFile();

  const std::filesystem::path m_folder;
  std::shared_ptr<Printer> m_printer;
  int m_serviceEnd = -1;
  int m_ownEnd = -1;
  int m_ending = -1;  ///< readable once the relay is to end
  std::mutex m_mutex; ///< guards what follows, and the order of the texts
  int m_file = -1;
  std::size_t m_fileSize = 0;
  std::thread m_relay;
};

} // namespace gateway
