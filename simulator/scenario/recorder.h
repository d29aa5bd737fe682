#pragma once
// Writes down what happens to a unit as a scenario that does it again.

#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "simulator/transfers.h"
#include "simulator/wire.h"

namespace gateway {

class Unit;

class Recorder {
public:
  /// Records what happens from now on: the actions, and the transfers of all stations. One thread.
  explicit Recorder(Unit& unit);

  /// Takes what has happened since the last call. To be called again before the unit's ring of datagrams has gone
  /// round.
  void poll();

  /// Writes the scenario so far; what is written to the unit and is long goes into files beside it. Throws
  /// std::runtime_error.
  void save(const std::filesystem::path& file) const;

private:
  struct Event {
    std::int64_t timeUs; ///< wall clock, since 1970
    std::string step;
  };
  /// What a station has sent of a file that it writes.
  struct Upload {
    std::uint16_t lastBlock = 0;
    std::string content{};
  };

  void takeRows();
  void takeDatagrams();
  void noteGap(const Datagram& datagram);
  void takePayload(const Datagram& datagram);
  void takeUpload(const Transfer& transfer, const Datagram& datagram);
  std::string stepOf(const Transfer& transfer, const std::filesystem::path& file, int& files) const;

  Unit& m_unit;
  std::int64_t m_lastRow;
  WireReader m_wire;
  const std::int64_t m_startUs;
  std::uint64_t m_lastDatagram = 0; ///< number of the last one that was taken; 0 before the first
  Transfers m_transfers{std::numeric_limits<std::size_t>::max()}; ///< all of the recording
  std::map<std::uint64_t, Upload> m_uploads;                      ///< by the number of the transfer
  std::set<std::uint64_t> m_delivered;                            ///< reads whose last block has come to the station
  std::vector<Event> m_events;                                    ///< of the journal
};

} // namespace gateway
