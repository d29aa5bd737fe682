#pragma once
// The transfers that a unit's datagrams make up.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/wire.h"

namespace gateway {

/// A TFTP packet in words: "read FILE", "data 3, 512 bytes".
std::string packetText(const std::string& bytes);

/// How a transfer stands: abandoned when one side has gone silent, or the station has begun another one.
enum class Outcome : std::uint8_t { running, done, error, abandoned };

std::string_view outcomeName(Outcome outcome);

struct Transfer {
  std::uint64_t number; ///< that of the datagram that asked for it
  std::string station;  ///< address and port
  std::string file;     ///< as the station wrote it
  bool isWrite;
  std::size_t bytes = 0; ///< that were acknowledged
  int blocks = 0;        ///< the same
  int repeats = 0;       ///< datagrams that had been there before
  std::int64_t startUs;  ///< wall clock, microseconds since 1970
  std::int64_t endUs;    ///< of the last datagram
  Outcome outcome = Outcome::running;
  std::string message{};      ///< of the error, and whose it was
  std::uint64_t revision = 0; ///< higher than that of everything that had changed before
};

/// Follows the datagrams of one unit.
class Transfers {
public:
  static constexpr std::size_t kept = 1000; ///< unless told otherwise
  /// After so long without a datagram both sides have given a transfer up.
  static constexpr std::int64_t silenceUs = 20'000'000;

  /// `most`: how many transfers are kept, the newest ones.
  explicit Transfers(std::size_t most = kept) : m_most(most) {}

  /// Takes the next datagram; they come in the order of their numbers.
  void add(const Datagram& datagram);
  /// Abandons what has been silent for too long at a time of the wall clock.
  void passTime(std::int64_t nowUs);

  /// The newest transfers, in the order of their numbers.
  const std::deque<Transfer>& all() const { return m_transfers; }
  std::uint64_t revision() const { return m_revision; }
  /// Those that are new or have changed since a revision().
  std::vector<Transfer> changedSince(std::uint64_t revision) const;

private:
  struct Packet;

  /// What a station is doing.
  struct Exchange {
    std::uint64_t transfer;        ///< its number
    std::size_t pendingLength = 0; ///< of the block that is out
    bool isPending = false;        ///< whether a block is out that hasn't been acknowledged
    bool hasAnswer = false;        ///< whether the unit has sent anything
    bool isAccepted = false;       ///< whether anything has been acknowledged, be it the request
  };

  void begin(const Datagram& datagram, const Packet& packet);
  void goOn(Exchange& exchange, Transfer& transfer, const Datagram& datagram);
  static void takeData(Exchange& exchange, Transfer& transfer, const Packet& packet);
  static void takeAcknowledgement(Exchange& exchange, Transfer& transfer, const Packet& packet);
  static void takeError(Transfer& transfer, const Datagram& datagram);
  void abandon(Transfer& transfer);
  Transfer* find(std::uint64_t number);
  void change(Transfer& transfer);
  void forgetOldest();

  std::size_t m_most;
  std::deque<Transfer> m_transfers;
  std::map<std::string, Exchange> m_exchanges; ///< by station
  std::uint64_t m_revision = 0;
};

} // namespace gateway
