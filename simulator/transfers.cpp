#include "simulator/transfers.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gateway {

namespace {

enum Opcode : std::uint16_t { readRequest = 1, writeRequest = 2, data = 3, acknowledgement = 4, error = 5 };

constexpr std::size_t headerSize = 4;
constexpr std::size_t fullBlock = 512;
constexpr std::array<std::string_view, 4> outcomeNames{"running", "done", "error", "abandoned"};

/// 16-bit field of a datagram, zero when it lies beyond the datagram's end, which the service takes it for as well.
std::uint16_t fieldAt(const std::string& bytes, std::size_t offset) {
  if (offset + 2 > bytes.size())
    return 0;
  const auto byte = [&](std::size_t index) { return static_cast<unsigned>(static_cast<unsigned char>(bytes[index])); };
  return static_cast<std::uint16_t>(byte(offset) << 8 | byte(offset + 1));
}

/// How a block's number stands in a packet: it wraps.
std::uint16_t blockNumber(int block) {
  return static_cast<std::uint16_t>(block);
}

/// Bytes behind the header.
std::size_t dataLength(const std::string& bytes) {
  return bytes.size() - std::min(bytes.size(), headerSize);
}

/// The text from an offset to its NUL or the datagram's end.
std::string textAt(const std::string& bytes, std::size_t offset) {
  if (offset >= bytes.size())
    return {};
  return bytes.substr(offset, std::min(bytes.find('\0', offset), bytes.size()) - offset);
}

} // namespace

std::string packetText(const std::string& bytes) {
  const std::string block = std::to_string(fieldAt(bytes, 2));
  switch (fieldAt(bytes, 0)) {
  case readRequest:
    return "read " + textAt(bytes, 2);
  case writeRequest:
    return "write " + textAt(bytes, 2);
  case data:
    return "data " + block + ", " + std::to_string(dataLength(bytes)) + " bytes";
  case acknowledgement:
    return "acknowledgement " + block;
  case error:
    return "error " + block + " " + textAt(bytes, headerSize);
  default:
    return std::to_string(bytes.size()) + " bytes";
  }
}

struct Transfers::Packet {
  explicit Packet(const Datagram& datagram)
      : opcode(fieldAt(datagram.bytes, 0)), block(fieldAt(datagram.bytes, 2)), length(dataLength(datagram.bytes)),
        isRequest(datagram.toUnit && (opcode == readRequest || opcode == writeRequest)),
        isBlock((opcode == data || opcode == acknowledgement) && datagram.bytes.size() >= headerSize) {}

  std::uint16_t opcode;
  std::uint16_t block;
  std::size_t length; ///< of the data
  bool isRequest;
  bool isBlock; ///< or the acknowledgement of one
};

std::string_view outcomeName(Outcome outcome) {
  return outcomeNames[static_cast<std::size_t>(outcome)];
}

void Transfers::add(const Datagram& datagram) {
  const Packet packet(datagram);
  if (packet.isRequest)
    return begin(datagram, packet);
  const auto exchange = m_exchanges.find(datagram.station);
  Transfer* const transfer = exchange != m_exchanges.end() ? find(exchange->second.transfer) : nullptr;
  if (transfer != nullptr)
    goOn(exchange->second, *transfer, datagram);
}

void Transfers::passTime(std::int64_t nowUs) {
  for (Transfer& transfer : m_transfers)
    if (transfer.outcome == Outcome::running && nowUs - transfer.endUs > silenceUs)
      abandon(transfer);
}

std::vector<Transfer> Transfers::changedSince(std::uint64_t revision) const {
  std::vector<Transfer> changed;
  std::ranges::copy_if(m_transfers, std::back_inserter(changed),
                       [&](const Transfer& transfer) { return transfer.revision > revision; });
  return changed;
}

