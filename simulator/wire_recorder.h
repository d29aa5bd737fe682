#pragma once
// Writes the file "wire" of a unit, for the one process that runs its service.

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>

#include "simulator/wire.h"

namespace gateway {

struct RingFile;

class WireRecorder {
public:
  /// Goes on with the numbers of the service before it. Throws std::runtime_error when the file can't be made, or
  /// another process writes it.
  explicit WireRecorder(const std::filesystem::path& folder);
  ~WireRecorder();
  WireRecorder(const WireRecorder&) = delete;
  WireRecorder& operator=(const WireRecorder&) = delete;

  /// Returns the datagram's number. Makes no system call. Any thread.
  std::uint64_t record(bool toUnit, const sockaddr_in& station, const void* bytes, std::size_t length, Fate fate);
  /// Corrects the fate of a datagram that has been recorded just now. Any thread.
  void setFate(std::uint64_t number, Fate fate);
  /// Tells the readers the service's flag word of active tests. Any thread.
  void setActiveTests(std::uint64_t flags);

private:
  void openRing(const std::filesystem::path& file);
  void makeRing() const;
  void mapRing();
  void findNewest();

  int m_descriptor = -1;
  RingFile* m_ring = nullptr;
  std::mutex m_mutex;         ///< guards what follows, and the slots
  std::uint64_t m_newest = 0; ///< what the file says of it is for readers: somebody may have damaged it
};

} // namespace gateway
