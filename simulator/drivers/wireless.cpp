// The wireless driver and its radio.
#include "simulator/drivers/wireless.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "platform/wlioctl.h"
#include "simulator/database.h"
#include "simulator/drivers/driver.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/faults.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::uint32_t driverVersion = 2;
constexpr std::uint32_t newerDriverVersion = 3;
constexpr std::size_t countrySize = 4;
constexpr std::size_t longestVariable = 256;

// Names of the faults.
constexpr const char* missingRadio = "radio";
constexpr const char* foreignMagic = "radio-magic";
constexpr const char* newerVersion = "radio-version";
constexpr const char* refusedRequest = "radio-request";

std::string_view bytesOf(const wl_ioctl& request) {
  return {static_cast<const char*>(request.buf), request.len};
}

template <class Value>
int answerWith(wl_ioctl& request, const Value& value) {
  request.needed = sizeof value;
  if (request.len < sizeof value)
    return -E2BIG;
  std::memcpy(request.buf, &value, sizeof value);
  request.used = sizeof value;
  return 0;
}

int getMagic(Unit& unit, wl_ioctl& request) {
  return answerWith(request, unit.hasFault(foreignMagic) ? ~WLC_IOCTL_MAGIC : WLC_IOCTL_MAGIC);
}

int getVersion(Unit& unit, wl_ioctl& request) {
  return answerWith(request, unit.hasFault(newerVersion) ? newerDriverVersion : driverVersion);
}

int getMac(Unit& unit, wl_ioctl& request) {
  std::array<unsigned char, 6> mac{};
  Query radio(unit.database(), "SELECT mac FROM radio");
  if (!radio.next())
    return -EIO;
  std::sscanf(std::string(radio.text(0)).c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", mac.data(), &mac[1], &mac[2],
              &mac[3], &mac[4], &mac[5]);
  return answerWith(request, mac);
}

int getSsid(Unit& unit, wl_ioctl& request) {
  Query radio(unit.database(), "SELECT ssid, ssid_length FROM radio");
  if (!radio.next())
    return -EIO;
  wlc_ssid_t answer{};
  const std::string_view ssid = radio.text(0);
  ssid.copy(reinterpret_cast<char*>(answer.SSID), sizeof answer.SSID);
  answer.SSID_len = static_cast<std::uint32_t>(radio.number(1) < 0 ? std::ssize(ssid) : radio.number(1));
  return answerWith(request, answer);
}

int getChannel(Unit& unit, wl_ioctl& request) {
  Query radio(unit.database(), "SELECT hw_channel, target_channel, scan_channel FROM radio");
  if (!radio.next())
    return -EIO;
  return answerWith(request, channel_info_t{static_cast<int>(radio.number(0)), static_cast<int>(radio.number(1)),
                                            static_cast<int>(radio.number(2))});
}

int getCountry(Unit& unit, wl_ioctl& request) {
  Query radio(unit.database(), "SELECT country FROM radio");
  if (!radio.next())
    return -EIO;
  std::array<char, countrySize> country{};
  radio.text(0).copy(country.data(), country.size());
  return answerWith(request, country);
}

