#pragma once
// What a bad wire does to each datagram.

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "simulator/wire.h"
#include "simulator/wire_setting.h"

namespace gateway {

/// What becomes of one datagram.
struct WirePlan {
  static constexpr int mostCopies = 2;

  int copies = 1; ///< that arrive
  std::array<std::chrono::microseconds, mostCopies> delays{};

  Fate fate() const;
};

/// Draws the fates of the datagrams. They depend on the setting and on how many datagrams went the same way since it
/// was made, and on nothing else.
class WireLink {
public:
  WirePlan next(bool toUnit, const WireSetting& setting);

private:
  std::int64_t m_era = -1;
  std::array<std::uint64_t, 2> m_counts{}; ///< datagrams from and to the unit
};

/// What is on its way, by the time at which it arrives; what arrives at one time keeps its order.
template <class Item>
class InFlight {
public:
  using Time = std::chrono::steady_clock::time_point;

  void add(Time arrival, Item item) { m_items.emplace(arrival, std::move(item)); }
  bool isEmpty() const { return m_items.empty(); }
  /// When the first one arrives. There has to be one.
  Time nextArrival() const { return m_items.begin()->first; }
  /// Takes the first one that has arrived by a time.
  std::optional<Item> take(Time now) {
    if (m_items.empty() || m_items.begin()->first > now)
      return std::nullopt;
    return std::move(m_items.extract(m_items.begin()).mapped());
  }

private:
  std::multimap<Time, Item> m_items;
};

} // namespace gateway
