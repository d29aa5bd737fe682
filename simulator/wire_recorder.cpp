#include "simulator/wire_recorder.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "simulator/clock.h"
#include "simulator/wire_ring.h"

namespace gateway {

namespace {

bool isWholeRing(int descriptor) {
  struct stat status {};
  std::uint64_t mark = 0;
  return fstat(descriptor, &status) == 0 && status.st_size == static_cast<off_t>(sizeof(RingFile)) &&
         pread(descriptor, &mark, sizeof mark, offsetof(RingFile, header.mark)) == ssize_t{sizeof mark} &&
         mark == RingHeader::rightMark;
}

} // namespace

WireRecorder::WireRecorder(const std::filesystem::path& folder) {
  try {
    openRing(folder / wireFile);
    if (!isWholeRing(m_descriptor))
      makeRing();
    mapRing();
  } catch (...) {
    close(m_descriptor);
    throw;
  }
  findNewest();
  m_ring->header.newest.store(m_newest, std::memory_order_relaxed);
  m_ring->header.activeTests.store(0, std::memory_order_relaxed);
  std::atomic_ref(m_ring->header.mark).store(RingHeader::rightMark, std::memory_order_release);
}

WireRecorder::~WireRecorder() {
  munmap(m_ring, sizeof(RingFile));
  close(m_descriptor);
}

void WireRecorder::openRing(const std::filesystem::path& file) {
  m_descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  struct flock lock = ringLock();
  if (m_descriptor < 0 || fcntl(m_descriptor, F_OFD_SETLK, &lock) != 0)
    throw std::runtime_error(file.string() + " can't be written: " + std::strerror(errno));
}

// All of it is taken from the disk at once: a disk that is full later would end the service.
void WireRecorder::makeRing() const {
  const int error = ftruncate(m_descriptor, 0) != 0 ? errno : posix_fallocate(m_descriptor, 0, sizeof(RingFile));
  if (error != 0)
    throw std::runtime_error(std::string("the record of the wire can't be made: ") + std::strerror(error));
}

void WireRecorder::mapRing() {
  void* const memory = mmap(nullptr, sizeof(RingFile), PROT_READ | PROT_WRITE, MAP_SHARED, m_descriptor, 0);
  if (memory == MAP_FAILED)
    throw std::runtime_error(std::string("the record of the wire can't be mapped: ") + std::strerror(errno));
  m_ring = static_cast<RingFile*>(memory);
}

// A service that was killed may have left a slot half written, and the header behind.
void WireRecorder::findNewest() {
  for (std::size_t index = 0; index < keptDatagrams; ++index) {
    const std::uint64_t number = m_ring->slots[index].number.load(std::memory_order_relaxed);
    if (number < numberLimit && slotOf(number) == index)
      m_newest = std::max(m_newest, number);
  }
  // The service has in its memory only what it writes; what was here stays in the file.
  madvise(m_ring->slots, sizeof m_ring->slots, MADV_DONTNEED);
}

std::uint64_t WireRecorder::record(bool toUnit, const sockaddr_in& station, const void* bytes, std::size_t length,
                                   Fate fate) {
  const std::lock_guard lock(m_mutex);
  const std::uint64_t number = ++m_newest;
  RingSlot& slot = m_ring->slots[slotOf(number)];
  slot.number.exchange(0, std::memory_order_seq_cst); // nothing of what follows is seen before it
  slot.timeUs = clock::wallUs();
  slot.address = station.sin_addr.s_addr;
  slot.port = station.sin_port;
  slot.length = static_cast<std::uint16_t>(std::min(length, longestDatagram));
  slot.toUnit = toUnit;
  slot.fate.store(fate, std::memory_order_relaxed);
  std::memcpy(slot.bytes, bytes, slot.length);
  slot.number.store(number, std::memory_order_release);
  m_ring->header.newest.store(number, std::memory_order_release);
  return number;
}

void WireRecorder::setFate(std::uint64_t number, Fate fate) {
  const std::lock_guard lock(m_mutex);
  RingSlot& slot = m_ring->slots[slotOf(number)];
  if (slot.number.load(std::memory_order_relaxed) == number)
    slot.fate.store(fate, std::memory_order_relaxed);
}

void WireRecorder::setActiveTests(std::uint64_t flags) {
  m_ring->header.activeTests.store(flags, std::memory_order_relaxed);
}

} // namespace gateway
