// The Ethernet driver and the switch behind it. Links and counts are those of "SwitchStat" and "NetDev"; a network
// device has the link and the speed of its switch port.
#include "simulator/drivers/ethernet.h"

#include <linux/sockios.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "platform/bcmnet.h"
#include "simulator/clock.h"
#include "simulator/database.h"
#include "simulator/drivers/driver.h"
#include "simulator/drivers/line.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::int64_t bitsPerMegabit = 1'000'000;
constexpr int portSpeeds[] = {10, 100, 1000};

constexpr const char* plugPort = "UPDATE \"SwitchStat\" SET \"Link\" = 'up', \"Duplex\" = 'full',"
                                 " \"Speed\" = (SELECT megabits FROM switch_ports WHERE port = ?1)"
                                 " WHERE rowid = (SELECT store_row FROM switch_links WHERE port = ?1 AND NOT is_up)";
constexpr const char* unplugPort = "UPDATE \"SwitchStat\" SET \"Link\" = 'down', \"Duplex\" = 'half', \"Speed\" = '0',"
                                   " \"TxPackets\" = '0', \"RxPackets\" = '0'"
                                   " WHERE rowid = (SELECT store_row FROM switch_links WHERE port = ?1)";

// Of one step of traffic on each link.
constexpr std::int64_t stepMs = 10;
constexpr std::int64_t packetsPerStep = 2;
constexpr std::int64_t packetSize = 512;
constexpr std::int64_t cellsPerPacket = 11; // of 48 bytes each

struct NetworkDevice {
  std::int64_t flags;
  bool isUp;
  std::int64_t megabits;
};

std::optional<NetworkDevice> findDevice(Unit& unit, const std::string& name) {
  Query device(unit.database(),
               "SELECT flags, is_up, megabits FROM net_devices LEFT JOIN switch_links USING (port) WHERE name = ?",
               name);
  if (!device.next())
    return std::nullopt;
  return NetworkDevice{device.number(0), device.number(1) != 0, device.number(2)};
}

int answerFlags(const NetworkDevice& device, ifreq& request) {
  const bool isRunning = (device.flags & IFF_UP) != 0 && device.isUp;
  request.ifr_flags = static_cast<short>(device.flags | (isRunning ? IFF_RUNNING : 0));
  return 0;
}

int answerInt(const ifreq& request, std::int64_t value) {
  if (request.ifr_data == nullptr)
    return -EFAULT;
  *reinterpret_cast<int*>(request.ifr_data) = static_cast<int>(value);
  return 0;
}

int answer(Unit& unit, unsigned long request, void* argument) {
  if (argument == nullptr)
    return -EFAULT;
  ifreq& record = *static_cast<ifreq*>(argument);
  const std::optional<NetworkDevice> device = findDevice(unit, interfaceName(record));
  if (!device)
    return -ENODEV;
  switch (request) {
  case SIOCGIFFLAGS:
    return answerFlags(*device, record);
  case SIOCGLINKSTATE:
    return answerInt(record, device->isUp ? 1 : 0);
  default:
    return answerInt(record, device->isUp ? device->megabits * bitsPerMegabit : 0);
  }
}

std::string recordText(unsigned long request, const void* argument) {
  if (argument == nullptr)
    return {};
  const ifreq& record = *static_cast<const ifreq*>(argument);
  char text[IFNAMSIZ + 32];
  const std::string name = interfaceName(record);
  if (request == SIOCGIFFLAGS)
    std::snprintf(text, sizeof text, "%s flags=0x%04x", name.c_str(), static_cast<unsigned short>(record.ifr_flags));
  else if (record.ifr_data == nullptr)
    std::snprintf(text, sizeof text, "%s", name.c_str());
  else
    std::snprintf(text, sizeof text, "%s %d", name.c_str(), *reinterpret_cast<const int*>(record.ifr_data));
  return text;
}

void requirePort(Unit& unit, int port) {
  Query row(unit.database(), "SELECT 1 FROM switch_ports WHERE port = ?", port);
  if (!row.next())
    throw std::runtime_error("no such switch port: " + std::to_string(port));
}

struct MovingCount {
  const char* column;
  std::int64_t perStep;
};
constexpr MovingCount switchCounts[] = {{"TxPackets", packetsPerStep}, {"RxPackets", packetsPerStep}};
constexpr MovingCount deviceCounts[] = {{"RxBytes", packetsPerStep* packetSize},
                                        {"RxPackets", packetsPerStep},
                                        {"TxBytes", packetsPerStep* packetSize},
                                        {"TxPackets", packetsPerStep}};
constexpr MovingCount atmCounts[] = {{"InCells", packetsPerStep* cellsPerPacket},
                                     {"InOctets", packetsPerStep* packetSize},
                                     {"OutCells", packetsPerStep* cellsPerPacket},
                                     {"OutOctets", packetsPerStep* packetSize}};

