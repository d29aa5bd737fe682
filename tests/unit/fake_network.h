#pragma once
// A network without a unit: what it answers is said before, and time moves only when somebody waits.

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/scenario/network.h"

inline std::string twoBytes(unsigned value) {
  return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}
inline std::string request(unsigned opcode, const std::string& file) {
  return twoBytes(opcode) + file + '\0' + "octet" + '\0';
}
inline std::string block(unsigned number, const std::string& payload) {
  return twoBytes(3) + twoBytes(number) + payload;
}
inline std::string ack(unsigned number) {
  return twoBytes(4) + twoBytes(number);
}
inline std::string failure(unsigned code, const std::string& text) {
  return twoBytes(5) + twoBytes(code) + text + '\0';
}
/// An answer that doesn't come.
inline const std::string silence = "silence";

class FakeNetwork : public gateway::Network {
public:
  std::deque<std::string> answers; ///< what comes next; nothing comes once it is empty
  std::deque<std::string> late;    ///< what comes to the previous port before that
  std::vector<std::string> sent;
  std::vector<std::string> sentLate;
  int ports = 0;
  std::multimap<Time, std::function<void()>> events; ///< done when the time has come

  Time now() override { return m_now; }
  void openPort() override { ++ports; }
  void send(Port port, std::string_view bytes) override {
    (port == Port::present ? sent : sentLate).emplace_back(bytes);
  }
  std::optional<Received> receive(Time limit) override {
    if (!late.empty())
      return Received{Port::previous, take(late)};
    if (!answers.empty()) {
      std::string answer = take(answers);
      if (answer != silence)
        return Received{Port::present, std::move(answer)};
    }
    waitUntil(limit);
    return std::nullopt;
  }

private:
  static std::string take(std::deque<std::string>& queue) {
    std::string first = std::move(queue.front());
    queue.pop_front();
    return first;
  }

  void waitUntil(Time limit) {
    while (!events.empty() && events.begin()->first <= limit) {
      m_now = std::max(m_now, events.begin()->first);
      const auto event = std::move(events.begin()->second);
      events.erase(events.begin());
      event();
    }
    m_now = std::max(m_now, limit);
  }

  Time m_now{0};
};
