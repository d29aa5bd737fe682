#include "simulator/scenario/player.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "simulator/commands.h"
#include "simulator/database.h"
#include "simulator/drivers/gpio.h"
#include "simulator/status.h"
#include "simulator/unit.h"
#include "simulator/words.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;

constexpr Network::Time pollTime = 20ms;
constexpr std::string_view blanks = " \t\r\n";

std::string trimmed(std::string_view text) {
  const std::size_t start = std::min(text.find_first_not_of(blanks), text.size());
  return std::string(text.substr(start, text.find_last_not_of(blanks) + 1 - start));
}

/// Where the element's name ends in the document, from `start` on; npos when there is no such element.
std::size_t findElement(std::string_view document, std::string_view name, std::size_t start) {
  const std::string mark = "<" + std::string(name);
  for (std::size_t found = document.find(mark, start); found != std::string_view::npos;
       found = document.find(mark, found + 1)) {
    const std::size_t end = found + mark.size();
    if (end < document.size() && std::string_view(" \t\r\n/>").find(document[end]) != std::string_view::npos)
      return end;
  }
  return std::string_view::npos;
}

/// Text of the first element that a path such as "LED/POWER_LED" leads to, without the blanks around it.
std::optional<std::string> elementText(std::string_view document, std::string_view path) {
  std::size_t at = 0;
  while (!path.empty()) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    at = findElement(document, path.substr(0, slash), at);
    if (at == std::string_view::npos)
      return std::nullopt;
    path.remove_prefix(std::min(slash + 1, path.size()));
  }
  const std::size_t start = document.find('>', at);
  if (start == std::string_view::npos)
    return std::nullopt;
  if (document[start - 1] == '/')
    return "";
  return trimmed(document.substr(start + 1, document.find('<', start) - start - 1));
}

std::optional<std::string> compare(const Step& step, const TransferResult& result) {
  if (step.error && result.isDone)
    return "expected the error \"" + *step.error + "\", but it was done";
  if (step.error && result.error != *step.error)
    return "expected the error \"" + *step.error + "\", but it is \"" + result.error + "\"";
  if (!step.error && !result.isDone)
    return "it ended with the error \"" + result.error + "\"";
  for (const auto& [path, value] : step.values) {
    const std::optional<std::string> text = elementText(result.content, path);
    const std::string found = text ? "it is \"" + *text + "\"" : "there is no such element";
    if (text != value)
      return std::string("expected ").append(path).append("=").append(value).append(", but ").append(found);
  }
  return std::nullopt;
}

/// What the status screen shows behind a label, of which there may be several; nothing when it isn't there.
std::vector<std::string> statusLines(Unit& unit, const std::string& label) {
  constexpr std::size_t labelWidth = 12;
  std::istringstream screen(statusText(unit));
  std::vector<std::string> texts;
  for (std::string line; std::getline(screen, line);)
    if (trimmed(line.substr(0, labelWidth)) == label)
      texts.push_back(line.substr(std::min(labelWidth, line.size())));
  return texts;
}

bool isServiceReady(Unit& unit) {
  return std::ranges::any_of(statusLines(unit, "boot"), [](const auto& text) { return text.ends_with(", ready"); });
}

/// The texts as they are said to somebody: "a", "b".
std::string listed(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts)
    list.append(list.empty() ? "" : ", ").append("\"").append(text).append("\"");
  return list;
}

} // namespace

Player::Player(Unit& unit, Network& network, Say say, std::function<bool()> isInterrupted)
    : m_unit(unit), m_network(network), m_say(std::move(say)), m_isInterrupted(std::move(isInterrupted)),
      m_waiting(*this), m_client(m_waiting) {}

std::optional<std::string> Player::play(const Scenario& scenario) {
  m_start = m_network.now();
  m_stepEnd = m_start;
  try {
    for (const Step& step : scenario.steps)
      playInTime(step);
    waitForTheRest();
  } catch (const Stopped&) {
    takeBackTheRest();
  }
  return m_failure;
}

void Player::playInTime(const Step& step) {
  m_client.idle(startOf(step));
  takeBackWhatIsDue();
  stopAfterFailure();
  sayStep(step.line, step.text);
  if (const std::optional<std::string> failure = playStep(step))
    m_failure = "line " + std::to_string(step.line) + ": " + *failure;
  stopAfterFailure();
  m_stepEnd = m_network.now();
}

void Player::stopAfterFailure() {
  if (!m_failure && m_isInterrupted())
    m_failure = "interrupted";
  if (m_failure)
    throw Stopped();
}

Player::Time Player::startOf(const Step& step) const {
  if (step.start == Step::Start::at)
    return m_start + step.time;
  return m_stepEnd + step.time;
}

