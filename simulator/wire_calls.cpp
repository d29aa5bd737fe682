// Stands between the service and the network: its calls of recvfrom(2) and sendto(2) are linked to these. They record
// each datagram, and do to it what the unit's wire does.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "simulator/database.h"
#include "simulator/unit.h"
#include "simulator/wire_link.h"
#include "simulator/wire_recorder.h"
#include "userapps/FTM/FTM_Apis.h"

using namespace gateway;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's option --wrap makes these names.
extern "C" {
ssize_t __real_recvfrom(int socket, void* buffer, size_t size, int flags, sockaddr* sender, socklen_t* senderLength);
ssize_t __real_sendto(int socket, const void* buffer, size_t length, int flags, const sockaddr* receiver,
                      socklen_t receiverLength);
ssize_t __wrap_recvfrom(int socket, void* buffer, size_t size, int flags, sockaddr* sender, socklen_t* senderLength);
ssize_t __wrap_sendto(int socket, const void* buffer, size_t length, int flags, const sockaddr* receiver,
                      socklen_t receiverLength);
}
// NOLINTEND(bugprone-reserved-identifier): the end of the linker's names.

namespace {

using std::chrono::steady_clock;

sockaddr_in inetAddress(const sockaddr* address, socklen_t length) {
  sockaddr_in station{};
  std::memcpy(&station, address, std::min<std::size_t>(length, sizeof station));
  return station;
}

/// The wire of the process's unit. Never destroyed: threads use it until the process ends.
class Wire {
public:
  Wire() {
    try {
      m_recorder = std::make_unique<WireRecorder>(theUnit().folder());
    } catch (const std::exception& error) {
      std::fprintf(stderr, "simulator: %s\n", error.what());
    }
  }

  /// Draws what becomes of a datagram and records it; `number` is 0 when nothing is recorded.
  WirePlan take(bool toUnit, const sockaddr_in& station, const void* bytes, std::size_t length, std::uint64_t& number) {
    const std::lock_guard lock(m_mutex);
    const WirePlan plan = m_link.next(toUnit, setting());
    number = m_recorder != nullptr ? m_recorder->record(toUnit, station, bytes, length, plan.fate()) : 0;
    return plan;
  }

  void correctFate(std::uint64_t number, Fate fate) {
    if (number != 0)
      m_recorder->setFate(number, fate);
  }

  void tellActiveTests(std::uint16_t flags) {
    if (m_recorder != nullptr)
      m_recorder->setActiveTests(flags);
  }

private:
  /// The setting as it is now. A unit that can't be read has the one it had.
  const WireSetting& setting() {
    try {
      Database& database = theUnit().database();
      if (const Database::Version now = database.version(); now != m_version) {
        m_setting = wireSetting(database);
        m_version = now;
      }
    } catch (const std::exception& error) {
      std::fprintf(stderr, "simulator: %s\n", error.what());
    }
    return m_setting;
  }

  std::unique_ptr<WireRecorder> m_recorder;
  std::mutex m_mutex; ///< guards what follows
  WireLink m_link;
  WireSetting m_setting;
  Database::Version m_version;
};

Wire& wire() {
  static auto* const made = new Wire;
  return *made;
}

/// Datagrams on their way to the unit. Used by the one thread that receives.
class Arrivals {
public:
  struct Item {
    std::string bytes;
    sockaddr_in station;
  };

  void add(std::chrono::microseconds delay, const void* bytes, std::size_t length, const sockaddr_in& station) {
    m_items.add(steady_clock::now() + delay, {std::string(static_cast<const char*>(bytes), length), station});
  }

  bool isEmpty() const { return m_items.isEmpty(); }
  std::optional<Item> take() { return m_items.take(steady_clock::now()); }

  /// Waits for the next one, or for something to receive. Returns whether there is something to receive.
  bool waitFor(int socket) const {
    const auto time = std::max(m_items.nextArrival() - steady_clock::now(), steady_clock::duration::zero());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const timespec limit{.tv_sec = static_cast<time_t>(seconds.count()),
                         .tv_nsec = static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
    pollfd readable{.fd = socket, .events = POLLIN, .revents = 0};
    return ppoll(&readable, 1, &limit, nullptr) == 1;
  }

private:
  InFlight<Item> m_items;
};

/// Sends datagrams later, on a thread of its own. Never destroyed, as the wire.
class Departures {
public:
  struct Item {
    int socket;
    std::string bytes;
    int flags;
    sockaddr_in station;
  };

