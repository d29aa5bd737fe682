// What stations send to the server task, and when. Whatever it is, the task answers a bounded number of well-formed
// packets to it, and serves the next request.
//
// An input is a row of steps: a byte that says what is done, one that says how long the station waits before, and what
// the step needs.
#include <arpa/inet.h>

#include <cstring>
#include <string>

#include "simulator/clock.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/TFTPserver.h"

namespace {

constexpr std::uint16_t pauses[] = {0, 0, 0, 0, 5, 250, 3010, 3260}; // milliseconds
constexpr std::size_t mostAnswers = 6;                               // of one datagram
constexpr std::size_t rawFullBlock = 255;                            // length byte of a datagram as long as can be

constexpr std::string_view names[] = {
    szFTM_ModemInfo,  szFTM_TestModeOp, szFTM_TestModeCfg, szFTM_Statistics, szFTM_Statistics2, szFTM_Progress,
    szFTM_Stats4port, "unit.ini",       "a.b.ini",         "image.upg",      "image.hex",       "",
    "none",
};

constexpr char stationAddresses[] = {1, 2};

struct Answer {
  std::uint16_t opcode;
  std::uint16_t number; ///< of the block, or the error's code
  std::string text;
};

std::string wire(unsigned int value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string request(unsigned int opcode, std::string_view name) {
  std::string packet = wire(opcode).append(name);
  packet.push_back('\0');
  return packet.append("octet").append(1, '\0');
}

class Stations {
public:
  Stations(const std::uint8_t* data, std::size_t size) : m_input(data, size) {
    become(0);
    plan();
  }
  ~Stations() {
    for (stMgmtUtilClientInfo& client : g_CurrentConnections)
      CloseClientConnection(&client, 1);
    pClient = nullptr;
  }
  Stations(const Stations&) = delete;
  Stations& operator=(const Stations&) = delete;

  bool areDone() const { return m_areDone; }
  std::size_t sent() const { return m_sent; }
  std::size_t answered() const { return m_answered; }
  const Answer& last() const { return m_last; }

  void send(std::string_view datagram) {
    FtmClientSaveData(datagram.data(), static_cast<std::uint16_t>(std::min(datagram.size(), maxDatagram)));
    ++m_sent;
  }

  void take(std::string_view packet) {
    fuzz::require(packet.size() >= tftpHeaderSize && packet.size() <= maxDatagram, "a packet has a packet's length");
    const auto word = [&](std::size_t at) {
      return static_cast<std::uint16_t>(static_cast<std::uint8_t>(packet[at]) << 8 |
                                        static_cast<std::uint8_t>(packet[at + 1]));
    };
    m_last = {word(0), word(2), std::string(packet.substr(tftpHeaderSize))};
    const bool isError = m_last.opcode == eERROR && packet.back() == '\0';
    const bool isAck = m_last.opcode == eACK && packet.size() == tftpHeaderSize;
    fuzz::require(isError || isAck || m_last.opcode == eDATA, "a packet is DATA, ACK or ERROR");
    ++m_answered;
  }

private:
  void become(std::size_t station) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(static_cast<std::uint32_t>(stationAddresses[station]));
    address.sin_port = htons(2000);
    pClient = GetClientConnection(nullptr, 0, address);
  }

  /// The next step is done when the task has waited for that long.
  void plan() {
    m_areDone = m_input.isEmpty();
    if (m_areDone)
      return;
    const std::uint8_t kind = m_input.byte();
    const std::uint16_t pause = pauses[m_input.byte() % std::size(pauses)];
    gateway::clock::at(gateway::clock::nowMs() + pause, [this, kind] {
      step(kind);
      plan();
    });
  }

  void step(std::uint8_t kind) {
    switch (kind % 8) {
    case 0:
      return sendRaw();
    case 1:
      return send(request(eRRQ, nextName()));
    case 2:
      return send(request(eWRQ, nextName()));
    case 3:
      return sendBlock(1, m_input.byte());
    case 4:
      return send(wire(eACK) + wire(m_last.number));
    case 5:
      return send(wire(eACK) + wire(m_last.number + m_input.byte()));
    case 6:
      return sendBlock(m_input.byte(), m_input.byte());
    default:
      return become(m_input.byte() % std::size(stationAddresses));
    }
  }

  void sendRaw() {
    const std::uint8_t length = m_input.byte();
    send(m_input.text(length == rawFullBlock ? maxDatagram : length));
  }

  /// The block that far from the one that was acknowledged last.
  void sendBlock(unsigned int distance, std::uint8_t length) {
    std::string text(m_input.text(length == rawFullBlock ? tftpBlockSize : length));
    if (length == rawFullBlock)
      text.resize(tftpBlockSize, ' ');
    send(wire(eDATA).append(wire(m_last.number + distance)).append(text));
  }

  std::string_view nextName() { return names[m_input.byte() % std::size(names)]; }

  fuzz::Input m_input;
  bool m_areDone = false;
  std::size_t m_sent = 0;
  std::size_t m_answered = 0;
  Answer m_last{};
};

Stations* stations;

void serveAll(TftpTaskState& state) {
  do
    TftpTaskRound(state);
  while (!stations->areDone() || pstTFTPPacket.load() != nullptr);
}

/// A request right after all that is answered as it would be on a fresh unit.
void requireService(TftpTaskState& state) {
  const std::size_t before = stations->answered();
  stations->send(request(eRRQ, "none"));
  TftpTaskRound(state);
  fuzz::require(stations->answered() == before + 1, "the next request is answered once");
  fuzz::require(stations->last().opcode == eERROR && stations->last().text.c_str() == std::string_view(szFileNSprt),
                "the next request gets its own answer");
}

} // namespace

ssize_t wrap_sendto(int socket, const void* buffer, std::size_t length, int flags, const sockaddr* address,
                    socklen_t addressLength) asm("__wrap_sendto");

ssize_t wrap_sendto(int, const void* buffer, std::size_t length, int, const sockaddr*, socklen_t) {
  stations->take({static_cast<const char*>(buffer), length});
  return static_cast<ssize_t>(length);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  Stations all(data, size);
  stations = &all;
  TftpTaskState state;
  serveAll(state);
  fuzz::require(all.answered() <= mostAnswers * all.sent(), "the answers are bounded");
  requireService(state);
  return 0;
}
