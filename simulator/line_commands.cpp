#include "simulator/line_commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

#include "simulator/line_network.h"
#include "simulator/production_line.h"

namespace gateway {

namespace {

constexpr const char* defaultFolder = "line";
constexpr int highestNumber = 60'000;

void printLine(const std::string& folder) {
  const std::vector<LineUnit> units = lineUnits(folder);
  if (units.empty())
    throw std::runtime_error("there is no line in " + folder);
  for (const LineUnit& unit : units)
    std::printf("%-8s  %-13s  %-7s  %s\n", unit.name.c_str(), unit.address.empty() ? "-" : unit.address.c_str(),
                unit.phase.c_str(), unit.serial.c_str());
}

} // namespace

void addLineCommands(CLI::App& app, const std::string& service, int& status) {
  CLI::App* const line = app.get_subcommand("line");
  line->description("Handle the DSL line of a unit, or run a production line of several units");
  line->require_subcommand(0, 1);
  const auto options = std::make_shared<LineOptions>(LineOptions{.folder = defaultFolder, .service = service});
  CLI::Option* const units = line->add_option("UNITS", options->units, "Run so many units at once until Ctrl-C")
                                 ->check(CLI::Range(1, mostLineUnits));
  line->add_option("--folder", options->folder, "Folder of the production line")->capture_default_str();
  line->add_option("--from", options->from, "Number of the first unit")
      ->check(CLI::Range(1, highestNumber))
      ->capture_default_str();
  line->add_option("--service", options->service, "Program of the service");
  line->callback([line, units, options, &status] {
    if (!line->get_subcommands().empty())
      return;
    if (units->empty())
      throw CLI::RequiredError("UNITS or a subcommand");
    status = runLine(*options);
  });
  CLI::App* const show = line->add_subcommand("status", "Show the units of the production line");
  show->add_option("--folder", options->folder, "Folder of the production line")->capture_default_str();
  show->callback([options] { printLine(options->folder.string()); });
}

} // namespace gateway
