#include "simulator/scenario/scenario.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "simulator/commands.h"
#include "simulator/drivers/gpio.h"
#include "simulator/unit.h"
#include "simulator/whole_file.h"
#include "simulator/words.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

constexpr Step::Time waitLimit = 10s;
constexpr Step::Time rowLimit = 10s; // of an expected row: the service writes its rows a moment later

[[noreturn]] void refuse(const std::string& reason) {
  throw std::invalid_argument(reason);
}

struct TimeUnit {
  std::string_view name;
  double ms;
};
constexpr TimeUnit timeUnits[] = {{"ms", 1}, {"s", 1'000}, {"min", 60'000}};
constexpr double longestMs = 86'400'000;

Step::Time timeOf(const std::string& word) {
  double value = -1;
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, value, std::chars_format::fixed);
  const std::string_view name(stop, static_cast<std::size_t>(end - stop));
  const auto* const unit = std::ranges::find(timeUnits, name, &TimeUnit::name);
  if (error != std::errc() || unit == std::end(timeUnits) || !(value >= 0 && value * unit->ms <= longestMs))
    refuse(word + " is no time, such as 200ms, 1.5s or 2min");
  return Step::Time(std::lround(value * unit->ms));
}

/// How an action is taken back: one of its words is another one.
struct Undo {
  std::string_view action;
  std::size_t place;
  std::string_view word; ///< empty: any
  std::string_view opposite;
};
constexpr Undo undos[] = {
    {"press", 0, "press", "release"}, {"release", 0, "release", "press"}, {"fault", 1, "on", "off"},
    {"fault", 1, "off", "on"},        {"line", 1, "down", "up"},          {"line", 1, "train", "up"},
    {"port", 2, "down", "up"},        {"port", 2, "up", "down"},          {"traffic", 1, "on", "off"},
    {"traffic", 1, "off", "on"},      {"radio", 1, "down", "up"},         {"radio", 1, "up", "down"},
    {"station", 1, "join", "leave"},  {"usb", 1, "plug", "unplug"},       {"wire", 2, "", "0"},
};
constexpr std::string_view actionsWithLostOptions[] = {"usb", "wire"}; // the opposite has none

Words undoOf(const Words& words) {
  const auto* const found = std::ranges::find_if(undos, [&](const Undo& undo) {
    return words[0] == undo.action && words.size() > undo.place &&
           (undo.word.empty() || words[undo.place] == undo.word);
  });
  if (found == std::end(undos))
    refuse("nothing takes this back after a while: " + joinWords(words));
  Words undo = words;
  undo[found->place] = found->opposite;
  if (std::ranges::find(actionsWithLostOptions, found->action) != std::end(actionsWithLostOptions))
    undo.resize(found->place + 1);
  checkAction(undo);
  return undo;
}

/// Actions that are refused in any state of the unit, or in none.
bool isRefusedAlwaysOrNever(const Words& words) {
  constexpr std::string_view actions[] = {"fault", "port", "speed", "set", "wire"};
  return std::ranges::find(actions, words[0]) != std::end(actions) ||
         (words[0] == "circuit" && words.size() > 1 && words[1] == "new");
}

/// Reads the words of a line from left to right.
class Line {
public:
  Line(Words words, const std::filesystem::path& folder, Unit& scratch)
      : m_words(std::move(words)), m_folder(folder), m_scratch(scratch) {}

  Step step() {
    Step step;
    if (takeIf("at"))
      setStart(step, Step::Start::at);
    else if (takeIf("after"))
      setStart(step, Step::Start::after);
    step.text = joinWords(rest());
    takeAct(step);
    if (m_next < m_words.size())
      refuse("not expected: " + joinWords(rest()));
    return step;
  }

private:
  Words rest() const { return {m_words.begin() + static_cast<std::ptrdiff_t>(m_next), m_words.end()}; }

  bool takeIf(std::string_view word) {
    const bool isThere = m_next < m_words.size() && m_words[m_next] == word;
    m_next += isThere ? 1 : 0;
    return isThere;
  }

  std::string take(const char* what) {
    if (m_next == m_words.size())
      refuse(std::string(what) + " is missing");
    return m_words[m_next++];
  }

  void setStart(Step& step, Step::Start start) {
    step.start = start;
    step.time = timeOf(take("the time"));
  }

  void takeAct(Step& step) {
    if (takeIf("for"))
      takeFor(step);
    else if (takeIf("refused"))
      takeRefusal(step);
    else if (takeIf("read"))
      takeRead(step);
    else if (takeIf("write"))
      takeWrite(step);
    else if (takeIf("wait"))
      takeWait(step);
    else if (takeIf("expect"))
      takeExpectation(step);
    else
      takeAction(step);
  }

  void takeAction(Step& step) {
    if (m_next == m_words.size())
      refuse("what is to be done is missing");
    step.words = rest();
    m_next = m_words.size();
    checkAction(step.words);
    if (step.kind == Step::Kind::action && isRefusedAlwaysOrNever(step.words))
      runAction(m_scratch, step.words);
  }

