#pragma once
// What goes to one connected page: a bounded queue of events between the watcher and the page's connection.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "simulator/panel/json.h"

namespace gateway {

/// An event as the stream has it, shared by all pages that it goes to.
using EventText = std::shared_ptr<const std::string>;

EventText eventText(const char* name, const Json& data);

/// All threads.
class Feed {
public:
  /// What a page may be behind.
  static constexpr std::size_t byteLimit = std::size_t{4} * 1024 * 1024;

  /// Adds an event. A page that is too far behind is given up instead: its feed is closed.
  void push(const EventText& event);
  /// The next event; nothing when none comes in time, or the feed is closed.
  std::optional<EventText> next(std::chrono::milliseconds time);

  void close();
  bool isClosed() const;

private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<EventText> m_events;
  std::size_t m_bytes = 0;
  bool m_isClosed = false;
};

} // namespace gateway
