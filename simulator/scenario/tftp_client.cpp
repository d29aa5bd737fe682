#include "simulator/scenario/tftp_client.h"

#include <algorithm>
#include <utility>

namespace gateway {

namespace {

constexpr std::uint16_t readRequest = 1;
constexpr std::uint16_t writeRequest = 2;
constexpr std::uint16_t data = 3;
constexpr std::uint16_t acknowledgement = 4;
constexpr std::uint16_t failure = 5;
constexpr std::size_t headerSize = 4;
constexpr std::size_t blockSize = 512;
constexpr std::string_view octetMode{"octet\0", 6};

std::string number(std::uint16_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
}

std::uint16_t numberAt(std::string_view bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[offset]) << 8 |
                                    static_cast<unsigned char>(bytes[offset + 1]));
}

std::string acknowledgementOf(std::uint16_t block) {
  return number(acknowledgement) + number(block);
}

/// Whether the unit ends the transfer, or says nothing.
bool isEnd(std::uint16_t opcode) {
  return opcode == 0 || opcode == failure;
}

TransferResult failed(std::uint16_t opcode, const std::string& message) {
  if (opcode != failure)
    return {.error = "the unit doesn't answer"};
  return {.error = message.substr(0, message.find('\0'))};
}

} // namespace

TransferResult TftpClient::read(const std::string& file) {
  begin(readRequest, file);
  TransferResult result;
  std::uint16_t expected = 1;
  while (!result.isDone) {
    const Packet packet = next();
    if (isEnd(packet.opcode))
      return failed(packet.opcode, packet.rest);
    if (packet.opcode != data)
      continue;
    if (packet.block == expected && !(isLate(packet) && file != m_lastFile)) {
      result.content += packet.rest;
      result.isDone = packet.rest.size() < blockSize;
      m_lastBlock = packet;
      send(acknowledgementOf(expected++));
    } else if (packet.block == static_cast<std::uint16_t>(expected - 1) || isLate(packet)) {
      m_network.send(Network::Port::present, acknowledgementOf(packet.block));
    }
  }
  m_lastFile = file;
  return result;
}

TransferResult TftpClient::write(const std::string& file, std::string_view content) {
  begin(writeRequest, file);
  std::uint16_t expected = 0;
  for (bool isLast = false;;) {
    const Packet packet = next();
    if (isEnd(packet.opcode))
      return failed(packet.opcode, packet.rest);
    if (isLate(packet))
      m_network.send(Network::Port::present, acknowledgementOf(packet.block));
    if (packet.opcode != acknowledgement || packet.block != expected)
      continue; // answering one that is repeated would double everything from here on
    if (isLast)
      return {.isDone = true};
    const std::string_view payload = content.substr(0, blockSize);
    content.remove_prefix(payload.size());
    isLast = payload.size() < blockSize;
    send(number(data) + number(++expected) + std::string(payload));
  }
}

/// The unit answers whoever has sent last. So the last block of a read whose acknowledgement got lost comes again to
/// the next transfer, and until it is acknowledged the unit does nothing else.
bool TftpClient::isLate(const Packet& packet) const {
  return packet.opcode == data && packet.block == m_lastBlock.block && packet.rest == m_lastBlock.rest;
}

void TftpClient::idle(Network::Time limit) {
  while (m_network.now() < limit)
    if (const auto received = m_network.receive(limit))
      answerLate(*received);
}

void TftpClient::begin(std::uint16_t opcode, const std::string& file) {
  m_network.openPort();
  send(number(opcode) + file + '\0' + std::string(octetMode), mostRequestRepeats);
}

void TftpClient::send(std::string packet, int repeats) {
  m_sent = std::move(packet);
  m_repeatsLeft = repeats;
  m_deadline = m_network.now() + timeout;
  m_network.send(Network::Port::present, m_sent);
}

/// The next packet of the transfer, repeating what was sent until it comes.
TftpClient::Packet TftpClient::next() {
  for (;;) {
    Packet packet = nextInTime();
    if (packet.opcode != 0 || m_repeatsLeft == 0)
      return packet;
    --m_repeatsLeft;
    m_deadline = m_network.now() + timeout;
    m_network.send(Network::Port::present, m_sent);
  }
}

TftpClient::Packet TftpClient::nextInTime() {
  while (m_network.now() < m_deadline) {
    const auto received = m_network.receive(m_deadline);
    if (!received || received->bytes.size() < headerSize)
      continue;
    if (received->port == Network::Port::present)
      return {.opcode = numberAt(received->bytes, 0),
              .block = numberAt(received->bytes, 2),
              .rest = received->bytes.substr(headerSize)};
    answerLate(*received);
  }
  return {};
}

void TftpClient::answerLate(const Network::Received& received) {
  if (received.bytes.size() >= headerSize && numberAt(received.bytes, 0) == data)
    m_network.send(received.port, acknowledgementOf(numberAt(received.bytes, 2)));
}

} // namespace gateway
