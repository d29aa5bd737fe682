#pragma once
// What goes over the wire between the unit and its stations. The service's process keeps the newest datagrams in the
// file "wire" of the unit's folder; any other process may read them there, and never makes the service wait.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/// What the wire did to a datagram. One that was duplicated may have been delayed, too.
enum class Fate : std::uint8_t { passed, lost, duplicated, delayed };

std::string_view fateName(Fate fate);

struct Datagram {
  std::uint64_t number; ///< counts from 1 over the unit's life
  std::int64_t timeUs;  ///< wall clock, microseconds since 1970
  bool toUnit;
  std::string station; ///< address and port, "127.0.0.1:40000"
  Fate fate;
  std::string bytes;
};

constexpr const char* wireFile = "wire";     ///< in the unit's folder
constexpr std::size_t keptDatagrams = 1024;  ///< they lie in memory of the service, which has to fit a small device
constexpr std::size_t longestDatagram = 516; ///< bytes of a datagram that are kept

/// Reads the datagrams of a unit, which need not run nor have run. One thread at a time.
class WireReader {
public:
  /// For a reader that wants to see only what comes from now on.
  static constexpr std::uint64_t fromNow = std::numeric_limits<std::uint64_t>::max();

  /// Reads what has a higher number than `afterNumber`.
  explicit WireReader(const std::filesystem::path& folder, std::uint64_t afterNumber = 0);
  ~WireReader();
  WireReader(const WireReader&) = delete;
  WireReader& operator=(const WireReader&) = delete;

  /// The datagrams since the last call, in order. One that has been overwritten in between, or that isn't readable in a
  /// damaged file, is left out, so that its number is missing.
  std::vector<Datagram> poll();

private:
  void open();
  void close();
  bool isReplaced() const;

  std::filesystem::path m_file;
  std::uint64_t m_last;
  int m_descriptor = -1;
};

/// Names of the tests that are active, as "FTM_TestModeOp.xml" lists them; none when no service runs on the unit.
std::vector<std::string> activeTests(const std::filesystem::path& folder);

} // namespace gateway
