#pragma once
// The layout of the file "wire": a header and slots, written by one process that maps it and read by others with
// pread(2), so that a file cut short by somebody is an end of file to them.
//
// Datagram n stands in slot n % keptDatagrams, with n as the slot's number while it is whole and 0 while it is written.
// The newest number is in the header after its slot is whole. The writer holds a lock on the file while it lives.

#include <fcntl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "simulator/wire.h"

namespace gateway {

struct RingHeader {
  static constexpr std::uint64_t rightMark = 0x31'65'72'69'77'6D'74'66; // of this layout, in the machine's byte order

  std::uint64_t mark;
  std::atomic<std::uint64_t> newest;      ///< number of the newest datagram, 0 before the first one
  std::atomic<std::uint64_t> activeTests; ///< the service's flag word of active tests
};

struct RingSlot {
  std::atomic<std::uint64_t> number;
  std::int64_t timeUs;
  std::uint32_t address; ///< of the station, in network byte order
  std::uint16_t port;    ///< the same
  std::uint16_t length;
  bool toUnit;
  std::atomic<Fate> fate;
  unsigned char bytes[longestDatagram];
};

struct RingFile {
  RingHeader header;
  alignas(4096) RingSlot slots[keptDatagrams];
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<Fate>::is_always_lock_free,
              "the file is shared by processes");

/// Numbers are smaller than this; one that is not comes from a damaged file.
constexpr std::uint64_t numberLimit = std::uint64_t{1} << 62;

inline std::size_t slotOf(std::uint64_t number) {
  return static_cast<std::size_t>(number % keptDatagrams);
}

/// The lock on the whole file. It belongs to the open file, not to the process.
inline struct flock ringLock() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

} // namespace gateway
