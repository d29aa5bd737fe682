// Runs a complete session again and again, each time in a process of its own in which another call of the service
// fails, and looks at what comes of it:
// - the station is answered what the table of expected answers says, or what it is answered without the failure;
// - the production data are those before a refused write, or those of a taken one, and never something between;
// - the next request is served, and nothing has leaked or stays open;
// - or the service has ended in its own way, with status 255, where the table allows that.
//
// Usage: failures TABLE [EVERY [FIRST [print]]]: each EVERYth call fails, beginning with the FIRSTth. "print" writes
// what came of each as a line for the table.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/board_calls.h"
#include "simulator/clock.h"
#include "simulator/unit.h"
#include "tests/failures/calls.h"
#include "tests/failures/session.h"

namespace {

constexpr int fatalStatus = 255;

// Answers of the table, besides those of a session.
constexpr std::string_view ends = "ends";   // the service has ended
constexpr std::string_view usual = "usual"; // as without the failure

using Answers = std::vector<std::string>;

/// What a failure may come to, by "step | call". A step may be "*".
using Table = std::map<std::string, std::set<std::string, std::less<>>>;

Table readTable(const char* file) {
  Table table;
  std::ifstream lines(file);
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t mark = line.rfind(" | ");
    if (!line.empty() && line[0] != '#' && mark != std::string::npos)
      table[line.substr(0, mark)].insert(line.substr(mark + 3));
  }
  return table;
}

