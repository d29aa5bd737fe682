// Runs a complete session again and again, each time in a process of its own in which another call of the service
// fails, and looks at what comes of it:
// - the station is answered what the table of expected answers says, or what it is answered without the failure;
// - after that it is answered and shown what it is without the failure, but for what the table of lasting effects says;
// - the production data are those before a refused write, or those of a taken one, and never something between;
// - the next request is served, and nothing has leaked or stays open;
// - or the service has ended in its own way, with status 255, where the table allows that.
//
// The session without a failure comes first: it has to go as the table of expected answers says.
//
// Usage: failures EXPECTED LASTING [EVERY [FIRST [print]]]: each EVERYth call fails, beginning with the FIRSTth.
// "print" writes what came of each as lines for the tables.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/board_calls.h"
#include "simulator/clock.h"
#include "simulator/unit.h"
#include "tests/failures/calls.h"
#include "tests/failures/contents.h"
#include "tests/failures/session.h"

namespace {

constexpr int fatalStatus = 255;

// Answers of the table, besides those of a session.
constexpr std::string_view ends = "ends";   // the service has ended
constexpr std::string_view usual = "usual"; // as without the failure

// What the tables have in the place of a call.
constexpr const char* noFailure = "no failure"; // of the session without one
constexpr const char* refused = "refused";      // of any with whose failure the step has another answer than usual

using session::Answer;
using Answers = std::vector<Answer>;

/// Rows "key | value" by their keys, which may have several parts.
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
  if (table.empty())
    throw std::runtime_error(std::string("no table in ") + file);
  return table;
}

struct Tables {
  Table expected; ///< what a failure may come to, by "step | call"; the step may be "*"
  Table lasting;  ///< what may differ later, by "step | call | later step"
};

/// The step's name, with its number where there have been others of that name.
std::string labelOf(std::size_t step) {
  const std::span<const session::Step> steps = session::steps();
  const std::string_view name = steps[step].name;
  const auto same = [&](const session::Step& other) { return other.name == name; };
  const auto earlier = std::count_if(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(step), same);
  return std::string(name) + (earlier == 0 ? "" : " " + std::to_string(earlier + 1));
}

