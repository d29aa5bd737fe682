#include "simulator/wire_commands.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simulator/clock.h"
#include "simulator/existing_unit.h"
#include "simulator/panel/output_tail.h"
#include "simulator/shown_text.h"
#include "simulator/transfers.h"
#include "simulator/wire.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;

constexpr auto pollTime = 20ms;

struct Arguments {
  std::string unit;
  bool follows = false;
};

/// Prints what `print` finds, again and again where that is asked for, until nobody reads it any more.
template <class Print>
void printAll(const Arguments& given, Print print) {
  print();
  std::fflush(stdout);
  while (given.follows && std::ferror(stdout) == 0) {
    std::this_thread::sleep_for(pollTime); // a file in the memory of another process tells nobody that it has changed
    print();
    std::fflush(stdout);
  }
}

void printDatagram(const Datagram& datagram) {
  std::printf("%llu  %s  %-21s  %s  %-10s  %s\n", static_cast<unsigned long long>(datagram.number),
              timeText(datagram.timeUs / 1000).c_str(), datagram.station.c_str(),
              datagram.toUnit ? "to unit  " : "from unit", std::string(fateName(datagram.fate)).c_str(),
              shown(packetText(datagram.bytes)).c_str());
}

void printDatagrams(const Arguments& given) {
  WireReader reader(existingFolder(given.unit));
  printAll(given, [&] {
    for (const Datagram& datagram : reader.poll())
      printDatagram(datagram);
  });
}

void printTransfer(const Transfer& transfer) {
  std::printf("%llu  %s  %-21s  %-5s  %s  %zu bytes, %d blocks, %d repeats, %.1f ms  %s%s%s\n",
              static_cast<unsigned long long>(transfer.number), timeText(transfer.startUs / 1000).c_str(),
              transfer.station.c_str(), transfer.isWrite ? "write" : "read", shown(transfer.file).c_str(),
              transfer.bytes, transfer.blocks, transfer.repeats,
              static_cast<double>(transfer.endUs - transfer.startUs) / 1000,
              std::string(outcomeName(transfer.outcome)).c_str(), transfer.message.empty() ? "" : ": ",
              shown(transfer.message).c_str());
}

/// Who follows is shown each transfer when it has ended; one that has ended may still get a late repeat.
void printTransfers(const Arguments& given) {
  WireReader reader(existingFolder(given.unit));
  Transfers transfers;
  std::uint64_t revision = 0;
  std::set<std::uint64_t> printed;
  printAll(given, [&] {
    for (const Datagram& datagram : reader.poll())
      transfers.add(datagram);
    transfers.passTime(clock::wallUs());
    for (const Transfer& transfer : transfers.changedSince(revision))
      if (!given.follows || (transfer.outcome != Outcome::running && printed.insert(transfer.number).second))
        printTransfer(transfer);
    revision = transfers.revision();
    if (!transfers.all().empty())
      printed.erase(printed.begin(), printed.lower_bound(transfers.all().front().number));
  });
}

void printOutput(const Arguments& given) {
  OutputTail output(existingFolder(given.unit));
  printAll(given, [&] {
    for (std::vector<std::string> lines = output.poll(); !lines.empty(); lines = output.poll())
      for (const std::string& line : lines)
        std::printf("%s\n", shown(line).c_str());
  });
}

void addCommand(CLI::App& app, const char* name, const char* description, void (*print)(const Arguments&)) {
  CLI::App* const command = app.add_subcommand(name, description);
  const auto given = std::make_shared<Arguments>();
  addUnitOption(*command, given->unit);
  command->add_flag("--follow", given->follows, "Go on with what comes from now on");
  command->callback([given, print] { print(*given); });
}

} // namespace

void addWireCommands(CLI::App& app) {
  addCommand(app, "transfers", "Show the newest transfers of the unit's stations", printTransfers);
  addCommand(app, "datagrams", "Show the newest datagrams from and to the unit", printDatagrams);
  addCommand(app, "output", "Show what the service and its supervisor have printed last", printOutput);
}

} // namespace gateway
