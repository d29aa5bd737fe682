#pragma once
// Fixture of the tests that exchange packets with a test station: the service's socket and two stations
// on the loopback interface, and packets that reach the receive queue at times of the manual clock.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/unit/bench_unit.h"
#include "userapps/FTM/FTM_Task.h"
#include "userapps/FTM/TFTPExterns.h"

using namespace std::string_literals;

/// 16-bit field as it stands on the wire.
inline std::string wire(unsigned int value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline std::string rrq(const std::string& name) {
  return wire(1) + name + "\0octet\0"s;
}

inline std::string wrq(const std::string& name) {
  return wire(2) + name + "\0octet\0"s;
}

inline std::string data(unsigned int block, const std::string& bytes) {
  return wire(3) + wire(block) + bytes;
}

inline std::string ack(unsigned int block) {
  return wire(4) + wire(block);
}

inline std::string error(unsigned int code, const std::string& text) {
  return wire(5) + wire(code) + text + "\0"s;
}

/// A line of the log, as the journal shows it.
inline std::string debugLine(const std::string& text) {
  return "debug " + text + "\n";
}

/// Bytes that differ from block to block.
inline std::string fileOf(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>('!' + (i + i / 94) % 94);
  return text;
}

/// A UDP socket on an ephemeral port of the loopback interface.
class LoopbackSocket {
public:
  LoopbackSocket() : m_descriptor(socket(AF_INET, SOCK_DGRAM, 0)) {
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof m_address;
    if (bind(m_descriptor, reinterpret_cast<sockaddr*>(&m_address), length) != 0 ||
        getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&m_address), &length) != 0)
      throw std::runtime_error("no loopback socket");
    constexpr int bufferSize = 212'992; // some 500 packets that nobody reads yet
    setsockopt(m_descriptor, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
  }
  ~LoopbackSocket() { close(m_descriptor); }
  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;

  int descriptor() const { return m_descriptor; }
  const sockaddr_in& address() const { return m_address; }

  void sendTo(const LoopbackSocket& other, std::string_view packet) const {
    SendResponse(m_descriptor, other.address(), packet.data(), packet.size());
  }

  /// The next packet; waits for it, and returns nothing when none comes.
  std::string receive() const { return isReadable(5000) ? read() : std::string(); }

  /// Every packet that has arrived.
  std::vector<std::string> received() const {
    std::vector<std::string> packets;
    while (isReadable(0))
      packets.push_back(read());
    return packets;
  }

private:
  bool isReadable(int milliseconds) const {
    pollfd entry{m_descriptor, POLLIN, 0};
    return poll(&entry, 1, milliseconds) > 0;
  }

  std::string read() const {
    char packet[2048];
    const ssize_t length = recv(m_descriptor, packet, sizeof packet, 0);
    return {packet, length > 0 ? static_cast<std::size_t>(length) : 0};
  }

  int m_descriptor;
  sockaddr_in m_address{};
};

class TftpStation : public BenchUnit {
protected:
  TftpStation() {
    servSock = server.descriptor();
    pClient = GetClientConnection(nullptr, 0, station.address());
  }
  ~TftpStation() override {
    unsigned char rest[queuedDatagramSize];
    while (pstTFTPPacket.load() != nullptr)
      recvTftp(rest);
    for (stMgmtUtilClientInfo& client : g_CurrentConnections)
      CloseClientConnection(&client, 1);
    pClient = nullptr;
    servSock = -1;
  }

  /// A packet is in the queue.
  static void queued(std::string_view packet) {
    FtmClientSaveData(packet.data(), static_cast<std::uint16_t>(packet.size()));
  }

  /// A packet is put into the queue at a time of the manual clock.
  static void arrives(std::int64_t ms, const std::string& packet) {
    gateway::clock::at(ms, [packet] { queued(packet); });
  }

  /// A packet of a station comes over the network at a time of the manual clock.
  void comesFrom(const LoopbackSocket& sender, std::int64_t ms, const std::string& packet) {
    gateway::clock::at(ms, [this, &sender, packet] {
      sender.sendTo(server, packet);
      FtmReceive();
    });
  }

  /// Packets sent to the station since the last call.
  std::vector<std::string> sent() const { return station.received(); }

  /// What the log holds, one text for each line.
  static std::vector<std::string> logged() { return journal("log"); }

  LoopbackSocket server;
  LoopbackSocket station;
  LoopbackSocket secondStation;
};
