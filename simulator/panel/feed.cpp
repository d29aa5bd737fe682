#include "simulator/panel/feed.h"

namespace gateway {

EventText eventText(const char* name, const Json& data) {
  return std::make_shared<const std::string>("event: " + std::string(name) + "\ndata: " + data.dump() + "\n\n");
}

void Feed::push(const EventText& event) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_isClosed)
      return;
    m_events.push_back(event);
    m_bytes += event->size();
    if (m_bytes > byteLimit && m_events.size() > 1) {
      m_isClosed = true;
      m_events.clear();
    }
  }
  m_changed.notify_one();
}

std::optional<EventText> Feed::next(std::chrono::milliseconds time) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, time, [this] { return m_isClosed || !m_events.empty(); });
  if (m_events.empty())
    return std::nullopt;
  EventText event = std::move(m_events.front());
  m_events.pop_front();
  m_bytes -= event->size();
  return event;
}

void Feed::close() {
  {
    const std::lock_guard lock(m_mutex);
    m_isClosed = true;
    m_events.clear();
  }
  m_changed.notify_one();
}

bool Feed::isClosed() const {
  const std::lock_guard lock(m_mutex);
  return m_isClosed;
}

} // namespace gateway
