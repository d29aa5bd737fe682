// The GPIO driver. Outside factory test mode the LEDs follow the unit; inside it they hold what the station sets.
#include "simulator/drivers/gpio.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "platform/gpioctrl.h"
#include "simulator/database.h"
#include "simulator/drivers/driver.h"
#include "simulator/drivers/line.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::string_view ledKind = "led";
constexpr std::string_view inputKind = "input";

bool hasRow(Database& database, std::string_view sql) {
  return Query(database, sql).next();
}

bool always(Database&) {
  return true;
}
bool lineIsUp(Database& database) {
  return lineState(database) == LineState::up;
}
bool lineTrains(Database& database) {
  return lineState(database) == LineState::training;
}
bool hasDataCircuit(Database& database) {
  return lineIsUp(database) && hasRow(database, "SELECT 1 FROM \"VccStat\" WHERE \"Interface\" = 'nas0'");
}
bool radioIsOn(Database& database) {
  return hasRow(database, "SELECT 1 FROM radio WHERE is_up");
}
bool hasUsbDevice(Database& database) {
  return hasRow(database, "SELECT 1 FROM usb_devices");
}
template <int row>
bool portIsUp(Database& database) {
  Query query(database, "SELECT \"Link\" FROM \"SwitchStat\" ORDER BY rowid LIMIT 1 OFFSET ?", row);
  return query.next() && query.text(0) == "up";
}

struct OwnLed {
  int number;
  bool (*isLit)(Database&);
};

/// The LEDs that the unit drives by itself; the others are dark outside factory test mode.
constexpr OwnLed ownLeds[] = {
    {ePowerGrnLed, always}, {eDSLGrnLed, lineIsUp},     {eDSLRedLed, lineTrains},   {5, hasDataCircuit},
    {7, radioIsOn},         {eUSBGrnLed, hasUsbDevice}, {eEth0GrnLed, portIsUp<0>}, {13, portIsUp<1>},
    {14, portIsUp<2>},      {15, portIsUp<3>},
};

bool isLitByItself(Database& database, int number) {
  const auto* const led = std::ranges::find(ownLeds, number, &OwnLed::number);
  return led != std::end(ownLeds) && led->isLit(database);
}

bool isOn(Database& database, const GpioPoint& point, bool testMode) {
  return point.kind == ledKind && !testMode ? isLitByItself(database, point.number) : point.isOn;
}

/// The points as they are kept: an LED's is what the station has set.
std::vector<GpioPoint> keptPoints(Database& database) {
  std::vector<GpioPoint> points;
  Query query(database, "SELECT point, name, kind, value FROM gpio ORDER BY point");
  while (query.next())
    points.push_back({static_cast<int>(query.number(0)), std::string(query.text(1)), std::string(query.text(2)),
                      query.number(3) != 0});
  return points;
}

/// Kind of a point; empty when the board has no such point.
std::string kindOf(Database& database, int number) {
  Query query(database, "SELECT kind FROM gpio WHERE point = ?", number);
  return query.next() ? std::string(query.text(0)) : std::string();
}

void keep(Database& database, int number, bool on) {
  execute(database, "UPDATE gpio SET value = ? WHERE point = ?", on ? 1 : 0, number);
}

int readPoint(Database& database, led_gpio_readwrite& io) {
  Query query(database, "SELECT point, name, kind, value FROM gpio WHERE point = ?", io.iUserIOPoint);
  if (!query.next())
    return -EINVAL;
  const GpioPoint point{static_cast<int>(query.number(0)), {}, std::string(query.text(2)), query.number(3) != 0};
  io.iData = isOn(database, point, isInTestMode(database)) ? 1 : 0;
  return 0;
}

int writePoint(Database& database, const led_gpio_readwrite& io) {
  const std::string kind = kindOf(database, io.iUserIOPoint);
  if (kind.empty())
    return -EINVAL;
  if (kind == inputKind)
    return -EPERM;
  keep(database, io.iUserIOPoint, io.iData != 0);
  return 0;
}

/// The LEDs hold what they show at this moment until the station sets them.
int enterTestMode(Database& database) {
  if (isInTestMode(database))
    return 0;
  Transaction transaction(database);
  for (const GpioPoint& point : gpioPoints(database))
    if (point.kind == ledKind)
      keep(database, point.number, point.isOn);
  execute(database, "UPDATE gpio_driver SET test_mode = 1");
  transaction.commit();
  return 0;
}

int leaveTestMode(Database& database) {
  execute(database, "UPDATE gpio_driver SET test_mode = 0");
  return 0;
}

int switchAllLeds(Database& database, bool on) {
  execute(database, "UPDATE gpio SET value = ? WHERE kind = ?", on ? 1 : 0, ledKind);
  return 0;
}

int answerRecord(Database& database, unsigned long request, void* argument) {
  if (argument == nullptr)
    return -EFAULT;
  auto& io = *static_cast<led_gpio_readwrite*>(argument);
  switch (request) {
  case GPIOCTRL_READIO:
    return readPoint(database, io);
  case GPIOCTRL_WRITEIO:
    return writePoint(database, io);
  case GPIOCTRL_ENTERFTM:
    return enterTestMode(database);
  default:
    return leaveTestMode(database);
  }
}

int answer(Unit& unit, unsigned long request, void* argument) {
  switch (request) {
  case GPIOCTRL_ALLLEDS_OFF:
  case GPIOCTRL_ALLLEDS_ON:
    return switchAllLeds(unit.database(), request == GPIOCTRL_ALLLEDS_ON);
  case GPIOCTRL_READIO:
  case GPIOCTRL_WRITEIO:
  case GPIOCTRL_ENTERFTM:
  case GPIOCTRL_EXITFTM:
    return answerRecord(unit.database(), request, argument);
  default:
    return -ENOTTY;
  }
}

std::string record(unsigned long request, const void* argument) {
  if (argument == nullptr || request < GPIOCTRL_READIO || request > GPIOCTRL_EXITFTM)
    return {};
  const auto& io = *static_cast<const led_gpio_readwrite*>(argument);
  return "point=" + std::to_string(io.iUserIOPoint) + " data=" + std::to_string(io.iData);
}

} // namespace

std::vector<GpioPoint> gpioPoints(Database& database) {
  std::vector<GpioPoint> points = keptPoints(database);
  const bool testMode = isInTestMode(database);
  for (GpioPoint& point : points)
    point.isOn = isOn(database, point, testMode);
  return points;
}

bool isInTestMode(Database& database) {
  return hasRow(database, "SELECT 1 FROM gpio_driver WHERE test_mode = 1");
}

void setInput(Database& database, int number, bool isClosed) {
  if (kindOf(database, number) != inputKind)
    throw std::runtime_error("point " + std::to_string(number) + " is no input");
  keep(database, number, isClosed);
}

void restartGpio(Database& database) {
  Transaction transaction(database);
  execute(database, "UPDATE gpio SET value = 0 WHERE kind <> ?", inputKind);
  leaveTestMode(database);
  transaction.commit();
}

const Requests gpioRequests{answer, record};

} // namespace gateway
