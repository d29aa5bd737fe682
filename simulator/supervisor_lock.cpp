#include "simulator/supervisor_lock.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>

namespace gateway {

namespace {

constexpr const char* lockFile = "supervisor.lock";

struct Processes {
  pid_t supervisor = 0;
  pid_t service = 0;
};

Processes processesOf(const std::filesystem::path& folder) {
  Processes processes;
  std::ifstream(folder / lockFile) >> processes.supervisor >> processes.service;
  return processes;
}

/// The lock on the whole file. It belongs to the open file, so that it ends when the supervisor does.
struct flock wholeFile() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

bool take(int descriptor) {
  struct flock lock = wholeFile();
  return fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
}

/// 0 when there is no such process.
pid_t parentOf(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string word; status >> word;)
    if (word == "PPid:") {
      pid_t parent = 0;
      status >> parent;
      return parent;
    }
  return 0;
}

} // namespace

SupervisorLock::SupervisorLock(const std::filesystem::path& folder)
    : m_descriptor(open((folder / lockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)),
      m_isHeld(m_descriptor >= 0 && take(m_descriptor)) {}

SupervisorLock::~SupervisorLock() {
  if (m_descriptor >= 0)
    close(m_descriptor);
}

void SupervisorLock::leaveService(pid_t service) const {
  const std::string text = std::to_string(getpid()) + " " + std::to_string(service) + "\n";
  if (ftruncate(m_descriptor, 0) != 0 ||
      pwrite(m_descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
    throw std::runtime_error("the unit's folder can't be written");
}

bool isSupervised(const std::filesystem::path& folder) {
  if (folder.empty())
    return false; // a unit in memory
  const int descriptor = open((folder / lockFile).c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0)
    return false;
  struct flock lock = wholeFile();
  const bool isKnown = fcntl(descriptor, F_OFD_GETLK, &lock) == 0;
  close(descriptor);
  return isKnown && lock.l_type != F_UNLCK;
}

// The descriptor of the process is opened before it is looked at, so what was looked at is what is killed.
RunningService::RunningService(const std::filesystem::path& folder) {
  const Processes processes = processesOf(folder);
  if (isSupervised(folder) && processes.service > 0)
    m_descriptor = static_cast<int>(syscall(SYS_pidfd_open, processes.service, 0));
  if (m_descriptor >= 0 && parentOf(processes.service) == processes.supervisor)
    return;
  if (m_descriptor >= 0)
    close(m_descriptor);
  throw std::runtime_error("no service runs on the unit");
}

RunningService::~RunningService() {
  close(m_descriptor);
}

void RunningService::kill() const {
  if (syscall(SYS_pidfd_send_signal, m_descriptor, SIGKILL, nullptr, 0) != 0)
    throw std::runtime_error("the service can't be killed");
}

} // namespace gateway
