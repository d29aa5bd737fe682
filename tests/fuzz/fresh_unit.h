#pragma once
// The unit and the service's files as every input finds them.

#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "simulator/unit.h"

namespace fuzz {

/// For the time of an input: the process's one unit in memory in factory state, the service as just started, and the
/// clock in hand at 0. What the service prints goes nowhere, no command of it is run, no file removed, and nothing is
/// journalled. At its end nothing may be open.
class FreshUnit {
public:
  FreshUnit();
  ~FreshUnit();
  FreshUnit(const FreshUnit&) = delete;
  FreshUnit& operator=(const FreshUnit&) = delete;

  static gateway::Unit& unit() { return gateway::theUnit(); }
};

/// The commands that the service has asked for since the unit was made fresh.
const std::vector<std::string>& commands();

/// Texts of the store's cells by table, row and column.
using StoreCells = std::map<std::tuple<std::string_view, int, int>, std::string>;

/// All that is in the store now.
StoreCells storeCells();

/// The text of a read of a virtual file; empty when it is refused.
std::string readFile(const char* name);

/// How a written file is refused; empty when it is taken.
std::string writeFile(const char* name, std::string_view text);

/// Reads all virtual files, one after the other.
void readAll();

} // namespace fuzz
