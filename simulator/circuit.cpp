#include "simulator/circuit.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

#include "simulator/database.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::string_view dataInterface = "nas0";
constexpr std::string_view port = "1.";
constexpr std::uint32_t highestVpi = 255;
constexpr std::uint32_t highestVci = 65535;

struct Circuit {
  std::string vpi;
  std::string vci;
};

/// The number as decimal text without leading zeros; nothing unless all of `text` is one up to `highest`.
std::optional<std::string> number(std::string_view text, std::uint32_t highest) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || value > highest)
    return std::nullopt;
  return std::to_string(value);
}

std::optional<Circuit> parse(std::string_view text) {
  if (!text.starts_with(port))
    return std::nullopt;
  const std::string_view numbers = text.substr(port.size());
  const std::size_t point = numbers.find('.');
  if (point == std::string_view::npos)
    return std::nullopt;
  const auto vpi = number(numbers.substr(0, point), highestVpi);
  const auto vci = number(numbers.substr(point + 1), highestVci);
  if (!vpi || !vci)
    return std::nullopt;
  return Circuit{*vpi, *vci};
}

void showInAtmTable(Database& database, const Circuit& circuit) {
  execute(database, "UPDATE \"BcmAtm\" SET \"Vpi\" = ?, \"Vci\" = ? WHERE rowid = (SELECT min(rowid) FROM \"BcmAtm\")",
          circuit.vpi, circuit.vci);
}

std::string joined(std::string_view first, std::string_view second) {
  return std::string(first).append(" ").append(second);
}

} // namespace

bool newCircuit(Unit& unit, std::string_view circuit, std::string_view macAddress) {
  const auto wanted = parse(circuit);
  if (!wanted) {
    unit.record("circuit", joined("refused", circuit));
    return false;
  }
  Transaction transaction(unit.database());
  execute(unit.database(), "DELETE FROM \"VccStat\" WHERE \"Interface\" = ?", dataInterface);
  execute(unit.database(), "INSERT INTO \"VccStat\" VALUES (?, ?, ?, ?)", dataInterface, wanted->vpi, wanted->vci,
          macAddress);
  showInAtmTable(unit.database(), *wanted);
  transaction.commit();
  unit.record("circuit", joined(joined("new", circuit), macAddress));
  return true;
}

bool deleteCircuit(Unit& unit, std::string_view circuit) {
  const auto unwanted = parse(circuit);
  Transaction transaction(unit.database());
  if (!unwanted || execute(unit.database(), "DELETE FROM \"VccStat\" WHERE \"Vpi\" = ? AND \"Vci\" = ?", unwanted->vpi,
                           unwanted->vci) == 0) {
    unit.record("circuit", joined("refused", circuit));
    return false;
  }
  showInAtmTable(unit.database(), {"0", "0"});
  transaction.commit();
  unit.record("circuit", joined("deleted", circuit));
  return true;
}

} // namespace gateway
