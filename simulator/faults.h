#pragma once
// Faults: named rows that make one thing of the unit fail until they are switched off.

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/database.h"

namespace gateway {

/// A form of fault names. A word in capitals stands for one that the user chooses.
struct FaultForm {
  const char* form;
  const char* effect;
};

/// All forms.
std::span<const FaultForm> faultForms();

class Faults {
public:
  explicit Faults(Database& database) : m_database(database) {}

  /// Throws std::runtime_error when the name has none of the forms, or names something that the unit doesn't have.
  void set(std::string_view name, bool on);
  bool has(std::string_view name);
  /// Whether the fault whose name is made of these words is on.
  bool has(std::initializer_list<std::string_view> words);
  /// The names of all that are on, sorted.
  std::vector<std::string> names();

private:
  const std::vector<std::string>& current();

  Database& m_database;
  Database::Version m_version;
  std::vector<std::string> m_names;
};

} // namespace gateway