std::string hexText(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

// The name in front of a variable's value; nothing when it has no end.
std::string_view variableName(const wl_ioctl& request) {
  const std::string_view bytes = bytesOf(request);
  const std::size_t end = bytes.find('\0');
  return end == std::string_view::npos ? std::string_view() : bytes.substr(0, end);
}

// Values are kept as hexadecimal text, so that any bytes can be.
int setVariable(Unit& unit, wl_ioctl& request) {
  const std::string_view name = variableName(request);
  if (name.empty() || request.len > longestVariable)
    return -EINVAL;
  execute(unit.database(), "INSERT OR REPLACE INTO radio_variables VALUES (?, ?)", name,
          hexText(bytesOf(request).substr(name.size() + 1)));
  return 0;
}

int getVariable(Unit& unit, wl_ioctl& request) {
  const std::string name(variableName(request));
  Query variable(unit.database(), "SELECT value FROM radio_variables WHERE name = ?", name);
  if (!variable.next())
    return -EOPNOTSUPP;
  const std::string value(variable.text(0));
  request.needed = static_cast<unsigned int>(value.size() / 2);
  if (request.len < request.needed)
    return -E2BIG;
  std::memset(request.buf, 0, request.len);
  for (std::size_t byte = 0; byte < request.needed; ++byte)
    static_cast<unsigned char*>(request.buf)[byte] =
        static_cast<unsigned char>(std::stoul(value.substr(2 * byte, 2), nullptr, 16));
  request.used = request.needed;
  return 0;
}

struct Command {
  unsigned int number;
  bool isSet;
  int (*answer)(Unit& unit, wl_ioctl& request);
};
constexpr Command commands[] = {
    {WLC_GET_MAGIC, false, getMagic},  {WLC_GET_VERSION, false, getVersion}, {WLC_GET_MAC, false, getMac},
    {WLC_GET_SSID, false, getSsid},    {WLC_GET_CHANNEL, false, getChannel}, {WLC_GET_COUNTRY, false, getCountry},
    {WLC_GET_VAR, false, getVariable}, {WLC_SET_VAR, true, setVariable},
};

bool isRadio(Unit& unit, const std::string& name) {
  Query radio(unit.database(), "SELECT 1 FROM radio WHERE interface = ?", name);
  return radio.next();
}

int answer(Unit& unit, unsigned long, void* argument) {
  if (argument == nullptr)
    return -EFAULT;
  const ifreq& record = *static_cast<const ifreq*>(argument);
  if (!isRadio(unit, interfaceName(record)) || unit.hasFault(missingRadio))
    return -ENODEV;
  auto* const request = reinterpret_cast<wl_ioctl*>(record.ifr_data);
  if (request == nullptr || request->buf == nullptr)
    return -EFAULT;
  const auto* const command = std::ranges::find(commands, request->cmd, &Command::number);
  if (command == std::end(commands) || command->isSet != (request->set != 0))
    return -EOPNOTSUPP;
  if (unit.faults().has({refusedRequest, std::to_string(request->cmd)}))
    return -EIO;
  return command->answer(unit, *request);
}

std::string recordText(unsigned long, const void* argument) {
  if (argument == nullptr)
    return {};
  const ifreq& record = *static_cast<const ifreq*>(argument);
  const auto* const request = reinterpret_cast<const wl_ioctl*>(record.ifr_data);
  if (request == nullptr)
    return interfaceName(record);
  return interfaceName(record) + " cmd=" + std::to_string(request->cmd) + " len=" + std::to_string(request->len) +
         " set=" + std::to_string(request->set);
}

void recordChange(Unit& unit, bool isDone, const std::string& change) {
  unit.record("radio", isDone ? change : "refused " + change);
}

bool isUp(Unit& unit) {
  Query radio(unit.database(), "SELECT 1 FROM radio WHERE is_up");
  return radio.next();
}

void countStations(Unit& unit, int change) {
  execute(unit.database(), "UPDATE \"WlanStations\" SET \"Stations\" = CAST(\"Stations\" AS INTEGER) + ?", change);
}

bool hasStation(Unit& unit) {
  Query stations(unit.database(), "SELECT 1 FROM \"WlanStations\" WHERE CAST(\"Stations\" AS INTEGER) > 0");
  return stations.next();
}

} // namespace

constinit const Requests wirelessRequests{answer, recordText};

RadioState radioState(Unit& unit) {
  Query radio(unit.database(), "SELECT is_up, ssid, target_channel, country, mac, "
                               "coalesce((SELECT \"Stations\" FROM \"WlanStations\"), '0') FROM radio");
  if (!radio.next())
    throw std::runtime_error("the unit has no radio");
  return {radio.number(0) != 0,       std::string(radio.text(1)), static_cast<int>(radio.number(2)),
          std::string(radio.text(3)), std::string(radio.text(4)), std::string(radio.text(5))};
}

void setRadioPower(Unit& unit, bool isOn) {
  moveTraffic(unit.database());
  Transaction transaction(unit.database());
  execute(unit.database(), "UPDATE radio SET is_up = ?", isOn ? 1 : 0);
  if (!isOn)
    execute(unit.database(), "UPDATE \"WlanStations\" SET \"Stations\" = '0'");
  transaction.commit();
  unit.record("radio", isOn ? "up" : "down");
}

bool setRadioChannel(Unit& unit, int channel) {
  const bool isPossible = channel >= lowestRadioChannel && channel <= highestRadioChannel && !isUp(unit);
  if (isPossible)
    execute(unit.database(), "UPDATE radio SET hw_channel = ?, target_channel = ?, scan_channel = ?", channel, channel,
            channel);
  recordChange(unit, isPossible, "channel " + std::to_string(channel));
  return isPossible;
}

bool setRadioSsid(Unit& unit, std::string_view ssid) {
  const bool isPossible = ssid.size() <= longestSsid && isUp(unit);
  if (isPossible)
    execute(unit.database(), "UPDATE radio SET ssid = ?, ssid_length = -1", ssid);
  recordChange(unit, isPossible, "ssid " + std::string(ssid));
  return isPossible;
}

bool joinStation(Unit& unit) {
  moveTraffic(unit.database());
  Transaction transaction(unit.database());
  if (!isUp(unit))
    return false;
  countStations(unit, 1);
  transaction.commit();
  unit.record("radio", "station joined");
  return true;
}

bool leaveStation(Unit& unit) {
  moveTraffic(unit.database());
  Transaction transaction(unit.database());
  if (!hasStation(unit))
    return false;
  countStations(unit, -1);
  transaction.commit();
  unit.record("radio", "station left");
  return true;
}

} // namespace gateway
