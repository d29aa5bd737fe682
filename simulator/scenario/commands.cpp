#include "simulator/scenario/commands.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "simulator/existing_unit.h"
#include "simulator/scenario/network.h"
#include "simulator/scenario/player.h"
#include "simulator/scenario/recorder.h"
#include "simulator/scenario/scenario.h"

namespace gateway {

namespace {

struct Options {
  std::string unit;
  std::string file;
  std::string address = "127.0.0.1";
};

constexpr timespec pollTime{.tv_sec = 0, .tv_nsec = 50'000'000};

std::string textOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream.is_open() || std::filesystem::is_directory(file))
    throw std::runtime_error(file.string() + " can't be read");
  std::ostringstream text;
  text << stream.rdbuf();
  return std::move(text).str();
}

void say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

int play(const Options& options) {
  const std::filesystem::path file = options.file;
  const Scenario scenario = parseScenario(textOf(file), file.parent_path());
  for (const BadLine& line : scenario.badLines)
    std::fprintf(stderr, "%s:%d: %s\n", file.c_str(), line.line, line.reason.c_str());
  if (!scenario.badLines.empty())
    return EXIT_FAILURE;
  const std::unique_ptr<Network> network = udpNetwork(options.address);
  const std::unique_ptr<Unit> unit = existingUnit(options.unit);
  const auto failure = Player(*unit, *network, say).play(scenario);
  if (failure)
    std::fprintf(stderr, "%s: %s\n", file.c_str(), failure->c_str());
  return failure ? EXIT_FAILURE : EXIT_SUCCESS;
}

/// Ends at SIGINT, SIGTERM or SIGHUP.
void record(const Options& options) {
  sigset_t ends;
  sigemptyset(&ends);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&ends, signal);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  const std::unique_ptr<Unit> unit = existingUnit(options.unit);
  Recorder recorder(*unit);
  recorder.save(options.file); // said now, not after an hour, when it can't be written
  say("Recording until Ctrl-C");
  do
    recorder.poll();
  while (sigtimedwait(&ends, nullptr, &pollTime) < 0);
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
