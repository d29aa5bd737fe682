#pragma once
// A test station's side of TFTP: octet mode, blocks of 512 bytes, one transfer at a time. A packet that isn't answered
// in time is sent again.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/scenario/network.h"

namespace gateway {

struct TransferResult {
  bool isDone = false;
  std::string content{}; ///< of a file that was read
  std::string error{};   ///< of a transfer that failed: the unit's message, or what happened
};

class TftpClient {
public:
  /// Between two packets. It lies well apart from multiples of the unit's own time-outs of three seconds and more, so
  /// that it is always the same side that comes first.
  static constexpr std::chrono::seconds timeout{2};
  static constexpr int mostRepeats = 5;
  static constexpr int mostRequestRepeats = 15; ///< of a request, which the unit may be too busy for, or boot

  explicit TftpClient(Network& network) : m_network(network) {}

  // Throw std::runtime_error when no port can be had.

  TransferResult read(const std::string& file);
  TransferResult write(const std::string& file, std::string_view content);

  /// Waits, and acknowledges what the unit repeats meanwhile because the acknowledgement before got lost.
  void idle(Network::Time limit);

private:
  struct Packet {
    std::uint16_t opcode = 0; ///< 0: none came
    std::uint16_t block = 0;
    std::string rest{};
  };

  void begin(std::uint16_t opcode, const std::string& file);
  void send(std::string packet, int repeats = mostRepeats);
  Packet next();
  Packet nextInTime();
  bool isLate(const Packet& packet) const;
  void answerLate(const Network::Received& received);

  Network& m_network;
  std::string m_sent;
  Network::Time m_deadline{0};
  int m_repeatsLeft = 0;
  std::string m_lastFile; ///< that was read
  Packet m_lastBlock;     ///< that was taken of a file
};

} // namespace gateway
