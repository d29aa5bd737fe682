// Two written test configuration files, one behind a NUL of the other, and what the wireless task does of them: what a
// taken file sets shows on the unit and in the file, a refused one changes nothing in the store, and the file can be
// read in between and after.
#include <map>
#include <string>

#include "platform/gpioctrl.h"
#include "simulator/database.h"
#include "simulator/drivers/gpio.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Text.h"
#include "userapps/FTM/WrLsTask.h"
#include "userapps/FTM/xml_parser.h"

namespace {

/// What a file sets, as far as a look at the unit tells it.
struct Settings {
  std::map<int, bool> points; ///< of the board, by number
  std::string ssid;           ///< empty: not set
  std::string channel;
};

struct Relay {
  std::string_view tag;
  int point;
};
constexpr Relay relays[] = {{"CUT_RELAY_1", eVoiceRly1}, {"CUT_RELAY_2", eVoiceRly2}};

gateway::Database& database() {
  return fuzz::FreshUnit::unit().database();
}

template <class Action>
void forEachChild(const ST_XML_ELEMENT& element, Action action) {
  for (ST_XML_ELEMENT** child = element.m_elements; child != nullptr && *child != nullptr; ++child)
    action(**child, std::string_view((*child)->m_tag), std::string_view(GetTextBody(*child)));
}

void setPoint(Settings& settings, unsigned int number, bool isOn) {
  if (number != allLedsPoint) {
    settings.points[static_cast<int>(number)] = isOn;
    return;
  }
  for (const gateway::GpioPoint& point : gateway::gpioPoints(database()))
    if (point.kind == "led")
      settings.points[point.number] = isOn;
}

/// The point is the first attribute, in 16 bits, and what is done with it the second, whatever their names.
void setSingleLed(Settings& settings, const ST_XML_ELEMENT& led) {
  if (led.m_attrnames == nullptr || led.m_attrnames[1] == nullptr)
    return;
  const std::string_view mode = led.m_attrvalues[1];
  if (mode == "ON" || mode == "OFF")
    setPoint(settings, static_cast<std::uint16_t>(decimalValue(led.m_attrvalues[0])), mode == "ON");
}

void setLeds(Settings& settings, const ST_XML_ELEMENT& section) {
  forEachChild(section, [&](const ST_XML_ELEMENT& child, std::string_view tag, std::string_view text) {
    if (tag == "SINGLE_LED")
      setSingleLed(settings, child);
    if (tag == "ALL_LEDS")
      setPoint(settings, allLedsPoint, text == "ON");
    for (const ST_FTM_LED& led : stFtmLeds)
      if (tag == led.pszName)
        setPoint(settings, static_cast<unsigned int>(led.ePoint), text == "ON");
  });
}

void setPair(Settings& settings, const ST_XML_ELEMENT& section) {
  forEachChild(section, [&](const ST_XML_ELEMENT&, std::string_view tag, std::string_view text) {
    if (tag == "AUTO_MODE")
      setPoint(settings, eDSLPair, text == "OUTER");
  });
}

void setRelays(Settings& settings, const ST_XML_ELEMENT& section) {
  forEachChild(section, [&](const ST_XML_ELEMENT&, std::string_view tag, std::string_view text) {
    for (const Relay& relay : relays)
      if (tag == relay.tag && (text == "Enable" || text == "Disable"))
        setPoint(settings, static_cast<unsigned int>(relay.point), text == "Enable");
  });
}

/// A later section of a file takes the place of an earlier one. Of a channel's text the radio's control program is
/// told what the request holds.
void setRadio(Settings& settings, const ST_XML_ELEMENT& section) {
  if (section.m_elements == nullptr)
    return;
  settings.ssid.clear();
  settings.channel.clear();
  forEachChild(section, [&](const ST_XML_ELEMENT&, std::string_view tag, std::string_view text) {
    if (tag == "SSID" && !text.empty())
      settings.ssid = text;
    if (tag == "CHANNEL" && !text.empty())
      settings.channel = text.substr(0, requestedChannelSize - 1);
  });
}

struct Section {
  std::string_view tag;
  void (*set)(Settings& settings, const ST_XML_ELEMENT& section);
};
constexpr Section sections[] = {
    {"LED", setLeds}, {"AUTO_PAIR", setPair}, {"VOIP", setRelays}, {"BCOM_WIRELESS", setRadio}};

XmlTree parsed(std::string_view text) {
  return XmlTree(create_xml_object(fuzz::WritableText(text).get()));
}

Settings settingsOf(std::string_view text) {
  Settings settings;
  const XmlTree document = parsed(text);
  const ST_XML_ELEMENT* const config = GetElement(document.get(), "TEST_CONFIG");
  fuzz::require(config != nullptr, "a taken file is a test configuration");
  forEachChild(*config, [&](const ST_XML_ELEMENT& child, std::string_view tag, std::string_view) {
    for (const Section& section : sections)
      if (tag == section.tag)
        section.set(settings, child);
  });
  return settings;
}

std::map<int, bool> pointsOfUnit() {
  std::map<int, bool> points;
  for (const gateway::GpioPoint& point : gateway::gpioPoints(database()))
    points[point.number] = point.isOn;
  return points;
}

/// A point that the board doesn't have, or that is an input, stays what it is: nobody is told of that.
void requirePoints(const Settings& settings) {
  for (const gateway::GpioPoint& point : gateway::gpioPoints(database())) {
    const auto set = settings.points.find(point.number);
    if (set != settings.points.end() && point.kind != "input")
      fuzz::require(point.isOn == set->second, "what a taken file sets shows on the board");
  }
}

void requireCommand(std::size_t before, std::string_view program, const std::string& argument) {
  const std::string command = std::string(program).append(" ").append(argument);
  const auto& commands = fuzz::commands();
  const bool isGiven =
      std::find(commands.begin() + static_cast<std::ptrdiff_t>(before), commands.end(), command) != commands.end();
  fuzz::require(argument.empty() || isGiven, "the radio is told what a taken file sets");
}

void requireFile(const Settings& settings) {
  const std::string file = fuzz::readFile(szFTM_TestModeCfg);
  fuzz::require(!file.empty(), "the file can be read");
  const XmlTree document = parsed(file);
  const auto shows = [&](const std::string& path, std::string_view text) {
    const char* const shown = GetElementBody(document.get(), ("TEST_CONFIG/" + path).c_str());
    return shown != nullptr && shown == text;
  };
  const std::map<int, bool> points = pointsOfUnit();
  for (const ST_FTM_LED& led : stFtmLeds)
    fuzz::require(shows(std::string("LED/") + led.pszName, points.at(led.ePoint) ? "ON" : "OFF"),
                  "the file shows the LEDs as they are");
  if (settings.points.contains(eDSLPair))
    fuzz::require(shows("AUTO_PAIR/AUTO_MODE", points.at(eDSLPair) ? "OUTER" : "INNER"),
                  "the file shows the pair that it has set");
}

void write(std::string_view text) {
  const fuzz::StoreCells before = fuzz::storeCells();
  const std::size_t commandsBefore = fuzz::commands().size();
  const bool isTaken = fuzz::writeFile(szFTM_TestModeCfg, text).empty();
  WrLsTaskRound();
  Settings settings;
  if (isTaken)
    settings = settingsOf(text);
  else
    fuzz::require(fuzz::storeCells() == before, "a refused file changes nothing in the store");
  requirePoints(settings);
  requireCommand(commandsBefore, "sh -c wlctl ssid", settings.ssid);
  requireCommand(commandsBefore, "sh -c wlctl channel", settings.channel);
  requireFile(settings);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  fuzz::Input input(data, size);
  const std::string_view first = input.upTo('\0');
  write(first);
  write(input.rest());
  fuzz::require(iFtmWrLsCmd == eWRLS_IDLE, "no request to the radio is left");
  return 0;
}
