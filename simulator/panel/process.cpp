#include "simulator/panel/process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <utility>

#include "simulator/service_output.h"

namespace gateway {

namespace {

constexpr int mostRestarts = 10;

/// The gateway program by its name: where an emulator runs the build's programs, that is a script.
std::string gatewayProgram() {
  return std::filesystem::read_symlink("/proc/self/exe").replace_filename("gateway").string();
}

} // namespace

PanelProcess::PanelProcess(const std::filesystem::path& unit, std::string address, ServiceOutput& output)
    : m_program(gatewayProgram()), m_unit(unit.string()), m_address(std::move(address)), m_output(output) {}

PanelProcess::~PanelProcess() {
  if (m_child <= 0)
    return;
  kill(m_child, SIGKILL);
  waitpid(m_child, nullptr, 0);
}

void PanelProcess::start() {
  if (m_address.empty())
    return;
  const pid_t supervisor = getpid();
  m_child = fork();
  if (m_child == 0)
    become(supervisor);
  if (m_child < 0)
    m_output.say("The panel can't be started; the unit runs without it");
}

void PanelProcess::become(pid_t supervisor) const {
  setpgid(0, 0); // so that the Ctrl-C that ends the supervisor is no crash of the panel
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != supervisor)
    _exit(EXIT_FAILURE);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  dup2(m_output.descriptor(), STDOUT_FILENO);
  dup2(m_output.descriptor(), STDERR_FILENO);
  execl(m_program.c_str(), "gateway", "panel", "--unit", m_unit.c_str(), "--address", m_address.c_str(), nullptr);
  _exit(EXIT_FAILURE);
}

void PanelProcess::tend() {
  int status = 0;
  if (m_child <= 0 || waitpid(m_child, &status, WNOHANG) != m_child)
    return;
  m_child = -1;
  if (!WIFSIGNALED(status) || m_restarts == mostRestarts) {
    m_output.say("The unit runs on without its panel");
    return;
  }
  ++m_restarts;
  m_output.say("The panel was ended by signal " + std::to_string(WTERMSIG(status)) + " and is started again");
  start();
}

} // namespace gateway
