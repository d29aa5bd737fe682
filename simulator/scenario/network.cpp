#include "simulator/scenario/network.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace gateway {

namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t tftpPort = 69;
constexpr std::size_t largestDatagram = 65536;
constexpr Network::Time longestWait = 100ms; // so that who waits for long can be interrupted

class Socket {
public:
  Socket() = default;
  explicit Socket(int descriptor) : m_descriptor(descriptor) {}
  ~Socket() {
    if (m_descriptor >= 0)
      close(m_descriptor);
  }
  Socket(Socket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  int descriptor() const { return m_descriptor; }

private:
  int m_descriptor = -1;
};

class UdpNetwork : public Network {
public:
  explicit UdpNetwork(const std::string& address) {
    m_unit.sin_family = AF_INET;
    m_unit.sin_port = htons(tftpPort);
    if (inet_pton(AF_INET, address.c_str(), &m_unit.sin_addr) != 1)
      throw std::runtime_error(address + " is no address of a unit, such as 127.0.0.1");
  }

  Time now() override { return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch()); }

  void openPort() override {
    Socket opened(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (opened.descriptor() < 0)
      throw std::runtime_error("no UDP port can be opened");
    m_ports[1] = std::move(m_ports[0]);
    m_ports[0] = std::move(opened);
  }

  void send(Port port, std::string_view bytes) override {
    sendto(m_ports[port == Port::present ? 0 : 1].descriptor(), bytes.data(), bytes.size(), 0,
           reinterpret_cast<const sockaddr*>(&m_unit), sizeof m_unit);
  }

  std::optional<Received> receive(Time limit) override {
    std::array<pollfd, 2> readable{};
    for (std::size_t index = 0; index < readable.size(); ++index)
      readable[index] = {.fd = m_ports[index].descriptor(), .events = POLLIN, .revents = 0};
    const Time time = std::clamp(limit - now(), Time{0}, longestWait);
    if (poll(readable.data(), readable.size(), static_cast<int>(time.count())) <= 0)
      return std::nullopt;
    const std::size_t ready = readable[0].revents != 0 ? 0 : 1;
    std::string bytes(largestDatagram, '\0');
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t size = recvfrom(readable[ready].fd, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr*>(&sender), &length);
    const bool isFromUnit = sender.sin_addr.s_addr == m_unit.sin_addr.s_addr && sender.sin_port == m_unit.sin_port;
    bytes.resize(size > 0 && isFromUnit ? static_cast<std::size_t>(size) : 0);
    return Received{ready == 0 ? Port::present : Port::previous, std::move(bytes)};
  }

private:
  sockaddr_in m_unit{};
  std::array<Socket, 2> m_ports; ///< the present and the previous one
};

} // namespace

std::unique_ptr<Network> udpNetwork(const std::string& address) {
  return std::make_unique<UdpNetwork>(address);
}

} // namespace gateway
