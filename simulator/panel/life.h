#pragma once
// What the journal tells about the life of a unit's service.

#include <cstdint>
#include <string>

namespace gateway {

class Unit;

/// Follows the journal: what it has seen it doesn't read again, unless another journal has taken its place, as when a
/// saved unit is loaded. One thread at a time.
class Life {
public:
  enum class Stage { dark, booting, up };

  /// Reads what is new in the unit's journal.
  void follow(Unit& unit);
  /// Forgets what it has seen.
  void beginAnew();

  std::uint64_t generation() const { return m_generation; } ///< differs after it has begun anew

  Stage stage() const { return m_stage; }
  const std::string& bootKind() const { return m_bootKind; } ///< of the last boot; empty before the first
  const std::string& lastEnd() const { return m_lastEnd; }   ///< how the service ended last; empty before that
  std::int64_t boots() const { return m_boots; }

private:
  bool readOn(Unit& unit);
  void take(const std::string& kind, const std::string& text);

  std::uint64_t m_generation = 0;
  std::int64_t m_lastRow = 0;
  std::int64_t m_lastTime = 0; ///< of that row
  Stage m_stage = Stage::dark;
  std::string m_bootKind;
  std::string m_lastEnd;
  std::int64_t m_boots = 0;
};

constexpr const char* offPhase = "off"; ///< of a unit that no supervisor runs

/// What a unit is doing, in a word: "off", "dark", "booting" or "up".
const char* phaseOf(const Life& life, bool isSupervised);

} // namespace gateway
