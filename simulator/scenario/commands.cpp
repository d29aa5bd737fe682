#include "simulator/scenario/commands.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "simulator/existing_unit.h"
#include "simulator/scenario/network.h"
#include "simulator/scenario/player.h"
#include "simulator/scenario/recorder.h"
#include "simulator/scenario/scenario.h"
#include "simulator/whole_file.h"

namespace gateway {

namespace {

struct Options {
  std::string unit;
  std::string file;
  std::string address = "127.0.0.1";
};

constexpr timespec noTime{};
constexpr timespec pollTime{.tv_sec = 0, .tv_nsec = 10'000'000}; // well before a flood has filled the ring

/// The signals that ask the program to end. They are blocked from here on, and only looked for.
class EndSignals {
public:
  EndSignals() {
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      sigaddset(&m_signals, signal);
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
  }
  /// Whether one comes within the time.
  bool comeWithin(timespec time) const { return sigtimedwait(&m_signals, nullptr, &time) > 0; }

private:
  sigset_t m_signals{};
};

void say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

int play(const Options& options) {
  const std::filesystem::path file = options.file;
  const Scenario scenario = parseScenario(readWholeFile(file), file.parent_path());
  for (const BadLine& line : scenario.badLines)
    std::fprintf(stderr, "%s:%d: %s\n", file.c_str(), line.line, line.reason.c_str());
  if (!scenario.badLines.empty())
    return EXIT_FAILURE;
  const std::unique_ptr<Network> network = udpNetwork(options.address);
  const std::unique_ptr<Unit> unit = existingUnit(options.unit);
  const EndSignals ends;
  const auto failure = Player(*unit, *network, say, [&] { return ends.comeWithin(noTime); }).play(scenario);
  if (failure)
    std::fprintf(stderr, "%s: %s\n", file.c_str(), failure->c_str());
  return failure ? EXIT_FAILURE : EXIT_SUCCESS;
}

/// Ends at SIGINT, SIGTERM or SIGHUP.
void record(const Options& options) {
  const EndSignals ends;
  const std::unique_ptr<Unit> unit = existingUnit(options.unit);
  Recorder recorder(*unit);
  recorder.save(options.file); // said now, not after an hour, when it can't be written
  say("Recording until Ctrl-C");
  do
    recorder.poll();
  while (!ends.comeWithin(pollTime));
  recorder.poll();
  recorder.save(options.file);
}

} // namespace

void addScenarioCommands(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("play", "Play a scenario: handle the unit, and be its test station");
  addUnitOption(*command, options->unit);
  command->add_option("FILE", options->file, "The scenario")->required();
  command->add_option("--address", options->address, "IPv4 address of the unit")->capture_default_str();
  command->callback([options, &status] { status = play(*options); });

  CLI::App* const recording =
      app.add_subcommand("record", "Write what happens to the unit as a scenario, until Ctrl-C");
  addUnitOption(*recording, options->unit);
  recording->add_option("FILE", options->file, "The scenario")->required();
  recording->callback([options] { record(*options); });
}

} // namespace gateway