  void add(std::chrono::microseconds delay, Item item) {
    const std::lock_guard lock(m_mutex);
    m_items.add(steady_clock::now() + delay, std::move(item));
    if (!m_isRunning)
      std::thread([this] { run(); }).detach();
    m_isRunning = true;
    m_added.notify_one();
  }

private:
  void run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
      if (m_items.isEmpty())
        m_added.wait(lock);
      else if (const std::optional<Item> item = m_items.take(steady_clock::now()))
        send(*item);
      else
        m_added.wait_until(lock, m_items.nextArrival());
    }
  }

  static void send(const Item& item) {
    __real_sendto(item.socket, item.bytes.data(), item.bytes.size(), item.flags,
                  reinterpret_cast<const sockaddr*>(&item.station), sizeof item.station);
  }

  std::mutex m_mutex;
  std::condition_variable m_added;
  InFlight<Item> m_items;
  bool m_isRunning = false;
};

Arrivals& arrivals() {
  static auto* const made = new Arrivals;
  return *made;
}

Departures& departures() {
  static auto* const made = new Departures;
  return *made;
}

/// What the caller of recvfrom(2) gave to be filled.
struct Destination {
  void* buffer;
  std::size_t size;
  sockaddr* sender;
  socklen_t* senderLength;
  socklen_t senderSize;
};

ssize_t handOver(const Arrivals::Item& item, const Destination& destination) {
  const std::size_t length = std::min(item.bytes.size(), destination.size);
  std::memcpy(destination.buffer, item.bytes.data(), length);
  std::memcpy(destination.sender, &item.station, std::min<std::size_t>(destination.senderSize, sizeof item.station));
  *destination.senderLength = sizeof item.station;
  return static_cast<ssize_t>(length);
}

/// Puts on their way the copies of a datagram that don't arrive at once. Returns whether the first one does.
bool sendOn(const WirePlan& plan, const void* bytes, std::size_t length, const sockaddr_in& station) {
  const bool arrivesNow = plan.copies > 0 && plan.delays[0].count() == 0;
  for (int copy = arrivesNow ? 1 : 0; copy < plan.copies; ++copy)
    arrivals().add(plan.delays[static_cast<std::size_t>(copy)], bytes, length, station);
  return arrivesNow;
}

ssize_t receive(int socket, int flags, const Destination& destination) {
  for (;;) {
    if (const std::optional<Arrivals::Item> item = arrivals().take())
      return handOver(*item, destination);
    const bool isWaiting = !arrivals().isEmpty();
    if (isWaiting && !arrivals().waitFor(socket))
      continue;
    *destination.senderLength = destination.senderSize;
    const ssize_t length =
        __real_recvfrom(socket, destination.buffer, destination.size, isWaiting ? flags | MSG_DONTWAIT : flags,
                        destination.sender, destination.senderLength);
    if (length < 0 && isWaiting && errno == EAGAIN)
      continue;
    if (length < 0)
      return length;
    const sockaddr_in station = inetAddress(destination.sender, *destination.senderLength);
    std::uint64_t number = 0;
    const auto size = static_cast<std::size_t>(length);
    const WirePlan plan = wire().take(true, station, destination.buffer, size, number);
    if (sendOn(plan, destination.buffer, size, station))
      return length;
  }
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): as above, the linker makes these names.

ssize_t __wrap_recvfrom(int socket, void* buffer, size_t size, int flags, sockaddr* sender, socklen_t* senderLength) {
  wire(); // opened before the first datagram has to wait for it
  return receive(socket, flags, {buffer, size, sender, senderLength, *senderLength});
}

ssize_t __wrap_sendto(int socket, const void* buffer, size_t length, int flags, const sockaddr* receiver,
                      socklen_t receiverLength) {
  const sockaddr_in station = inetAddress(receiver, receiverLength);
  wire().tellActiveTests(unFtmState.usWd);
  std::uint64_t number = 0;
  const WirePlan plan = wire().take(false, station, buffer, length, number);
  auto result = static_cast<ssize_t>(length);
  for (int copy = 0; copy < plan.copies; ++copy) {
    const std::chrono::microseconds delay = plan.delays[static_cast<std::size_t>(copy)];
    if (delay.count() != 0)
      departures().add(delay, {socket, std::string(static_cast<const char*>(buffer), length), flags, station});
    else
      result = __real_sendto(socket, buffer, length, flags, receiver, receiverLength);
  }
  if (result < 0)
    wire().correctFate(number, Fate::lost); // the machine's network has refused it
  return result;
}

// NOLINTEND(bugprone-reserved-identifier): the end of the linker's names.
