#include "simulator/service_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace gateway {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostWaiting = std::size_t{256} << 10; // bytes
constexpr std::string_view leftOut = "(some lines are left out here; output.log has them)\n";
constexpr auto lastPatience = 2s;
// A service that prints a line per transfer fills the pipe slowly; to read several at once takes less of its processor.
constexpr auto gatheringTime = 20ms;
constexpr int pipeSize = 1 << 20; // bytes

/// A thread for which a reader that has gone is an error of write(2), not the end of the process.
void ignoreGoneReaders() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

} // namespace

std::shared_ptr<Printer> Printer::start(int descriptor) {
  std::shared_ptr<Printer> printer(new Printer(descriptor));
  std::thread([printer] { printer->run(); }).detach(); // it may never come back from a terminal that is stopped
  return printer;
}

void Printer::print(std::string_view text) {
  const std::lock_guard lock(m_mutex);
  if (m_hasEnded)
    return;
  if (m_waiting.size() + text.size() > mostWaiting) {
    m_isLeavingOut = true;
    return;
  }
  if (m_isLeavingOut)
    m_waiting += leftOut;
  m_isLeavingOut = false;
  m_waiting += text;
  m_changed.notify_all();
}

void Printer::finish() {
  std::unique_lock lock(m_mutex);
  m_isEnding = true;
  m_changed.notify_all();
  m_changed.wait_for(lock, lastPatience, [this] { return m_hasEnded; });
}

void Printer::run() {
  ignoreGoneReaders();
  std::unique_lock lock(m_mutex);
  for (bool isRead = true; isRead;) {
    m_changed.wait(lock, [this] { return m_isEnding || !m_waiting.empty(); });
    if (m_waiting.empty())
      break;
    const std::string text = std::exchange(m_waiting, {});
    lock.unlock();
    isRead = write(text);
    lock.lock();
  }
  m_hasEnded = true;
  m_changed.notify_all();
}

bool Printer::write(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t size = ::write(m_descriptor, text.data(), text.size());
    if (size < 0 && errno != EINTR && errno != EAGAIN)
      return false;
    if (size < 0) {
      pollfd writable{.fd = m_descriptor, .events = POLLOUT, .revents = 0};
      poll(&writable, 1, -1);
    } else
      text.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

ServiceOutput::ServiceOutput(const std::filesystem::path& folder)
    : m_folder(folder), m_printer(Printer::start(STDOUT_FILENO)) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe can be made");
  m_ownEnd = ends[0];
  m_serviceEnd = ends[1];
  m_ending = eventfd(0, EFD_CLOEXEC);
  fcntl(m_ownEnd, F_SETFL, O_NONBLOCK);
  fcntl(m_serviceEnd, F_SETPIPE_SZ, pipeSize);
  startFile();
  m_relay = std::thread([this] { relay(); });
}

ServiceOutput::~ServiceOutput() {
  const std::uint64_t ending = 1;
  if (write(m_ending, &ending, sizeof ending) == ssize_t{sizeof ending})
    m_relay.join();
  passOn();
  m_printer->finish();
  for (const int descriptor : {m_ownEnd, m_serviceEnd, m_ending, m_file})
    close(descriptor);
}

void ServiceOutput::say(const std::string& line) {
  const std::lock_guard lock(m_mutex);
  passOn();
  keep(line + "\n");
}

void ServiceOutput::relay() {
  pollfd readable[] = {{.fd = m_ownEnd, .events = POLLIN, .revents = 0},
                       {.fd = m_ending, .events = POLLIN, .revents = 0}};
  while (poll(readable, 2, -1) >= 0 || errno == EINTR) {
    if (readable[1].revents != 0)
      return;
    std::this_thread::sleep_for(gatheringTime); // so that lines are passed on together
    const std::lock_guard lock(m_mutex);
    passOn();
  }
}

/// Passes on what the service has printed so far.
void ServiceOutput::passOn() {
  std::array<char, 16384> bytes;
  for (ssize_t size; (size = read(m_ownEnd, bytes.data(), bytes.size())) > 0;)
    keep({bytes.data(), static_cast<std::size_t>(size)});
}

// A folder that can't be written, or a full disk, costs the file and nothing else.
void ServiceOutput::keep(std::string_view text) {
  if (m_fileSize + text.size() > longestOutputFile) {
    std::error_code ignored;
    std::filesystem::rename(m_folder / outputFile, m_folder / olderOutputFile, ignored);
    close(m_file);
    startFile();
  }
  if (write(m_file, text.data(), text.size()) == static_cast<ssize_t>(text.size()))
    m_fileSize += text.size();
  m_printer->print(text);
}

void ServiceOutput::startFile() {
  m_file = open((m_folder / outputFile).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  struct stat status {};
  m_fileSize = fstat(m_file, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

} // namespace gateway
