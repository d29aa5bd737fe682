#include "simulator/supervisor.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "simulator/database.h"
#include "simulator/journal.h"
#include "simulator/panel/process.h"
#include "simulator/service_output.h"
#include "simulator/supervisor_lock.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto readyPoll = 10ms;
constexpr auto restartPause = 1s;
constexpr auto endingTime = 2s;
constexpr int commandNotRun = 127;
// The last thing that the service does before it receives.
constexpr std::string_view lastStartUpRow = "/NVRM/PTM_MODE";

/// The signals that the supervisor waits for, blocked for as long as this lives.
class Signals {
public:
  Signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
      sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, &m_before);
    m_signals = signals;
  }
  ~Signals() { restore(); }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  void restore() const { sigprocmask(SIG_SETMASK, &m_before, nullptr); }

  /// Waits for a signal, for ever when no time is given. Returns whether it was one that ends the supervisor.
  bool wait(std::optional<milliseconds> time) const {
    const timespec limit =
        time ? timespec{.tv_sec = time->count() / 1000, .tv_nsec = time->count() % 1000 * 1'000'000} : timespec{};
    const int signal = sigtimedwait(&m_signals, nullptr, time ? &limit : nullptr);
    return signal == SIGINT || signal == SIGTERM || signal == SIGHUP;
  }

private:
  sigset_t m_signals{};
  sigset_t m_before{};
};

void say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

/// "signal 9", "status 255".
std::string endText(int status) {
  return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "status " + std::to_string(WEXITSTATUS(status));
}

/// The same as a sentence's beginning.
std::string endSentence(int status) {
  return (WIFSIGNALED(status) ? "The service was ended by " : "The service ended with ") + endText(status);
}

/// Journals the boot that comes and returns the id of its row.
std::int64_t recordBoot(Unit& unit) {
  Transaction transaction(unit.database());
  std::string kind(normalBoot);
  if (Query flash(unit.database(), "SELECT next_boot FROM flash"); flash.next())
    kind = flash.text(0);
  execute(unit.database(), "UPDATE flash SET next_boot = ?", normalBoot);
  unit.journalBook().insert("boot", kind);
  Query row(unit.database(), "SELECT max(id) FROM journal");
  row.next();
  const std::int64_t id = row.number(0);
  transaction.commit();
  return id;
}

class Supervisor {
public:
  Supervisor(Unit& unit, const SupervisorLock& lock, const SupervisorOptions& options)
      : m_unit(unit), m_lock(lock), m_service(options.service), m_output(unit.folder()),
        m_panel(unit.folder(), options.panel, m_output) {}

  int run() {
    m_output.say("The unit keeps its state in " + m_unit.folder().string());
    m_panel.start();
    while (!m_isEnding) {
      boot();
      const int status = serve();
      const bool hasRebooted = recordEnd(status);
      if (m_isEnding)
        break;
      if (!m_wasReady && !hasRebooted) {
        m_output.say(endSentence(status) + " before it was ready");
        return EXIT_FAILURE;
      }
      afterEnd(status, hasRebooted);
    }
    return EXIT_SUCCESS;
  }

private:
  void boot() {
    m_bootRow = recordBoot(m_unit);
    m_isReady = false;
    const std::string self = std::to_string(getpid());
    m_child = fork();
    if (m_child == 0)
      becomeService(self);
    if (m_child < 0)
      throw std::runtime_error("the service can't be started");
    setpgid(m_child, m_child);
    m_lock.leaveService(m_child);
  }

  [[noreturn]] void becomeService(const std::string& supervisor) {
    setpgid(0, 0); // what it starts itself ends with it
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    m_signals.restore();
    dup2(m_output.descriptor(), STDOUT_FILENO);
    dup2(m_output.descriptor(), STDERR_FILENO);
    setenv(unitVariable, m_unit.folder().c_str(), 1);
    setenv(supervisorVariable, supervisor.c_str(), 1);
    execl(m_service.c_str(), m_service.c_str(), nullptr);
    std::fprintf(stderr, "%s can't be run\n", m_service.c_str());
    _exit(commandNotRun);
  }

  /// Waits for the service's end and returns its status.
  int serve() {
    int status = 0;
    while (waitpid(m_child, &status, WNOHANG) == 0) {
      m_panel.tend();
      if (m_signals.wait(m_isReady ? std::nullopt : std::optional<milliseconds>(readyPoll)))
        endService();
      else if (!m_isReady && hasStarted())
        becomeReady();
    }
    m_lock.leaveService(0);
    killpg(m_child, SIGKILL);
    return status;
  }

  bool hasStarted() {
    const std::vector<JournalRow> removals = m_unit.journal(m_bootRow, "remove");
    return std::ranges::any_of(removals, [](const JournalRow& row) { return row.text == lastStartUpRow; });
  }

  void becomeReady() {
    m_isReady = true;
    m_wasReady = true;
    m_unit.record("ready", "");
    m_unit.journalBook().flush();
    m_output.say("ready");
  }

  /// Asks the service to end, and makes it when it doesn't.
  void endService() {
    m_isEnding = true;
    killpg(m_child, SIGTERM);
    const auto limit = std::chrono::steady_clock::now() + endingTime;
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(m_child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0) {
      if (std::chrono::steady_clock::now() >= limit)
        killpg(m_child, SIGKILL);
      m_signals.wait(readyPoll);
    }
  }

  /// Journals the end and returns whether it was that of a rebooting unit: the service did that, or somebody who killed
  /// it, and whose action is over once this transaction begins.
  bool recordEnd(int status) {
    m_unit.journalBook().flush();
    Transaction transaction(m_unit.database());
    const bool hasRebooted =
        (WIFEXITED(status) && WEXITSTATUS(status) == rebootExitStatus) || !m_unit.journal(m_bootRow, "reboot").empty();
    m_unit.journalBook().insert("end", hasRebooted ? "reboot" : endText(status));
    transaction.commit();
    return hasRebooted;
  }

  void afterEnd(int status, bool hasRebooted) {
    if (hasRebooted) {
      m_output.say("The unit reboots");
      return;
    }
    m_output.say(endSentence(status) + " and is started again");
    const auto limit = std::chrono::steady_clock::now() + restartPause;
    for (auto now = limit - restartPause; now < limit && !m_isEnding; now = std::chrono::steady_clock::now())
      m_isEnding = m_signals.wait(std::chrono::ceil<milliseconds>(limit - now));
  }

  Unit& m_unit;
  const SupervisorLock& m_lock;
  const std::filesystem::path m_service;
  const Signals m_signals;
  ServiceOutput m_output;
  PanelProcess m_panel;
  pid_t m_child = -1;
  std::int64_t m_bootRow = 0;
  bool m_isReady = false;
  bool m_wasReady = false;
  bool m_isEnding = false;
};

} // namespace

int supervise(const SupervisorOptions& options) {
  std::filesystem::create_directories(options.unit);
  const SupervisorLock lock(options.unit);
  if (!lock.isHeld()) {
    say("The unit in " + options.unit.string() + " runs already");
    return EXIT_FAILURE;
  }
  if (options.isFresh) {
    Unit::remove(options.unit);
    for (const char* const file : {outputFile, olderOutputFile})
      std::filesystem::remove(options.unit / file);
  }
  const std::unique_ptr<Unit> unit = Unit::open(options.unit);
  return Supervisor(*unit, lock, options).run();
}

} // namespace gateway