std::optional<std::string> Player::playStep(const Step& step) {
  try {
    switch (step.kind) {
    case Step::Kind::action:
      return act(step);
    case Step::Kind::refusal:
      return expectRefusal(step);
    case Step::Kind::read:
    case Step::Kind::write:
      return transfer(step);
    case Step::Kind::wait:
    case Step::Kind::expect:
      return awaitCondition(step);
    }
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return std::nullopt;
}

std::optional<std::string> Player::act(const Step& step) {
  m_rowBefore = lastRow();
  m_hasActed = true;
  runAction(m_unit, step.words);
  if (step.undo.empty())
    return std::nullopt;
  const Time time = m_network.now() + step.duration;
  const auto place = std::ranges::upper_bound(m_undos, time, {}, &Undo::time);
  m_undos.insert(place, {time, step.line, step.undo});
  return std::nullopt;
}

std::optional<std::string> Player::expectRefusal(const Step& step) {
  try {
    runAction(m_unit, step.words);
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
  return "expected to be refused, but it was done";
}

std::optional<std::string> Player::transfer(const Step& step) {
  m_rowBefore = lastRow();
  m_hasActed = true;
  return compare(step,
                 step.kind == Step::Kind::read ? m_client.read(step.file) : m_client.write(step.file, step.content));
}

std::optional<std::string> Player::awaitCondition(const Step& step) {
  const Time limit = m_network.now() + step.limit;
  for (;;) {
    const std::optional<std::string> found = difference(step.condition);
    if (!found)
      return std::nullopt;
    if (m_network.now() >= limit)
      return step.text + ": " + *found;
    m_client.idle(std::min(m_network.now() + pollTime, limit));
  }
}

std::optional<std::string> Player::difference(const Condition& condition) {
  const auto unless = [&](bool holds, const std::string& found) {
    return holds ? std::nullopt : std::optional("but " + found);
  };
  switch (condition.kind) {
  case Condition::Kind::row:
    return unless(hasRow(condition.name, condition.text), "the journal has no such row");
  case Condition::Kind::ready:
    return unless(m_hasActed ? hasRow("ready", "") : isServiceReady(m_unit), "it is not");
  case Condition::Kind::led: {
    const std::vector<GpioPoint> points = gpioPoints(m_unit.database());
    const bool isOn = std::ranges::any_of(points, [&](const GpioPoint& point) {
      return point.kind == "led" && point.name == condition.name && point.isOn;
    });
    return unless(isOn == (condition.text == "on"), isOn ? "it is on" : "it is off");
  }
  case Condition::Kind::cell: {
    const auto text = m_unit.cell(condition.name, condition.row, condition.column);
    return unless(text == condition.text, text ? "it is \"" + *text + "\"" : "there is no such row");
  }
  case Condition::Kind::status: {
    const std::vector<std::string> texts = statusLines(m_unit, condition.name);
    const auto holds = [&](const std::string& text) { return text.find(condition.text) != std::string::npos; };
    return unless(std::ranges::any_of(texts, holds),
                  texts.empty() ? "there is no such line" : "it is " + listed(texts));
  }
  }
  return std::nullopt;
}

bool Player::hasRow(const std::string& kind, const std::string& text) {
  return std::ranges::any_of(m_unit.journal(m_rowBefore, kind),
                             [&](const JournalRow& row) { return row.text.find(text) != std::string::npos; });
}

std::int64_t Player::lastRow() {
  Query query(m_unit.database(), "SELECT ifnull(max(id), 0) FROM journal");
  query.next();
  return query.number(0);
}

std::optional<Network::Received> Player::Waiting::receive(Time limit) {
  m_player.takeBackWhatIsDue();
  m_player.stopAfterFailure();
  if (!m_player.m_undos.empty())
    limit = std::min(limit, m_player.m_undos.front().time);
  return m_player.m_network.receive(limit);
}

void Player::takeBackWhatIsDue() {
  while (!m_undos.empty() && m_undos.front().time <= m_network.now()) {
    const Undo undo = m_undos.front();
    m_undos.erase(m_undos.begin());
    sayStep(undo.line, joinWords(undo.words));
    try {
      runAction(m_unit, undo.words);
    } catch (const std::runtime_error& error) {
      if (!m_failure)
        m_failure = "line " + std::to_string(undo.line) + ": " + joinWords(undo.words) + ": " + error.what();
    }
  }
}

void Player::waitForTheRest() {
  while (!m_undos.empty()) {
    m_client.idle(m_undos.front().time);
    takeBackWhatIsDue();
  }
}

/// At once, whatever their times are.
void Player::takeBackTheRest() {
  for (Undo& undo : m_undos)
    undo.time = m_start;
  takeBackWhatIsDue();
}

void Player::sayStep(int line, const std::string& text) {
  char time[64];
  const std::chrono::duration<double> passed = m_network.now() - m_start;
  std::snprintf(time, sizeof time, "%8.3f s  line %-4d ", passed.count(), line);
  m_say(time + text);
}

} // namespace gateway
