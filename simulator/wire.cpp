#include "simulator/wire.h"

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>

#include "simulator/wire_ring.h"
#include "userapps/FTM/FTM_Apis.h"

namespace gateway {

namespace {

constexpr std::array<std::string_view, 4> fateNames{"passed", "lost", "duplicated", "delayed"};

/// A part of the file as it stood at one moment or changed during it.
template <std::size_t size>
using Bytes = std::array<unsigned char, size>;

template <std::size_t size>
bool read(int descriptor, std::size_t offset, Bytes<size>& bytes) {
  return pread(descriptor, bytes.data(), size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

template <class Value>
std::optional<Value> readValue(int descriptor, std::size_t offset) {
  Bytes<sizeof(Value)> bytes;
  if (!read(descriptor, offset, bytes))
    return std::nullopt;
  Value value{};
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

template <class Value, std::size_t size>
Value valueAt(const Bytes<size>& bytes, std::size_t offset) {
  Value value{};
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

bool hasRightMark(int descriptor) {
  return readValue<std::uint64_t>(descriptor, offsetof(RingFile, header.mark)) == RingHeader::rightMark;
}

std::uint64_t newestNumber(int descriptor) {
  const auto newest = readValue<std::uint64_t>(descriptor, offsetof(RingFile, header.newest));
  return newest && *newest < numberLimit ? *newest : 0;
}

std::string stationText(std::uint32_t address, std::uint16_t port) {
  char text[INET_ADDRSTRLEN] = "";
  const in_addr binary{.s_addr = address};
  inet_ntop(AF_INET, &binary, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(port));
}

/// The datagram of a slot that was whole; nothing when what it holds can't be one.
std::optional<Datagram> datagramIn(const Bytes<sizeof(RingSlot)>& slot, std::uint64_t number) {
  const auto length = valueAt<std::uint16_t>(slot, offsetof(RingSlot, length));
  const auto fate = valueAt<std::uint8_t>(slot, offsetof(RingSlot, fate));
  if (length > longestDatagram || fate >= fateNames.size())
    return std::nullopt;
  const auto* const bytes = reinterpret_cast<const char*>(slot.data()) + offsetof(RingSlot, bytes);
  return Datagram{.number = number,
                  .timeUs = valueAt<std::int64_t>(slot, offsetof(RingSlot, timeUs)),
                  .toUnit = valueAt<std::uint8_t>(slot, offsetof(RingSlot, toUnit)) != 0,
                  .station = stationText(valueAt<std::uint32_t>(slot, offsetof(RingSlot, address)),
                                         valueAt<std::uint16_t>(slot, offsetof(RingSlot, port))),
                  .fate = static_cast<Fate>(fate),
                  .bytes = std::string(bytes, length)};
}

/// The slot is read between two looks at its number, each by a system call of its own: when both show the right one,
/// nobody has written in between.
std::optional<Datagram> readDatagram(int descriptor, std::uint64_t number) {
  const std::size_t offset = offsetof(RingFile, slots) + slotOf(number) * sizeof(RingSlot);
  if (readValue<std::uint64_t>(descriptor, offset) != number)
    return std::nullopt;
  Bytes<sizeof(RingSlot)> slot;
  if (!read(descriptor, offset, slot))
    return std::nullopt;
  if (readValue<std::uint64_t>(descriptor, offset) != number)
    return std::nullopt;
  return datagramIn(slot, number);
}

int openRing(const std::filesystem::path& file) {
  return ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
}

bool isLocked(int descriptor) {
  struct flock lock = ringLock();
  return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::vector<std::string> testsIn(std::uint64_t flags) {
  std::vector<std::string> names;
  for (const ListedTest& test : listedTests)
    if ((flags & test.mask) != 0)
      names.emplace_back(test.name);
  return names;
}

} // namespace

std::string_view fateName(Fate fate) {
  return fateNames[static_cast<std::size_t>(fate)];
}

WireReader::WireReader(const std::filesystem::path& folder, std::uint64_t afterNumber)
    : m_file(folder / wireFile), m_last(afterNumber) {
  open();
  if (m_last == fromNow)
    m_last = m_descriptor >= 0 ? newestNumber(m_descriptor) : 0;
}

WireReader::~WireReader() {
  close();
}

void WireReader::open() {
  m_descriptor = openRing(m_file);
  if (m_descriptor >= 0 && !hasRightMark(m_descriptor)) // it is being made, or damaged
    close();
}

void WireReader::close() {
  if (m_descriptor >= 0)
    ::close(m_descriptor);
  m_descriptor = -1;
}

bool WireReader::isReplaced() const {
  struct stat status {};
  return fstat(m_descriptor, &status) != 0 || status.st_nlink == 0;
}

std::vector<Datagram> WireReader::poll() {
  if (m_descriptor >= 0 && isReplaced()) { // by that of a unit in factory state, which counts from 1 again
    close();
    m_last = 0;
  }
  if (m_descriptor < 0)
    open();
  if (m_descriptor < 0)
    return {};
  const std::uint64_t newest = newestNumber(m_descriptor);
  if (newest < m_last)
    m_last = 0; // a damaged file was made anew
  std::vector<Datagram> datagrams;
  const std::uint64_t oldestKept = newest > keptDatagrams ? newest - keptDatagrams : 0;
  for (std::uint64_t number = std::max(m_last, oldestKept) + 1; number <= newest; ++number)
    if (std::optional<Datagram> datagram = readDatagram(m_descriptor, number))
      datagrams.push_back(std::move(*datagram));
  m_last = newest;
  return datagrams;
}

std::vector<std::string> activeTests(const std::filesystem::path& folder) {
  const int descriptor = openRing(folder / wireFile);
  if (descriptor < 0)
    return {};
  std::optional<std::uint64_t> flags;
  if (hasRightMark(descriptor) && isLocked(descriptor))
    flags = readValue<std::uint64_t>(descriptor, offsetof(RingFile, header.activeTests));
  ::close(descriptor);
  return testsIn(flags.value_or(0));
}

} // namespace gateway