  void takeFor(Step& step) {
    step.duration = timeOf(take("the time"));
    takeAction(step);
    step.undo = undoOf(step.words);
  }

  void takeRefusal(Step& step) {
    step.kind = Step::Kind::refusal;
    takeAction(step);
  }

  void takeRead(Step& step) {
    step.kind = Step::Kind::read;
    step.file = take("the file");
    if (!takeIf("expect"))
      return;
    if (takeIf("error"))
      return step.error.emplace(take("the message")), void();
    do
      takeValue(step);
    while (m_next < m_words.size());
  }

  void takeValue(Step& step) {
    const std::string word = take("ELEMENT=TEXT");
    const std::size_t end = word.find('=');
    if (end == 0 || end == std::string::npos)
      refuse(word + " is no ELEMENT=TEXT");
    step.values.emplace_back(word.substr(0, end), word.substr(end + 1));
  }

  void takeWrite(Step& step) {
    step.kind = Step::Kind::write;
    step.file = take("the file");
    if (takeIf("text"))
      step.content = take("the text");
    else if (takeIf("file"))
      step.content = readWholeFile(m_folder / take("the file that is sent"));
    else
      refuse("\"text\" or \"file\" is missing");
    if (!takeIf("expect"))
      return;
    if (!takeIf("error"))
      refuse("a write can only be expected to end with an error");
    step.error = take("the message");
  }

  void takeWait(Step& step) {
    step.kind = Step::Kind::wait;
    step.limit = waitLimit;
    takeCondition(step.condition);
    if (takeIf("within"))
      step.limit = timeOf(take("the time"));
  }

  void takeExpectation(Step& step) {
    step.kind = Step::Kind::expect;
    takeCondition(step.condition);
    if (step.condition.kind == Condition::Kind::row)
      step.limit = rowLimit;
  }

  void takeCondition(Condition& condition) {
    const std::string word = take("what is expected");
    if (word == "ready")
      condition.kind = Condition::Kind::ready;
    else if (word == "row")
      takeRow(condition);
    else if (word == "led")
      takeLed(condition);
    else if (word == "cell")
      takeCell(condition);
    else if (word == "status")
      takeStatus(condition);
    else
      refuse(word + " is nothing that can be expected: it is row, ready, led, cell or status");
  }

  void takeRow(Condition& condition) {
    condition.kind = Condition::Kind::row;
    condition.name = take("the kind of the row");
    if (m_next < m_words.size() && m_words[m_next] != "within")
      condition.text = take("the text");
  }

  void takeLed(Condition& condition) {
    condition.kind = Condition::Kind::led;
    condition.name = take("the LED");
    condition.text = take("on or off");
    if (condition.text != "on" && condition.text != "off")
      refuse("an LED is on or off, not " + condition.text);
    const std::vector<GpioPoint> points = gpioPoints(m_scratch.database());
    if (std::ranges::none_of(
            points, [&](const GpioPoint& point) { return point.kind == "led" && point.name == condition.name; }))
      refuse("the unit has no LED " + condition.name);
  }

  void takeCell(Condition& condition) {
    condition.kind = Condition::Kind::cell;
    condition.name = take("the table");
    condition.column = take("the column");
    condition.text = take("the text");
    const Words columns = m_scratch.columns(condition.name);
    if (std::ranges::find(columns, condition.column) == columns.end())
      refuse("the store has no " + condition.name + " " + condition.column);
    if (takeIf("--row"))
      condition.row = rowNumber(take("the row"));
  }

  static int rowNumber(const std::string& word) {
    int row = -1;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), row);
    if (error != std::errc() || end != word.data() + word.size() || row < 0)
      refuse(word + " is no row");
    return row;
  }

  void takeStatus(Condition& condition) {
    condition.kind = Condition::Kind::status;
    condition.name = take("the label");
    condition.text = take("the text");
  }

  const Words m_words;
  const std::filesystem::path& m_folder;
  Unit& m_scratch;
  std::size_t m_next = 0;
};

} // namespace

Scenario parseScenario(std::string_view text, const std::filesystem::path& folder) {
  Scenario scenario;
  const std::unique_ptr<Unit> scratch = Unit::inMemory();
  Step::Time last{0};
  std::istringstream lines{std::string(text)};
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    try {
      Words words = splitWords(line);
      if (words.empty())
        continue;
      Step step = Line(std::move(words), folder, *scratch).step();
      step.line = number;
      if (step.start == Step::Start::at && step.time < last)
        refuse("the time lies before that of a line above");
      if (step.start == Step::Start::at)
        last = step.time;
      scenario.steps.push_back(std::move(step));
    } catch (const std::exception& error) {
      scenario.badLines.push_back({number, error.what()});
    }
  }
  return scenario;
}

} // namespace gateway
