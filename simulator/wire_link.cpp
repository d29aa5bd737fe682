#include "simulator/wire_link.h"

#include <algorithm>

namespace gateway {

namespace {

/// What a number is drawn for. Each is drawn for each datagram, whatever the setting, so that one doesn't change the
/// others.
enum class Draw : std::uint64_t { loss, duplication, jitter, jitterOfCopy };
constexpr std::uint64_t drawsPerDatagram = 4;

/// A number that looks like chance and follows from its place in the row that the seed begins.
std::uint64_t numberAt(std::uint64_t seed, std::uint64_t place) {
  std::uint64_t bits = seed + (place + 1) * 0x9E3779B97F4A7C15;
  bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
  bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
  return bits ^ (bits >> 31);
}

/// The numbers of one datagram.
class Numbers {
public:
  Numbers(std::uint32_t seed, bool toUnit, std::uint64_t count)
      : m_seed(numberAt(seed, toUnit ? 1 : 0)), m_place(count * drawsPerDatagram) {}

  /// From 0 to below a limit.
  std::uint64_t below(std::uint64_t limit, Draw draw) const {
    return numberAt(m_seed, m_place + static_cast<std::uint64_t>(draw)) % limit;
  }
  bool happens(int percent, Draw draw) const { return below(100, draw) < static_cast<std::uint64_t>(percent); }

private:
  std::uint64_t m_seed;
  std::uint64_t m_place;
};

std::chrono::microseconds delayOf(const WireSetting& setting, const Numbers& numbers, Draw draw) {
  const std::chrono::microseconds jitter = std::chrono::milliseconds(setting.jitterMs);
  const auto extra = numbers.below(static_cast<std::uint64_t>(jitter.count()) + 1, draw);
  return std::chrono::milliseconds(setting.delayMs) + std::chrono::microseconds(extra);
}

} // namespace

Fate WirePlan::fate() const {
  if (copies != 1)
    return copies == 0 ? Fate::lost : Fate::duplicated;
  return delays[0].count() == 0 ? Fate::passed : Fate::delayed;
}

WirePlan WireLink::next(bool toUnit, const WireSetting& setting) {
  if (setting.era != m_era) {
    m_era = setting.era;
    m_counts = {};
  }
  const Numbers numbers(setting.seed, toUnit, m_counts[toUnit ? 1 : 0]++);
  if (setting.isClean())
    return {};
  if (numbers.happens(setting.loss, Draw::loss))
    return {.copies = 0};
  return {.copies = numbers.happens(setting.duplicate, Draw::duplication) ? 2 : 1,
          .delays = {delayOf(setting, numbers, Draw::jitter), delayOf(setting, numbers, Draw::jitterOfCopy)}};
}

} // namespace gateway