// A station repeats a request that it has got nothing for; anything else that it asks for is another transfer.
void Transfers::begin(const Datagram& datagram, const Packet& packet) {
  if (!m_transfers.empty() && datagram.number <= m_transfers.back().number) { // a unit put back to factory state
    m_transfers.clear();
    m_exchanges.clear();
  }
  const std::string file = textAt(datagram.bytes, sizeof packet.opcode);
  const bool isWrite = packet.opcode == writeRequest;
  const auto exchange = m_exchanges.find(datagram.station);
  Transfer* const before = exchange != m_exchanges.end() ? find(exchange->second.transfer) : nullptr;
  if (before != nullptr && before->outcome == Outcome::running) {
    if (before->blocks == 0 && before->file == file && before->isWrite == isWrite)
      return goOn(exchange->second, *before, datagram);
    abandon(*before);
  }
  m_exchanges.insert_or_assign(datagram.station, Exchange{.transfer = datagram.number});
  m_transfers.push_back({.number = datagram.number,
                         .station = datagram.station,
                         .file = file,
                         .isWrite = isWrite,
                         .repeats = datagram.fate == Fate::duplicated ? 1 : 0,
                         .startUs = datagram.timeUs,
                         .endUs = datagram.timeUs});
  change(m_transfers.back());
  forgetOldest();
}

void Transfers::goOn(Exchange& exchange, Transfer& transfer, const Datagram& datagram) {
  const Packet packet(datagram);
  if (transfer.outcome == Outcome::running)
    transfer.endUs = datagram.timeUs;
  exchange.hasAnswer = exchange.hasAnswer || !datagram.toUnit;
  transfer.repeats += datagram.fate == Fate::duplicated ? 1 : 0;
  const bool isFromSender = datagram.toUnit == transfer.isWrite;
  const bool isTaken = !datagram.toUnit || datagram.fate != Fate::lost;
  if (packet.isRequest)
    ++transfer.repeats;
  else if (packet.opcode == error)
    takeError(transfer, datagram);
  else if (packet.isBlock && packet.opcode == data && isFromSender)
    takeData(exchange, transfer, packet);
  else if (packet.isBlock && packet.opcode == acknowledgement && !isFromSender && isTaken)
    takeAcknowledgement(exchange, transfer, packet);
  change(transfer);
}

void Transfers::takeError(Transfer& transfer, const Datagram& datagram) {
  if (transfer.outcome != Outcome::running)
    return;
  transfer.outcome = Outcome::error;
  transfer.message = (datagram.toUnit ? "station: " : "unit: ") + textAt(datagram.bytes, headerSize);
}

void Transfers::takeData(Exchange& exchange, Transfer& transfer, const Packet& packet) {
  const bool isDue = transfer.outcome == Outcome::running && packet.block == blockNumber(transfer.blocks + 1);
  if (!isDue || exchange.isPending)
    ++transfer.repeats;
  if (isDue) {
    exchange.isPending = true;
    exchange.pendingLength = packet.length;
  }
}

void Transfers::takeAcknowledgement(Exchange& exchange, Transfer& transfer, const Packet& packet) {
  const bool isDue = exchange.isPending && packet.block == blockNumber(transfer.blocks + 1);
  if (!isDue) {
    // The first answer to a request to write acknowledges no block.
    transfer.repeats += exchange.isAccepted ? 1 : 0;
    exchange.isAccepted = true;
    return;
  }
  exchange.isPending = false;
  exchange.isAccepted = true;
  ++transfer.blocks;
  transfer.bytes += exchange.pendingLength;
  if (exchange.pendingLength < fullBlock && transfer.outcome == Outcome::running)
    transfer.outcome = Outcome::done;
}

/// Ends a transfer that doesn't go on, with what it waited for.
void Transfers::abandon(Transfer& transfer) {
  const auto exchange = m_exchanges.find(transfer.station);
  const bool hasAnswer = exchange != m_exchanges.end() && exchange->second.hasAnswer;
  transfer.outcome = Outcome::abandoned;
  const bool isUnitSilent = !hasAnswer || transfer.isWrite == exchange->second.isPending;
  transfer.message = isUnitSilent ? "the unit" : "the station";
  transfer.message += hasAnswer ? " fell silent at block " + std::to_string(transfer.blocks + 1) : " didn't answer";
  change(transfer);
}

Transfer* Transfers::find(std::uint64_t number) {
  const auto found = std::ranges::lower_bound(m_transfers, number, {}, &Transfer::number);
  return found != m_transfers.end() && found->number == number ? &*found : nullptr;
}

void Transfers::change(Transfer& transfer) {
  transfer.revision = ++m_revision;
}

void Transfers::forgetOldest() {
  if (m_transfers.size() <= m_most)
    return;
  const auto exchange = m_exchanges.find(m_transfers.front().station);
  if (exchange != m_exchanges.end() && exchange->second.transfer == m_transfers.front().number)
    m_exchanges.erase(exchange);
  m_transfers.pop_front();
}

} // namespace gateway
