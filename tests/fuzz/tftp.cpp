// What stations send to the service, and when. Whatever it is, the server task answers a bounded number of well-formed
// packets to it, each to the station that was heard last, which is who gets the answers, also those of a transfer that
// another has begun. The blocks of a read are those of its file in their order, what is acknowledged is the block that
// was taken, and the next request is served.
//
// An input is a row of steps: a byte that says what is done, one that says how long the station waits before, and what
// the step needs.
#include <arpa/inet.h>

#include <cstring>
#include <set>
#include <string>
#include <utility>

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

std::uint16_t wordAt(std::string_view packet, std::size_t at) {
  const std::string_view bytes = packet.substr(std::min(at, packet.size()), 2);
  return bytes.size() < 2 ? std::uint16_t{0}
                          : static_cast<std::uint16_t>(static_cast<std::uint8_t>(bytes[0]) << 8 |
                                                       static_cast<std::uint8_t>(bytes[1]));
}

std::string wire(unsigned int value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string request(unsigned int opcode, std::string_view name) {
  std::string packet = wire(opcode).append(name);
  packet.push_back('\0');
  return packet.append("octet").append(1, '\0');
}

std::string_view upToNul(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

/// A read that is being answered.
class Read {
public:
  Read() = default;
  explicit Read(const char* text) : m_isAnswered(text != nullptr), m_text(text != nullptr ? text : "") {}

  bool isNext(std::uint16_t number) const { return number == static_cast<std::uint16_t>(m_sent + 1); }

  void takeBlock(std::uint16_t number, std::string_view block) {
    fuzz::require(m_isAnswered, "only a file that there is has blocks");
    if (isNext(number))
      ++m_sent;
    fuzz::require(m_sent > 0 && number == static_cast<std::uint16_t>(m_sent), "a block is the next one, or the same");
    fuzz::require(
        block == std::string_view(m_text).substr(std::min((m_sent - 1) * tftpBlockSize, m_text.size()), tftpBlockSize),
        "a block is that piece of the file");
  }

private:
  bool m_isAnswered = false;
  std::string m_text;
  std::size_t m_sent = 0; ///< blocks
};

/// What the server task has taken of the queue so far.
class Taken {
public:
  void take(std::string_view datagram) {
    m_opcode = wordAt(datagram, 0);
    m_number = wordAt(datagram, sizeof(std::uint16_t));
    m_isBlock = m_opcode == eDATA && datagram.size() >= tftpHeaderSize;
    if (m_isBlock)
      m_before = std::exchange(m_last, {m_number, datagram.size() < tftpHeaderSize + tftpBlockSize});
  }

  /// The first block answers a request to read, each other one the acknowledgement of the one before it.
  bool maySend(std::uint16_t number) const {
    return number == 1 ? m_opcode == eRRQ : m_opcode == eACK && m_number == static_cast<std::uint16_t>(number - 1);
  }

  /// A request to write is acknowledged with 0, a block with its number. Behind the end of a write any data may be the
  /// last block again, and are answered as that.
  bool mayAcknowledge(std::uint16_t number) const {
    if (m_opcode == eWRQ)
      return number == 0;
    if (m_opcode != eDATA)
      return false;
    const Block& ending = m_isBlock ? m_before : m_last;
    return (m_isBlock && number == m_last.number) || (ending.isLast && number == ending.number);
  }

private:
  struct Block {
    std::uint16_t number;
    bool isLast; ///< shorter than a full one
  };

  std::uint16_t m_opcode = 0; ///< of the newest datagram
  std::uint16_t m_number = 0; ///< of its block, if it has one
  bool m_isBlock = false;     ///< whether it is a block
  Block m_last{};
  Block m_before{};
};

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

  /// An empty datagram, which ends the service, is none.
  void send(std::string_view datagram) {
    if (datagram.empty())
      return;
    m_arriving = datagram.substr(0, maxDatagram);
    if (wordAt(m_arriving, 0) == eRRQ)
      m_filesAskedFor.emplace(upToNul(m_arriving.substr(sizeof(std::uint16_t))));
    m_heardLast = m_address;
    FtmReceive();
    ++m_sent;
  }

  /// The datagram on its way and whose it is.
  std::string_view arriving() const { return m_arriving; }
  const sockaddr_in& sender() const { return m_address; }

  void take(std::string_view packet, const sockaddr_in& receiver) {
    fuzz::require(packet.size() >= tftpHeaderSize && packet.size() <= maxDatagram, "a packet has a packet's length");
    fuzz::require(receiver.sin_addr.s_addr == m_heardLast.sin_addr.s_addr && receiver.sin_port == m_heardLast.sin_port,
                  "a packet goes to the station that was heard last");
    m_last = {wordAt(packet, 0), wordAt(packet, sizeof(std::uint16_t)), std::string(packet.substr(tftpHeaderSize))};
    ++m_answered;
    switch (m_last.opcode) {
    case eDATA:
      fuzz::require(!m_read.isNext(m_last.number) || m_taken.maySend(m_last.number),
                    "a block follows the acknowledgement of the one before");
      return m_read.takeBlock(m_last.number, m_last.text);
    case eACK:
      return fuzz::require(m_last.text.empty() && m_taken.mayAcknowledge(m_last.number),
                           "the block taken is acknowledged");
    default:
      fuzz::require(m_last.opcode == eERROR && packet.back() == '\0', "a packet is DATA, ACK or ERROR");
    }
  }

  void takenByTask(std::string_view datagram) { m_taken.take(datagram); }

  /// A file without a text is refused, and no block of it may come.
  void startRead(std::string_view name, const char* text) {
    fuzz::require(m_filesAskedFor.contains(std::string(name)), "a file is read that was asked for");
    m_read = Read(text);
  }

private:
  void become(std::size_t station) {
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(static_cast<std::uint32_t>(stationAddresses[station]));
    m_address.sin_port = htons(2000);
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
      return sendAnyBlock();
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

  void sendAnyBlock() {
    const std::uint8_t distance = m_input.byte();
    sendBlock(distance, m_input.byte());
  }

  std::string_view nextName() { return names[m_input.byte() % std::size(names)]; }

  fuzz::Input m_input;
  bool m_areDone = false;
  std::size_t m_sent = 0;
  std::size_t m_answered = 0;
  Answer m_last{};
  std::string_view m_arriving;
  sockaddr_in m_address{};   ///< of the station that sends next
  sockaddr_in m_heardLast{}; ///< of the one that has sent last
  std::set<std::string> m_filesAskedFor;
  Read m_read;
  Taken m_taken;
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
ssize_t wrap_recvfrom(int socket, void* buffer, std::size_t length, int flags, sockaddr* address,
                      socklen_t* addressLength) asm("__wrap_recvfrom");
std::uint16_t real_recvTftp(void* buffer) asm("__real__Z8recvTftpPv");
std::uint16_t wrap_recvTftp(void* buffer) asm("__wrap__Z8recvTftpPv");
const char* real_getFtmXml(const char* name, ST_TFTP_ERROR** error) asm("__real__Z9getFtmXmlPKcPP13ST_TFTP_ERROR");
const char* wrap_getFtmXml(const char* name, ST_TFTP_ERROR** error) asm("__wrap__Z9getFtmXmlPKcPP13ST_TFTP_ERROR");

ssize_t wrap_sendto(int, const void* buffer, std::size_t length, int, const sockaddr* address, socklen_t) {
  stations->take({static_cast<const char*>(buffer), length}, *reinterpret_cast<const sockaddr_in*>(address));
  return static_cast<ssize_t>(length);
}

ssize_t wrap_recvfrom(int, void* buffer, std::size_t length, int, sockaddr* address, socklen_t* addressLength) {
  *reinterpret_cast<sockaddr_in*>(address) = stations->sender();
  *addressLength = sizeof(sockaddr_in);
  return static_cast<ssize_t>(stations->arriving().copy(static_cast<char*>(buffer), length));
}

std::uint16_t wrap_recvTftp(void* buffer) {
  const std::uint16_t length = real_recvTftp(buffer);
  stations->takenByTask({static_cast<const char*>(buffer), length});
  return length;
}

const char* wrap_getFtmXml(const char* name, ST_TFTP_ERROR** error) {
  const char* const text = real_getFtmXml(name, error);
  stations->startRead(name, text);
  return text;
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
