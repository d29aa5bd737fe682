#include "simulator/panel/command.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "simulator/existing_unit.h"
#include "simulator/panel/server.h"

namespace gateway {

namespace {

struct Options {
  std::string unit;
  std::string address = panelAddressDefault;
};

} // namespace

void addPanelCommand(CLI::App& app, int& status) {
  CLI::App* const command = app.add_subcommand("panel", "Serve the unit's front panel until Ctrl-C");
  const auto options = std::make_shared<Options>();
  addUnitOption(*command, options->unit);
  command->add_option("--address", options->address, "ADDRESS:PORT; with port 0 any that is free")
      ->capture_default_str();
  command->callback([options, &status] { status = servePanel(options->unit, parsePanelAddress(options->address)); });
}

} // namespace gateway
