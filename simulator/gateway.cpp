// The program of the simulated gateway.
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "simulator/commands.h"
#include "simulator/database.h"
#include "simulator/drivers/gpio.h"
#include "simulator/existing_unit.h"
#include "simulator/faults.h"
#include "simulator/line_commands.h"
#include "simulator/panel/address.h"
#include "simulator/panel/command.h"
#include "simulator/panel/life.h"
#include "simulator/saved_unit.h"
#include "simulator/scenario/commands.h"
#include "simulator/shown_text.h"
#include "simulator/status.h"
#include "simulator/store/tables.h"
#include "simulator/supervisor.h"
#include "simulator/unit.h"
#include "simulator/wire_commands.h"

namespace {

using namespace gateway;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto pollTime = 20ms;

struct Options {
  std::string unit;
  std::string service;
  bool isFresh = false;
  std::string panel = panelAddressDefault;
  bool follows = false;
  std::string kind;
  std::int64_t after = 0;
  std::string table;
  std::string text;
  std::string file;
  double timeout = 10;
};

std::string serviceOfThisBuild() {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  return (program.parent_path().parent_path() / "userapps/FTM/FTM").string();
}

/// Prints the rows after `after` and returns the last one's id.
std::int64_t printJournal(Unit& unit, std::int64_t after, const std::string& kind) {
  for (const JournalRow& row : unit.journal(after, kind)) {
    std::printf("%lld  %s  %-7s  %s\n", static_cast<long long>(row.id), timeText(row.timeMs).c_str(), row.kind.c_str(),
                shown(row.text).c_str());
    after = row.id;
  }
  std::fflush(stdout);
  return after;
}

void journal(const Options& options) {
  const auto unit = existingUnit(options.unit);
  Database::Version version = unit->database().version();
  std::int64_t last = printJournal(*unit, options.after, options.kind);
  while (options.follows && std::ferror(stdout) == 0) {
    std::this_thread::sleep_for(pollTime); // the database tells nobody that it has changed; to look at it is cheap
    const Database::Version now = unit->database().version();
    if (now == version)
      continue;
    version = now;
    last = printJournal(*unit, last, options.kind);
  }
}

void listTables() {
  for (const StoreTable& table : storeTables())
    std::printf("%s\n", table.name);
}

void printTable(const Options& options) {
  if (options.table.empty())
    return listTables();
  const auto unit = existingUnit(options.unit);
  const StoreTable* const table = findTable(options.table);
  if (table == nullptr)
    throw std::runtime_error("there is no table " + options.table);
  Tables& tables = unit->tables();
  const std::vector<std::string>& columns = tables.columns(*table);
  std::printf("row  position  column                value\n");
  for (int row = 0, rows = tables.rows(*table); row < rows; ++row)
    for (int column = 0; column < static_cast<int>(columns.size()); ++column)
      std::printf("%3d  %8d  %-20s  %s\n", row, column, columns[static_cast<std::size_t>(column)].c_str(),
                  shown(tables.cell(*table, row, column).value_or("")).c_str());
}

void printLeds(const Options& options) {
  for (const GpioPoint& point : gpioPoints(existingUnit(options.unit)->database()))
    if (point.kind == "led")
      std::printf("%3d  %-18s  %s\n", point.number, point.name.c_str(), point.isOn ? "on" : "off");
}

void listFaults(const Options& options) {
  for (const std::string& name : existingUnit(options.unit)->faults().names())
    std::printf("%s\n", name.c_str());
}

void describeFaults() {
  for (const FaultForm& fault : faultForms())
    std::printf("%-22s  %s\n", fault.form, fault.effect);
}

bool hasRow(Unit& unit, const Options& options) {
  const auto rows = unit.journal(options.after, options.kind);
  return std::ranges::any_of(rows,
                             [&](const JournalRow& row) { return row.text.find(options.text) != std::string::npos; });
}

/// Waits until a condition of the unit holds; a unit that is not there yet has none. It has to look again and again:
/// the database tells nobody that it has changed.
template <class Condition>
void waitUntil(const Options& options, Condition condition) {
  const auto limit = steady_clock::now() + std::chrono::duration<double>(options.timeout);
  std::unique_ptr<Unit> unit;
  for (;; std::this_thread::sleep_for(pollTime)) { // between two looks
    if (unit == nullptr && Unit::exists(options.unit))
      unit = Unit::open(options.unit);
    if (unit != nullptr && condition(*unit))
      return;
    if (steady_clock::now() >= limit)
      throw std::runtime_error("it did not come to that in time");
  }
}

SupervisorOptions supervisorOptions(const Options& options) {
  if (!options.panel.empty())
    parsePanelAddress(options.panel); // refused before anything is done
  return {.unit = options.unit, .service = options.service, .isFresh = options.isFresh, .panel = options.panel};
}

void addUp(CLI::App& app, Options& options, int& status) {
  CLI::App* const up = app.add_subcommand("up", "Run the unit until Ctrl-C");
  addUnitOption(*up, options.unit);
  up->add_flag("--fresh", options.isFresh, "Put the unit back to factory state first");
  up->add_option("--service", options.service, "Program of the service")->default_val(serviceOfThisBuild());
  CLI::Option* const panel = up->add_option("--panel", options.panel, "ADDRESS:PORT that the front panel is served at");
  panel->capture_default_str();
  up->add_flag_callback(
        "--no-panel", [&] { options.panel.clear(); }, "Serve no front panel")
      ->excludes(panel);
  up->callback([&] { status = supervise(supervisorOptions(options)); });
}

void addJournal(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("journal", "Show what happened on the unit");
  addUnitOption(*command, options.unit);
  command->add_flag("--follow", options.follows, "Go on with what happens from now on");
  command->add_option("--kind", options.kind, "Rows of this kind only");
  command->add_option("--after", options.after, "Rows after this number only");
  command->callback([&] { journal(options); });
}

void addTable(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("table", "Show a table of the configuration store, or their names");
  addUnitOption(*command, options.unit);
  command->add_option("NAME", options.table, "The table");
  command->callback([&] { printTable(options); });
}

void addScreens(CLI::App& app, Options& options) {
  CLI::App* const status = app.add_subcommand("status", "Show the whole unit on one screen");
  CLI::App* const led = app.add_subcommand("led", "Show the LEDs by number and name");
  for (CLI::App* const screen : {status, led})
    addUnitOption(*screen, options.unit);
  status->callback([&] { std::fputs(statusText(*existingUnit(options.unit)).c_str(), stdout); });
  led->callback([&] { printLeds(options); });
}

void addFaultLists(CLI::App& app, Options& options) {
  CLI::App* const command = app.get_subcommand("fault");
  CLI::App* const list = command->add_subcommand("list", "Show the faults that are on");
  addUnitOption(*list, options.unit);
  list->callback([&] { listFaults(options); });
  command->add_subcommand("names", "Show all names")->callback(describeFaults);
}

void addSaving(CLI::App& app, Options& options) {
  CLI::App* const save = app.add_subcommand("save", "Keep the whole unit in a file");
  CLI::App* const load = app.add_subcommand("load", "Make the unit what a file holds; not while it runs");
  for (CLI::App* const command : {save, load}) {
    addUnitOption(*command, options.unit);
    command->add_option("FILE", options.file)->required();
  }
  save->callback([&] { saveUnit(*existingUnit(options.unit), options.file); });
  load->callback([&] { loadUnit(options.unit, options.file); });
}

void addWait(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("wait", "Wait for the unit");
  command->require_subcommand(1);
  CLI::App* const ready = command->add_subcommand("ready", "Wait until the service is ready");
  CLI::App* const row = command->add_subcommand("row", "Wait for a row of the journal");
  for (CLI::App* const kind : {ready, row}) {
    addUnitOption(*kind, options.unit);
    kind->add_option("--timeout", options.timeout, "Seconds")->capture_default_str();
  }
  row->add_option("KIND", options.kind)->required();
  row->add_option("TEXT", options.text, "Part of the row's text");
  row->add_option("--after", options.after, "Rows after this number only");
  ready->callback([&] {
    Life life;
    waitUntil(options, [&](Unit& unit) {
      life.follow(unit);
      return life.stage() == Life::Stage::up;
    });
  });
  row->callback([&] { waitUntil(options, [&](Unit& unit) { return hasRow(unit, options); }); });
}

int run(int argc, char** argv) {
  Options options;
  int status = EXIT_SUCCESS;
  CLI::App app("A gateway on a desk, with the test-mode service on it.", "gateway");
  app.require_subcommand(1);
  addUp(app, options, status);
  addJournal(app, options);
  addTable(app, options);
  addWait(app, options);
  addScreens(app, options);
  addActions(app, options.unit);
  addFaultLists(app, options);
  addSaving(app, options);
  addWireCommands(app);
  addLineCommands(app, serviceOfThisBuild(), status);
  addPanelCommand(app, status);
  addScenarioCommands(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Error& error) {
    return app.exit(error);
  }
  return status;
}

} // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gateway: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