/// Temporary folder of this process and of those it starts, which may end without removing what they made in it.
class ScratchFolder {
public:
  ScratchFolder() : m_path((std::filesystem::temp_directory_path() / "failures-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr)
      throw std::runtime_error("no temporary folder can be made");
    setenv("TMPDIR", m_path.c_str(), 1);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

private:
  std::string m_path;
};

/// One session in this process.
class Run {
public:
  Run(const Table& table, Answers answers, bool prints)
      : m_table(table), m_usual(std::move(answers)), m_prints(prints) {}

  /// Returns what the station was answered, step by step.
  Answers perform() {
    m_production = session::productionData();
    Answers answers;
    for (m_step = 0; m_step < session::steps().size(); ++m_step) {
      const bool hadFailed = !calls::failed().empty();
      answers.push_back(session::steps()[m_step].run());
      if (!hadFailed && !calls::failed().empty())
        judge(answers.back());
      watchProduction(answers.back());
      require(answers.back() != session::silence, "every request is answered");
    }
    m_calls = calls::count();
    require(session::lastAnswer() == session::served, "the next request is served");
    require(gateway::openDescriptors() == 0, "every device is closed");
    return answers;
  }

  /// How many calls the session took.
  std::size_t calls() const { return m_calls; }

  /// The service has ended.
  void judgeEnd() {
    judge(std::string(ends));
    const std::string now = session::productionData();
    require(now == m_production || isWhole(now), "no production data are half-written");
  }

private:
  const char* stepName() const { return session::steps()[m_step].name; }

  void judge(const std::string& answer) const {
    const bool isUsual = answer == m_usual[m_step];
    const std::string call = " | " + calls::failed();
    if (m_prints)
      dprintf(STDERR_FILENO, "%s%s | %s\n", stepName(), call.c_str(), isUsual ? usual.data() : answer.c_str());
    for (const std::string& key : {stepName() + call, "*" + call})
      if (const auto row = m_table.find(key); row != m_table.end())
        return require(row->second.contains(answer) || (isUsual && row->second.contains(usual)),
                       "the answer is one that the table names");
    require(isUsual, "the answer is the usual one");
  }

  void watchProduction(const std::string& answer) {
    const std::string now = session::productionData();
    if (std::string_view(stepName()) != "write production data" || answer != session::taken)
      return require(now == m_production, "only a write that is taken changes the production data");
    require(isWhole(now), "production data that are taken are written");
    m_production = now;
  }

  /// Whether all cells are those of one of the session's writes.
  static bool isWhole(const std::string& cells) { return cells == repeated("first") || cells == repeated("second"); }

  static std::string repeated(const std::string& value) {
    constexpr int columns = 6;
    std::string text;
    for (int column = 0; column < columns; ++column)
      text.append(value).append("|");
    return text;
  }

  void require(bool holds, const char* what) const {
    if (holds)
      return;
    dprintf(STDERR_FILENO, "does not hold: %s: in \"%s\" with a failure of %s\n", what,
            m_step < session::steps().size() ? stepName() : "the end", calls::failed().c_str());
    _exit(EXIT_FAILURE);
  }

  const Table& m_table;
  const Answers m_usual;
  const bool m_prints;
  std::size_t m_step = 0;
  std::size_t m_calls = 0;
  std::string m_production;
};

Run* running; // in a process that has a session under way

void judgeEndOfProcess() {
  const calls::Outside outside;
  if (running != nullptr)
    running->judgeEnd();
}

/// The whole of a process in which a call fails. Its end also looks for leaks.
[[noreturn]] void runFailing(std::size_t number, const Table& table, const Answers& answers, bool prints) {
  std::atexit(judgeEndOfProcess);
  Run run(table, answers, prints);
  running = &run;
  calls::letFail(number);
  run.perform();
  running = nullptr;
  std::exit(EXIT_SUCCESS);
}

int statusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

std::string described(int status) {
  return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "status " + std::to_string(WEXITSTATUS(status));
}

struct Figures {
  std::size_t wentOn = 0;
  std::size_t ended = 0;
  std::size_t wrong = 0;
};

void count(Figures& figures, std::size_t number, int status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS)
    ++figures.wentOn;
  else if (WIFEXITED(status) && WEXITSTATUS(status) == fatalStatus)
    ++figures.ended;
  else {
    ++figures.wrong;
    dprintf(STDERR_FILENO, "failure of call %zu: %s\n", number, described(status).c_str());
  }
}

void silence(std::FILE*& stream) {
  stream = std::fopen("/dev/null", "w");
}

/// Answers without a failure, none where the session went wrong. They come from a process of their own too, so that
/// each session begins with a fresh one.
struct UsualSession {
  Answers answers;
  std::size_t calls = 0;
};

UsualSession usualSession(const Table& table) {
  int line[2];
  if (pipe(line) != 0)
    return {};
  const pid_t child = fork();
  if (child == 0) {
    Run run(table, {}, false);
    const Answers answers = run.perform();
    for (const std::string& answer : answers)
      dprintf(line[1], "%s\n", answer.c_str());
    dprintf(line[1], "%zu\n", run.calls());
    _exit(EXIT_SUCCESS);
  }
  close(line[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t length = 0; (length = read(line[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(length));
  close(line[0]);
  if (statusOf(child) != 0)
    return {};
  UsualSession session;
  for (std::size_t start = 0, end = 0; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    session.answers.push_back(text.substr(start, end - start));
  session.calls = std::stoul(session.answers.back());
  session.answers.pop_back();
  return session;
}

} // namespace

int main(int argumentCount, char* arguments[]) {
  if (argumentCount < 2)
    return EXIT_FAILURE;
  const Table table = readTable(arguments[1]);
  const std::size_t every = argumentCount > 2 ? std::stoul(arguments[2]) : 1;
  const std::size_t first = argumentCount > 3 ? std::stoul(arguments[3]) : 1;
  const bool prints = argumentCount > 4;
  const ScratchFolder scratch;
  silence(stdout);
  silence(stderr); // a sanitizer has the descriptor
  gateway::clock::useManual();
  gateway::useUnit(gateway::Unit::inMemory());

  const UsualSession session = usualSession(table);
  if (session.answers.empty())
    return EXIT_FAILURE;
  Figures figures;
  for (std::size_t number = first; number <= session.calls; number += every) {
    const pid_t child = fork();
    if (child == 0)
      runFailing(number, table, session.answers, prints);
    count(figures, number, statusOf(child));
  }
  dprintf(STDOUT_FILENO, "%zu steps, %zu calls: %zu failures gone on from, %zu ended with status %d, %zu wrong\n",
          session.answers.size(), session.calls, figures.wentOn, figures.ended, fatalStatus, figures.wrong);
  return figures.wrong == 0 && figures.wentOn > 0 && figures.ended > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
