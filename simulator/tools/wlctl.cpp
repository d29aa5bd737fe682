// wlctl: switches, tunes and names the unit's radio, as the program of that name does on the gateway.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "simulator/drivers/wireless.h"
#include "simulator/unit.h"

namespace {

constexpr int refused = 1;
constexpr int misused = 2;

bool switchOn(gateway::Unit& unit, const char*) {
  gateway::setRadioPower(unit, true);
  return true;
}

bool switchOff(gateway::Unit& unit, const char*) {
  gateway::setRadioPower(unit, false);
  return true;
}

bool tune(gateway::Unit& unit, const char* text) {
  char* end = nullptr;
  const long channel = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || channel > gateway::highestRadioChannel || channel < gateway::lowestRadioChannel)
    return false;
  return gateway::setRadioChannel(unit, static_cast<int>(channel));
}

bool name(gateway::Unit& unit, const char* text) {
  return gateway::setRadioSsid(unit, text);
}

struct Command {
  std::string_view word;
  std::size_t arguments;
  bool (*run)(gateway::Unit& unit, const char* argument);
};
constexpr Command commands[] = {{"up", 0, switchOn}, {"down", 0, switchOff}, {"channel", 1, tune}, {"ssid", 1, name}};

int run(std::span<char*> words) {
  for (const Command& command : commands)
    if (words.size() == 1 + command.arguments && command.word == words.front()) {
      if (command.run(gateway::theUnit(), command.arguments > 0 ? words[1] : nullptr))
        return EXIT_SUCCESS;
      std::fprintf(stderr, "wlctl: the radio refused: %s\n", words.front());
      return refused;
    }
  std::fputs("usage: wlctl up | down | channel NUMBER | ssid TEXT\n", stderr);
  return misused;
}

} // namespace

int main(int argc, char* argv[]) {
  try {
    return run(std::span(argv, static_cast<std::size_t>(argc)).subspan(1));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wlctl: %s\n", error.what());
    return refused;
  }
}
