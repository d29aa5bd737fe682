// The simulated gateway's side of board.h: processes. Commands run on this machine, with the unit's tools first on
// their path; the gateway's own scripts stand for those under the folders of a gateway.
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/board.h"
#include "simulator/board_calls.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/unit.h"

using namespace gateway;

namespace {

constexpr pid_t initProcess = 1;
constexpr int commandNotRun = 127; // the shell's own status for a command that could not be run
constexpr const char* shell = "/bin/sh";
constexpr std::string_view scriptFolder = "/etc/init.d/";
constexpr const char* toolsVariable = "GATEWAY_TOOLS"; // folder of the tools, where it is not the build's
constexpr std::string_view blanks = " \t";

std::mutex childrenMutex;

std::vector<pid_t>& children() {
  static auto* const started = new std::vector<pid_t>; // never destroyed: threads use it until the process ends
  return *started;
}

bool isChild(pid_t pid) {
  const std::lock_guard lock(childrenMutex);
  return std::ranges::find(children(), pid) != children().end();
}

std::string toolsFolder() {
  const char* const chosen = std::getenv(toolsVariable);
  return chosen != nullptr && *chosen != '\0' ? chosen : GATEWAY_TOOLS_FOLDER;
}

/// A command as the shell of this machine gets it: a script of the gateway is taken from the tools.
std::string shellCommand(std::string_view command) {
  const std::size_t start = std::min(command.find_first_not_of(blanks), command.size());
  if (!command.substr(start).starts_with(scriptFolder))
    return std::string(command);
  return "\"$" + std::string(toolsVariable) + "\"" + std::string(command.substr(start));
}

/// The environment of a child: that of the caller, with the unit and the way to its tools.
class Environment {
public:
  explicit Environment(char* const variables[]) {
    const std::string tools = toolsFolder();
    std::string path = tools + ":" + GATEWAY_PROGRAM_FOLDER;
    for (char* const* variable = variables; variable != nullptr && *variable != nullptr; ++variable)
      inherit(*variable, path);
    set("PATH", path);
    set(toolsVariable, tools);
    set(unitProcessVariable, "1");
    if (const std::string unit = theUnit().folder().string(); !unit.empty())
      set(unitVariable, unit);
    for (std::string& text : m_texts)
      m_pointers.push_back(text.data());
    m_pointers.push_back(nullptr);
  }

  char* const* get() const { return m_pointers.data(); }

private:
  void set(const char* name, const std::string& value) {
    m_texts.push_back(std::string(name).append("=").append(value));
  }

  void inherit(std::string_view variable, std::string& path) {
    constexpr std::string_view own[] = {toolsVariable, unitVariable, supervisorVariable, unitProcessVariable};
    const std::string_view name = variable.substr(0, variable.find('='));
    if (name == "PATH")
      path.append(":").append(variable.substr(std::min(name.size() + 1, variable.size())));
    else if (std::ranges::find(own, name) == std::end(own))
      m_texts.emplace_back(variable);
  }

  std::vector<std::string> m_texts;
  std::vector<char*> m_pointers;
};

pid_t start(const char* path, char* const argv[], char* const envp[]) {
  const Environment environment(envp);
  const pid_t child = fork();
  if (child == 0) {
    execve(path, argv, environment.get());
    _exit(commandNotRun);
  }
  return child;
}

pid_t startShell(std::string command, char* const envp[]) {
  std::string names[] = {"sh", "-c"};
  char* const argv[] = {names[0].data(), names[1].data(), command.data(), nullptr};
  return start(shell, argv, envp);
}

bool isShellCommand(const char* path, char* const argv[]) {
  return std::string_view(path) == shell && argv[0] != nullptr && argv[1] != nullptr &&
         std::string_view(argv[1]) == "-c" && argv[2] != nullptr;
}

/// The program that stands for one of the gateway: never one of this machine, but for the shell.
std::string programOf(std::string_view path) {
  return path == shell ? std::string(path) : toolsFolder().append(path);
}

std::string commandText(const char* path, char* const argv[]) {
  std::string text = path;
  for (int index = 1; argv[0] != nullptr && argv[index] != nullptr; ++index)
    text.append(" ").append(argv[index]);
  return text;
}

/// Before a command runs, so that what it does itself comes after it.
void recordCommand(std::string_view command) {
  theUnit().record("command", command);
  theUnit().journalBook().flush();
}

/// As system(3) waits: through interruptions.
int waitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR)
      return -errno;
  return status;
}

int signalInit(int signal) {
  if (signal == SIGTERM)
    theUnit().restart();
  return 0;
}

} // namespace

int board_system(const char* command) {
  if (command == nullptr)
    return 1; // there is a shell
  return posixCall([&] {
    recordCommand(command);
    if (theUnit().faults().has("spawn"))
      return -EAGAIN;
    const pid_t child = startShell(shellCommand(command), environ);
    return child < 0 ? -errno : waitFor(child);
  });
}

pid_t board_spawn(const char* path, char* const argv[], char* const envp[]) {
  return posixCall([&]() -> int {
    const bool isCommand = isShellCommand(path, argv);
    recordCommand(isCommand ? std::string(argv[2]) : commandText(path, argv));
    if (theUnit().faults().has("spawn"))
      return -EAGAIN;
    const pid_t child =
        isCommand ? startShell(shellCommand(argv[2]), envp) : start(programOf(path).c_str(), argv, envp);
    if (child < 0)
      return -errno;
    const std::lock_guard lock(childrenMutex);
    children().push_back(child);
    return child;
  });
}

pid_t board_waitpid(pid_t pid, int* status, int options) {
  const pid_t ended = waitpid(pid, status, options);
  const std::lock_guard lock(childrenMutex);
  std::erase(children(), ended);
  return ended;
}

int board_kill(pid_t pid, int signal) {
  return posixCall([&] {
    theUnit().record("signal", std::to_string(signal) + " to " + std::to_string(pid));
    if (pid == initProcess)
      return signalInit(signal);
    if (!isChild(pid))
      return -ESRCH;
    return kill(pid, signal) == 0 ? 0 : -errno;
  });
}
