#include "simulator/panel/watch.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

namespace gateway {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto pollTime = 20ms;
constexpr auto alivePause = 1s;

} // namespace

Watch::Watch(UnitSource& source) : m_changes(source), m_thread([this] { run(); }) {}

Watch::~Watch() {
  {
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
  }
  m_woken.notify_one();
  m_thread.join();
}

std::shared_ptr<Feed> Watch::connect() {
  auto feed = std::make_shared<Feed>();
  {
    const std::lock_guard lock(m_mutex);
    if (m_feeds.size() + m_newcomers.size() >= pageLimit)
      return nullptr;
    m_newcomers.push_back(feed);
  }
  m_woken.notify_one();
  return feed;
}

void Watch::disconnect(const std::shared_ptr<Feed>& feed) {
  feed->close();
  const std::lock_guard lock(m_mutex);
  std::erase(m_feeds, feed);
  std::erase(m_newcomers, feed);
}

void Watch::run() {
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_woken.wait(lock, [this] { return m_isEnding || !m_feeds.empty() || !m_newcomers.empty(); });
    if (m_isEnding)
      return;
    const FeedList newcomers = m_newcomers;
    lock.unlock();
    try {
      tellChanges();
      greet(newcomers);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "panel: %s\n", error.what());
      std::this_thread::sleep_for(alivePause); // the unit can't be read, which may last; it is not said all the time
    }
    lock.lock();
    m_woken.wait_for(lock, pollTime, [this] { return m_isEnding || !m_newcomers.empty(); });
  }
}

void Watch::tellChanges() {
  for (const Changes::Event& event : m_changes.next())
    tellAll(eventText(event.name, event.data));
  const auto now = steady_clock::now();
  if (now - m_aliveAt < alivePause)
    return;
  m_aliveAt = now;
  tellAll(eventText("alive", Json::object()));
}

/// Those that have left meanwhile are not among the newcomers any more.
void Watch::greet(const FeedList& newcomers) {
  if (newcomers.empty())
    return;
  const EventText state = eventText("state", m_changes.whole());
  const std::lock_guard lock(m_mutex);
  for (const std::shared_ptr<Feed>& feed : newcomers) {
    if (std::erase(m_newcomers, feed) == 0)
      continue;
    feed->push(state);
    m_feeds.push_back(feed);
  }
}

void Watch::tellAll(const EventText& event) {
  const std::lock_guard lock(m_mutex);
  for (const std::shared_ptr<Feed>& feed : m_feeds)
    feed->push(event);
}

} // namespace gateway
