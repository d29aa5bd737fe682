#pragma once
// The unit that the panel shows. It may come, go and be replaced while the panel runs.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "simulator/panel/life.h"
#include "simulator/unit.h"

namespace gateway {

/// There is no unit that could be read at present.
class NoUnit : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

class UnitSource {
public:
  explicit UnitSource(std::filesystem::path folder) : m_folder(std::move(folder)) {}

  const std::filesystem::path& folder() const { return m_folder; }

  /// Calls `read(unit, life)` on the unit as it is at present, of which `life` may have seen nothing yet; one thread at
  /// a time. Throws NoUnit when that can't be read.
  template <class Read>
  auto read(Read read) {
    const std::lock_guard lock(m_mutex);
    try {
      open();
      return read(*m_unit, m_life);
    } catch (const NoUnit&) {
      throw;
    } catch (const std::exception& error) {
      m_unit.reset();
      throw NoUnit(error.what());
    }
  }

private:
  /// What tells a file from one that has taken its place.
  struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    bool operator==(const FileIdentity&) const = default;
  };

  FileIdentity present() const;
  void open();

  const std::filesystem::path m_folder;
  std::mutex m_mutex;
  FileIdentity m_opened;
  std::unique_ptr<Unit> m_unit;
  Life m_life;
};

} // namespace gateway
