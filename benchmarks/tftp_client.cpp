// A bare TFTP client that times transfers: `tftp_client read|write HOST FILE COUNT [BYTES|DOCUMENT]`. It writes
// production data of so many bytes, or the document, which begins with a "<". Each transfer uses a socket of its own,
// as a station's client does. Prints the median time of a transfer in microseconds and the bytes of the last one.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t blockSize = 512;
constexpr std::size_t headerSize = 4;
constexpr int answerTimeoutMs = 5000;
constexpr std::uint16_t tftpPort = 69;

enum Opcode : std::uint8_t { rrq = 1, wrq = 2, data = 3, ack = 4, error = 5 };

using Datagram = std::array<unsigned char, headerSize + blockSize>;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "tftp_client: %s\n", what.c_str());
  std::exit(1);
}

class Transfer {
public:
  explicit Transfer(const char* host) : m_socket(socket(AF_INET, SOCK_DGRAM, 0)) {
    m_server.sin_family = AF_INET;
    m_server.sin_port = htons(tftpPort);
    if (m_socket < 0 || inet_pton(AF_INET, host, &m_server.sin_addr) != 1)
      fail("no socket, or not an address");
  }
  ~Transfer() { close(m_socket); }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  std::size_t read(const std::string& file) {
    request(rrq, file);
    for (std::uint16_t block = 1;; ++block) {
      const std::size_t length = receive(data, block);
      m_total += length - headerSize;
      sendHeader(ack, block);
      if (length < headerSize + blockSize)
        return m_total;
    }
  }

  std::size_t write(const std::string& file, const std::vector<char>& content) {
    request(wrq, file);
    receive(ack, 0);
    for (std::uint16_t block = 1;; ++block) {
      const std::size_t length = std::min(blockSize, content.size() - m_total);
      setHeader(data, block);
      std::memcpy(m_packet.data() + headerSize, content.data() + m_total, length);
      send(headerSize + length);
      m_total += length;
      receive(ack, block);
      if (length < blockSize)
        return m_total;
    }
  }

private:
  void request(Opcode opcode, const std::string& file) {
    const std::string text = std::string{'\0', static_cast<char>(opcode)} + file + '\0' + "octet" + '\0';
    std::memcpy(m_packet.data(), text.data(), text.size());
    send(text.size());
  }

  void setHeader(Opcode opcode, std::uint16_t block) {
    m_packet[0] = 0;
    m_packet[1] = opcode;
    m_packet[2] = static_cast<unsigned char>(block >> 8);
    m_packet[3] = static_cast<unsigned char>(block & 0xff);
  }

  void sendHeader(Opcode opcode, std::uint16_t block) {
    setHeader(opcode, block);
    send(headerSize);
  }

  void send(std::size_t length) {
    if (sendto(m_socket, m_packet.data(), length, 0, reinterpret_cast<const sockaddr*>(&m_server), sizeof m_server) < 0)
      fail("sending failed");
  }

  /// Waits for one packet of that kind and block, and answers to the port it came from from then on.
  std::size_t receive(Opcode opcode, std::uint16_t block) {
    pollfd waiting{m_socket, POLLIN, 0};
    if (poll(&waiting, 1, answerTimeoutMs) != 1)
      fail("no answer");
    socklen_t addressSize = sizeof m_server;
    const ssize_t length =
        recvfrom(m_socket, m_packet.data(), m_packet.size(), 0, reinterpret_cast<sockaddr*>(&m_server), &addressSize);
    if (length < static_cast<ssize_t>(headerSize))
      fail("a packet too short");
    if (m_packet[1] != opcode || (m_packet[2] << 8 | m_packet[3]) != block)
      fail("an unexpected packet, opcode " + std::to_string(m_packet[1]));
    return static_cast<std::size_t>(length);
  }

  int m_socket;
  sockaddr_in m_server{};
  Datagram m_packet{};
  std::size_t m_total = 0;
};

double nowMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

/// A document of `bytes` bytes that every server takes, and that makes the unit write production data.
std::vector<char> documentOf(std::size_t bytes) {
  const std::string head = "<MODEM_INFO><SERIAL_NUM>4711</SERIAL_NUM><SEC>";
  const std::string tail = "</SEC></MODEM_INFO>";
  std::string text = head;
  text.append(bytes - head.size() - tail.size(), 'x');
  text += tail;
  return {text.begin(), text.end()};
}

/// What to write, as the last argument says it.
std::vector<char> contentOf(const std::string& argument) {
  if (argument.starts_with('<'))
    return {argument.begin(), argument.end()};
  return documentOf(static_cast<std::size_t>(std::atoi(argument.c_str())));
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 5)
    fail("usage: tftp_client read|write HOST FILE COUNT [BYTES|DOCUMENT]");
  const bool reading = std::strcmp(argv[1], "read") == 0;
  const int count = std::atoi(argv[4]);
  const auto content = contentOf(argc > 5 ? argv[5] : "100");

  std::vector<double> times;
  std::size_t bytes = 0;
  for (int i = 0; i < count; ++i) {
    const double start = nowMicroseconds();
    Transfer transfer(argv[2]);
    bytes = reading ? transfer.read(argv[3]) : transfer.write(argv[3], content);
    times.push_back(nowMicroseconds() - start);
  }
  if (times.empty())
    fail("nothing to do");
  std::nth_element(times.begin(), times.begin() + count / 2, times.end());
  std::printf("%.1f %zu\n", times[static_cast<std::size_t>(count / 2)], bytes);
}