/// Whether one of the names is that of the element or of one around it.
bool namesElement(const std::set<std::string, std::less<>>& names, const std::string& path) {
  return std::ranges::any_of(names, [&](const std::string& name) {
    return path == name || (path.starts_with(name) && path[name.size()] == '/');
  });
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
  /// Without `usualAnswers` it is the session without a failure.
  Run(const Tables& tables, const Answers* usualAnswers, bool prints)
      : m_tables(tables), m_usual(usualAnswers), m_prints(prints) {}

  /// Returns what the station was answered, step by step.
  Answers perform() {
    m_production = session::productionData();
    Answers answers;
    for (m_step = 0; m_step < session::steps().size(); ++m_step) {
      const bool hadFailed = !calls::failed().empty();
      answers.push_back(session::steps()[m_step].run());
      if (m_usual == nullptr)
        judgeUndisturbed(answers.back().text);
      else if (hadFailed)
        judgeLater(answers.back());
      else if (!calls::failed().empty())
        judge(answers.back().text);
      watchProduction(answers.back().text);
      require(answers.back().text != session::silence, "every request is answered");
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

  void judgeUndisturbed(const std::string& answer) const {
    const session::Step& step = session::steps()[m_step];
    const auto refusal = m_tables.expected.find(std::string(step.name) + " | " + noFailure);
    require(refusal == m_tables.expected.end() ? answer == step.answer : refusal->second.contains(answer),
            "without a failure it is taken, or refused as the table says");
  }

  void judge(const std::string& answer) {
    const bool isUsual = answer == (*m_usual)[m_step].text;
    m_failedStep = m_step;
    m_cause = isUsual ? calls::failed() : refused;
    const std::string call = " | " + calls::failed();
    if (m_prints)
      dprintf(STDERR_FILENO, "%s%s | %s\n", stepName(), call.c_str(), isUsual ? usual.data() : answer.c_str());
    for (const std::string& key : {stepName() + call, "*" + call})
      if (const auto row = m_tables.expected.find(key); row != m_tables.expected.end())
        return require(row->second.contains(answer) || (isUsual && row->second.contains(usual)),
                       "the answer is one that the table names");
    require(isUsual, "the answer is the usual one");
  }

  void judgeLater(const Answer& answer) const {
    const Answer& expected = (*m_usual)[m_step];
    if (answer.text != expected.text)
      judgeDifference(answer.text);
    else
      for (const std::string& path : contents::differences(answer.file, expected.file))
        judgeDifference(path);
  }

  void judgeDifference(const std::string& what) const {
    const std::string failed = labelOf(m_failedStep);
    const std::string later = " | " + labelOf(m_step);
    if (m_prints)
      dprintf(STDERR_FILENO, "%s | %s%s | %s\n", failed.c_str(), m_cause.c_str(), later.c_str(), what.c_str());
    const auto row = m_tables.lasting.find(failed + " | " + m_cause + later);
    require(row != m_tables.lasting.end() && namesElement(row->second, what),
            ("later answers are the usual ones, but for \"" + what + "\"").c_str());
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
    const std::string step = m_step < session::steps().size() ? labelOf(m_step) : "the end";
    const std::string cause = calls::failed().empty() ? noFailure : "a failure of " + calls::failed();
    dprintf(STDERR_FILENO, "does not hold: %s: in \"%s\" with %s\n", what, step.c_str(), cause.c_str());
    _exit(EXIT_FAILURE);
  }

  const Tables& m_tables;
  const Answers* const m_usual;
  const bool m_prints;
  std::size_t m_step = 0;
  std::size_t m_failedStep = 0;
  std::string m_cause; // of what differs later
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
[[noreturn]] void runFailing(std::size_t number, const Tables& tables, const Answers& answers, bool prints) {
  std::atexit(judgeEndOfProcess);
  Run run(tables, &answers, prints);
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

/// Each text with a NUL behind it.
void send(int descriptor, std::initializer_list<std::string> texts) {
  for (const std::string& text : texts)
    if (write(descriptor, text.c_str(), text.size() + 1) != static_cast<ssize_t>(text.size() + 1))
      _exit(EXIT_FAILURE);
}

UsualSession usualSession(const Tables& tables) {
  int line[2];
  if (pipe(line) != 0)
    return {};
  const pid_t child = fork();
  if (child == 0) {
    Run run(tables, nullptr, false);
    for (const Answer& answer : run.perform())
      send(line[1], {answer.text, answer.file});
    send(line[1], {std::to_string(run.calls())});
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
  std::istringstream texts(text);
  UsualSession session;
  for (std::size_t step = 0; step < session::steps().size(); ++step) {
    Answer& answer = session.answers.emplace_back();
    std::getline(texts, answer.text, '\0');
    std::getline(texts, answer.file, '\0');
  }
  texts >> session.calls;
  return session;
}

} // namespace

int main(int argumentCount, char* arguments[]) {
  if (argumentCount < 3)
    return EXIT_FAILURE;
  const Tables tables = {.expected = readTable(arguments[1]), .lasting = readTable(arguments[2])};
  const std::size_t every = argumentCount > 3 ? std::stoul(arguments[3]) : 1;
  const std::size_t first = argumentCount > 4 ? std::stoul(arguments[4]) : 1;
  const bool prints = argumentCount > 5;
  const ScratchFolder scratch;
  silence(stdout);
  silence(stderr); // a sanitizer has the descriptor
  gateway::clock::useManual();
  gateway::useUnit(gateway::Unit::inMemory());

  const UsualSession session = usualSession(tables);
  if (session.answers.empty()) {
    dprintf(STDERR_FILENO, "the session without a failure went wrong\n");
    return EXIT_FAILURE;
  }
  Figures figures;
  for (std::size_t number = first; number <= session.calls; number += every) {
    const pid_t child = fork();
    if (child == 0)
      runFailing(number, tables, session.answers, prints);
    count(figures, number, statusOf(child));
  }
  dprintf(STDOUT_FILENO, "%zu steps, %zu calls: %zu failures gone on from, %zu ended with status %d, %zu wrong\n",
          session.answers.size(), session.calls, figures.wentOn, figures.ended, fatalStatus, figures.wrong);
  return figures.wrong == 0 && figures.wentOn > 0 && figures.ended > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
