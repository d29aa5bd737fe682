#pragma once
// Watches a unit for the connected pages. Without any it is idle.

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "simulator/panel/changes.h"
#include "simulator/panel/feed.h"
#include "simulator/panel/source.h"

namespace gateway {

/// All threads.
class Watch {
public:
  /// How many pages may be connected at a time.
  static constexpr std::size_t pageLimit = 16;

  explicit Watch(UnitSource& source);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// A feed that begins with the whole state; null when there are as many as may be.
  std::shared_ptr<Feed> connect();
  void disconnect(const std::shared_ptr<Feed>& feed);

private:
  using FeedList = std::vector<std::shared_ptr<Feed>>;

  void run();
  void tellChanges();
  void greet(const FeedList& newcomers);
  void tellAll(const EventText& event);

  Changes m_changes; ///< of the thread
  std::chrono::steady_clock::time_point m_aliveAt;
  std::mutex m_mutex; ///< guards what follows
  std::condition_variable m_woken;
  FeedList m_feeds;
  FeedList m_newcomers; ///< that haven't been told the state
  bool m_isEnding = false;
  std::thread m_thread;
};

} // namespace gateway
