#pragma once
// The panel as a process beside the service. What becomes of it changes nothing for the unit.

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace gateway {

class ServiceOutput;

/// One thread.
class PanelProcess {
public:
  /// `address` as parsePanelAddress() reads it; empty: there is no panel.
  PanelProcess(const std::filesystem::path& unit, std::string address, ServiceOutput& output);
  /// Ends the panel.
  ~PanelProcess();
  PanelProcess(const PanelProcess&) = delete;
  PanelProcess& operator=(const PanelProcess&) = delete;

  void start();
  /// Starts the panel again when it has crashed, but not for ever. To be called after a SIGCHLD.
  void tend();

private:
  [[noreturn]] void become(pid_t supervisor) const;

  const std::string m_program;
  const std::string m_unit;
  const std::string m_address;
  ServiceOutput& m_output;
  pid_t m_child = -1;
  int m_restarts = 0;
};

} // namespace gateway
