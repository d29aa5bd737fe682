#pragma once
// The lock that a unit's supervisor holds while it runs. Its file says which process the service is.

#include <sys/types.h>

#include <filesystem>

namespace gateway {

class SupervisorLock {
public:
  /// Tries to take the lock of the unit in `folder`; isHeld() says whether that went well.
  explicit SupervisorLock(const std::filesystem::path& folder);
  ~SupervisorLock();
  SupervisorLock(const SupervisorLock&) = delete;
  SupervisorLock& operator=(const SupervisorLock&) = delete;

  bool isHeld() const { return m_isHeld; }
  /// Leaves the process id of the service for other processes; 0: there is none. Throws std::runtime_error.
  void leaveService(pid_t service) const;

private:
  int m_descriptor;
  bool m_isHeld;
};

/// Whether a supervisor runs the unit in a folder; none does for an empty one. Asking takes no lock, so that it keeps
/// no supervisor from starting.
bool isSupervised(const std::filesystem::path& folder);

/// The running service of the unit in a folder, which stays the one that was found even if it ends meanwhile.
class RunningService {
public:
  /// Throws std::runtime_error when no service runs.
  explicit RunningService(const std::filesystem::path& folder);
  ~RunningService();
  RunningService(const RunningService&) = delete;
  RunningService& operator=(const RunningService&) = delete;

  /// Throws std::runtime_error when it has ended meanwhile, or belongs to another user.
  void kill() const;

private:
  int m_descriptor = -1;
};

} // namespace gateway