struct MovingTable {
  const char* table;
  std::span<const MovingCount> counts;
  const char* rows; ///< those whose link is up
};
constexpr MovingTable movingTables[] = {
    {"SwitchStat", switchCounts, "\"Link\" = 'up'"},
    {"NetDev", deviceCounts,
     "\"Interface\" IN (SELECT name FROM net_devices JOIN switch_links USING (port) WHERE is_up AND flags & 1)"},
    {"NetDev", deviceCounts,
     "\"Interface\" IN (SELECT interface FROM radio WHERE is_up) AND"
     " EXISTS (SELECT 1 FROM \"WlanStations\" WHERE CAST(\"Stations\" AS INTEGER) > 0)"},
    {"NetDev", deviceCounts,
     "\"Interface\" IN (SELECT \"Interface\" FROM \"VccStat\") AND"
     " EXISTS (SELECT 1 FROM \"Xcvr\" WHERE \"State\" = 'UP')"},
    {"BcmAtm", atmCounts, "EXISTS (SELECT 1 FROM \"Xcvr\" WHERE \"State\" = 'UP')"},
};

void moveTable(Database& database, const MovingTable& table, std::int64_t steps) {
  std::string sql = "UPDATE \"" + std::string(table.table) + "\" SET ";
  for (const MovingCount& count : table.counts) {
    char assignment[80];
    std::snprintf(assignment, sizeof assignment, "%s\"%s\" = CAST(\"%s\" AS INTEGER) + ?1 * %lld",
                  &count != table.counts.data() ? ", " : "", count.column, count.column,
                  static_cast<long long>(count.perStep));
    sql += assignment;
  }
  execute(database, sql + " WHERE " + table.rows, steps);
}

std::int64_t trafficMovedUntil(Database& database) {
  Query traffic(database, "SELECT moved_until_ms FROM traffic");
  return traffic.next() ? traffic.number(0) : 0;
}

} // namespace

constinit const Requests ethernetRequests{answer, recordText};

void setPortLink(Unit& unit, int port, bool isUp) {
  moveTraffic(unit.database());
  Transaction transaction(unit.database());
  requirePort(unit, port);
  execute(unit.database(), isUp ? plugPort : unplugPort, port);
  transaction.commit();
  unit.record("switch", "port " + std::to_string(port) + (isUp ? " up" : " down"));
}

void setPortSpeed(Unit& unit, int port, int megabits) {
  if (std::ranges::find(portSpeeds, megabits) == std::end(portSpeeds))
    throw std::runtime_error("no such speed: " + std::to_string(megabits));
  Transaction transaction(unit.database());
  requirePort(unit, port);
  execute(unit.database(), "UPDATE switch_ports SET megabits = ? WHERE port = ?", megabits, port);
  execute(unit.database(),
          "UPDATE \"SwitchStat\" SET \"Speed\" = ? WHERE rowid = "
          "(SELECT store_row FROM switch_links WHERE port = ? AND is_up)",
          megabits, port);
  transaction.commit();
  unit.record("switch", "port " + std::to_string(port) + " speed " + std::to_string(megabits));
}

void setTraffic(Unit& unit, bool isOn) {
  moveTraffic(unit.database());
  execute(unit.database(), "UPDATE traffic SET is_on = ?, moved_until_ms = ?", isOn ? 1 : 0, clock::nowMs());
  unit.record("switch", isOn ? "traffic on" : "traffic off");
}

bool isTrafficOn(Unit& unit) {
  return Query(unit.database(), "SELECT 1 FROM traffic WHERE is_on").next();
}

std::vector<SwitchPort> switchPorts(Unit& unit) {
  moveTraffic(unit.database());
  std::vector<SwitchPort> ports;
  Query rows(unit.database(),
             "SELECT \"Link\", \"Speed\", \"RxPackets\", \"TxPackets\" FROM \"SwitchStat\" ORDER BY rowid");
  while (rows.next())
    ports.push_back({static_cast<int>(ports.size()) + 1, rows.text(0) == "up", std::string(rows.text(1)),
                     std::string(rows.text(2)), std::string(rows.text(3))});
  return ports;
}

void moveTraffic(Database& database) {
  if (database.firstRow("SELECT 1 FROM traffic WHERE is_on").empty())
    return;
  settleLine(database);
  Transaction transaction(database);
  const std::int64_t movedUntil = trafficMovedUntil(database);
  // The clock starts anew with the machine: what lies in its future was moved before that.
  const std::int64_t now = clock::nowMs();
  const std::int64_t steps = std::max<std::int64_t>(now - movedUntil, 0) / stepMs;
  const std::int64_t movedNow = movedUntil > now ? now : movedUntil + steps * stepMs;
  if (movedNow == movedUntil)
    return;
  for (const MovingTable& table : movingTables)
    moveTable(database, table, steps);
  execute(database, "UPDATE traffic SET moved_until_ms = ?", movedNow);
  transaction.commit();
}

} // namespace gateway
